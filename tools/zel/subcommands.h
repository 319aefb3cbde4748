#pragma once

#include "tools/zel/subcommand.h"

// One function a subcommand, each in a file named after it.

namespace zel::tool {

Subcommand configCheckSubcommand();
Subcommand configKeysSubcommand();
Subcommand configPrintSubcommand();
Subcommand dnxhdCheckSubcommand();
Subcommand dnxhdDecodeSubcommand();
Subcommand dnxhdEncodeSubcommand();
Subcommand dnxhdIdsSubcommand();
Subcommand dnxhdInfoSubcommand();
Subcommand dnxhdMetadataSubcommand();
Subcommand formatsSubcommand();
Subcommand hevcEncodeSubcommand();
Subcommand keysSubcommand();
Subcommand muxSubcommand();
Subcommand testsrcSubcommand();

}  // namespace zel::tool
