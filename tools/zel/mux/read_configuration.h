#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"

namespace zel::tool {

struct ConfigurationDeleter {
  void operator()(Morvalen::Zel::tsm_config* config) const {
    Morvalen::Zel::tsm_config_free(config);
  }
};
using Configuration = std::unique_ptr<Morvalen::Zel::tsm_config, ConfigurationDeleter>;

/// What the library's reader makes of a text. Warnings of the reader go to `warnings`. Throws
/// `Error` (WrongUsage or Failure) with the first error that it tells of, behind `what`.
template <class Error>
Configuration readConfiguration(const std::string& text, const std::string& what,
                                std::vector<std::string>& warnings);

}  // namespace zel::tool
