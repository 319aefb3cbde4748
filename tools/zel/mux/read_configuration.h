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

struct ConfigurationMessage {
  bool isError;
  int code;
  std::string text;  // one line
};

struct ReadConfiguration {
  Configuration config;  // null when reading ended early
  std::vector<ConfigurationMessage> messages;
};

/// What the library's reader makes of a text, and all that it says of it.
ReadConfiguration readConfiguration(const std::string& text);

/// The same where only what is right will do. Warnings of the reader go to `warnings`. Throws
/// `Error` (WrongUsage or Failure) with the first error that it tells of, behind `what`.
template <class Error>
Configuration rightConfiguration(const std::string& text, const std::string& what,
                                 std::vector<std::string>& warnings);

}  // namespace zel::tool
