#include "tools/zel/registry.h"

#include "tools/zel/subcommands.h"

namespace zel::tool {

std::vector<Subcommand> allSubcommands() {
  // Examples run in this order: what one makes, later ones may read.
  return {
      configCheckSubcommand(), configKeysSubcommand(),    configPrintSubcommand(),
      dnxhdEncodeSubcommand(), dnxhdDecodeSubcommand(),   dnxhdCheckSubcommand(),
      dnxhdInfoSubcommand(),   dnxhdMetadataSubcommand(), dnxhdIdsSubcommand(),
      formatsSubcommand(),     keysSubcommand(),          hevcEncodeSubcommand(),
      muxSubcommand(),         testsrcSubcommand(),
  };
}

}  // namespace zel::tool
