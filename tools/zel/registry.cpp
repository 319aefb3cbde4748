#include "tools/zel/registry.h"

namespace zel::tool {

std::vector<Subcommand> allSubcommands() {
  return {};
}

}  // namespace zel::tool
