#include "tools/zel/registry.h"

#include "tools/zel/subcommands.h"

namespace zel::tool {

std::vector<Subcommand> allSubcommands() {
  return {
      configCheckSubcommand(), configKeysSubcommand(), configPrintSubcommand(), formatsSubcommand(),
      keysSubcommand(),        hevcEncodeSubcommand(), muxSubcommand(),         testsrcSubcommand(),
  };
}

}  // namespace zel::tool
