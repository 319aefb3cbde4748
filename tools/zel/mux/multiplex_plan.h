#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zel/mux/engine/configuration/key_table.h"

namespace zel::tool {

/// `key = value` of a section.
struct KeyValue {
  std::string key;
  std::string value;
  friend bool operator==(const KeyValue&, const KeyValue&) = default;
};

/// What options ask for, section by section, as a configuration text has it. Everything is checked
/// by the library's own reader once it is a text: the plan knows names only.
struct PlannedStream {
  std::string section;  ///< "Video"
  std::vector<KeyValue> keys;
};

struct PlannedProgram {
  std::string number;  ///< program_number as typed; empty: as the reader numbers it
  std::vector<KeyValue> keys;
  std::vector<PlannedStream> streams;
};

struct MultiplexPlan {
  std::vector<KeyValue> transport;
  std::vector<PlannedStream> streams;  ///< of no program
  std::vector<PlannedProgram> programs;
};

/// The plan as a configuration text. Throws WrongUsage for what such a text can't say: line ends,
/// lines that are too long, file names with two double quotes.
std::string configurationText(const MultiplexPlan& plan);

/// A configuration text with these keys in front of those of its Transport section, where they
/// have precedence. A text without such a section stays as it is.
std::string withTransportKeys(const std::string& text, const std::vector<KeyValue>& keys);

/// The section of that name; the names are those of the library's table.
const Morvalen::Zel::tsm_config_section& sectionNamed(std::string_view name);

/// "KEY=VALUE" for a section. Throws WrongUsage, naming `option`, where the section has no such
/// key.
KeyValue parseKeyValue(const Morvalen::Zel::tsm_config_section& section, std::string_view argument,
                       const std::string& option);

/// "FILE[,KEY=VALUE...]", or without FILE. What follows a comma and isn't KEY=VALUE is part of what
/// stands before it: names and lists of bytes may have commas.
struct StreamArgument {
  std::string file;
  std::vector<KeyValue> keys;
};
StreamArgument parseStreamArgument(const Morvalen::Zel::tsm_config_section& section,
                                   std::string_view argument, const std::string& option);

/// The keys of a stream's section, its file among them.
std::vector<KeyValue> keysOf(const Morvalen::Zel::tsm_config_section& section,
                             const StreamArgument& argument);

}  // namespace zel::tool
