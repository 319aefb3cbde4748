#include "tools/zel/mux/read_configuration.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fmt/format.h>

#include "tools/zel/console.h"
#include "tools/zel/failure.h"

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

struct Told {
  std::vector<std::string> errors;
  std::vector<std::string>* warnings;
};

}  // namespace

template <class Error>
Configuration readConfiguration(const std::string& text, const std::string& what,
                                std::vector<std::string>& warnings) {
  // The reader takes a file that it can go back in.
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
  if (file == nullptr) throw Failure("no temporary file: " + errorText(errno));
  if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
      std::fflush(file.get()) != 0)
    throw Failure("temporary file: " + errorText(errno));
  std::rewind(file.get());
  Told told{{}, &warnings};
  const auto keep = [](void* user, int severity, int, const char* message, int) {
    Told& to = *static_cast<Told*>(user);
    (severity != 0 ? to.errors : *to.warnings).push_back(lineOf(message));
  };
  Configuration config(tsm_config_read(file.get(), nullptr, nullptr, nullptr, &told, keep));
  if (!told.errors.empty()) throw Error(fmt::format("{}: {}", what, told.errors.front()));
  if (config == nullptr) throw Failure(fmt::format("{}: it can't be read", what));
  return config;
}

template Configuration readConfiguration<Failure>(const std::string&, const std::string&,
                                                  std::vector<std::string>&);
template Configuration readConfiguration<WrongUsage>(const std::string&, const std::string&,
                                                     std::vector<std::string>&);

}  // namespace zel::tool
