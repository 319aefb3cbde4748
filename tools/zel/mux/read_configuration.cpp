#include "tools/zel/mux/read_configuration.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/temporary_file.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

// One line of the reader's message, which has a title line of its own.
std::string lineOf(std::string_view text) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  std::string line(text.substr(std::min(text.find('\n') + 1, text.size())));
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

}  // namespace

ReadConfiguration readConfiguration(const std::string& text) {
  // The reader takes a file that it can go back in.
  TemporaryFile file;
  file.write(text);
  file.rewind();
  ReadConfiguration read;
  const auto keep = [](void* user, int severity, int code, const char* message, int) {
    auto& messages = *static_cast<std::vector<ConfigurationMessage>*>(user);
    messages.push_back({severity != 0, code, lineOf(message)});
  };
  read.config.reset(tsm_config_read(file.get(), nullptr, nullptr, nullptr, &read.messages, keep));
  return read;
}

template <class Error>
Configuration rightConfiguration(const std::string& text, const std::string& what,
                                 std::vector<std::string>& warnings) {
  ReadConfiguration read = readConfiguration(text);
  for (ConfigurationMessage& each : read.messages) {
    if (each.isError) throw Error(fmt::format("{}: {}", what, each.text));
    warnings.push_back(std::move(each.text));
  }
  if (read.config == nullptr) throw Failure(fmt::format("{}: it can't be read", what));
  return std::move(read.config);
}

template Configuration rightConfiguration<Failure>(const std::string&, const std::string&,
                                                   std::vector<std::string>&);
template Configuration rightConfiguration<WrongUsage>(const std::string&, const std::string&,
                                                      std::vector<std::string>&);

}  // namespace zel::tool
