#pragma once

#include <vector>

#include "tools/zel/subcommand.h"

namespace zel::tool {

/// All subcommands, in the order in which --help lists them.
std::vector<Subcommand> allSubcommands();

}  // namespace zel::tool
