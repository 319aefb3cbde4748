#include "tools/zel/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

[[noreturn]] void throwOutputError(int number) {
  if (number == EPIPE) throw ReaderGone();
  throw Failure("standard output: " + errorText(number));
}

// Columns of the terminal behind `stream`; 80 when it doesn't tell.
size_t terminalWidth(std::FILE* stream) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

// File names may hold anything. What would move the cursor, or break the promise of one line, is
// written as a hexadecimal escape.
std::string oneLine(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F)
      result += fmt::format("\\x{:02x}", byte);
    else
      result += c;
  }
  return result;
}

}  // namespace

bool isTerminal(std::FILE* stream) {
  const int file = fileno(stream);
  return file >= 0 && isatty(file) == 1;
}

std::string errorText(int number) {
  return std::generic_category().message(number);
}

Console::Console(std::FILE* out, std::FILE* err)
    : out_(out), err_(err), errIsTerminal_(isTerminal(err)) {}

void Console::print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), out_) != text.size()) throwOutputError(errno);
}

void Console::printJson(const nlohmann::ordered_json& document) {
  // File names need not be UTF-8, JSON has to be.
  print(document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

void Console::flush() {
  if (std::fflush(out_) != 0) throwOutputError(errno);
}

void Console::note(std::string_view text) {
  if (quiet) return;
  clearStatus();
  fmt::print(err_, "{}\n", text);
}

void Console::warn(std::string text) {
  line("warning: ", text);
  warnings_.push_back(std::move(text));
}

void Console::fail(std::string_view why) {
  line("", why);
}

void Console::wrongUsage(std::string_view why) {
  line("", why);
  fmt::print(err_, "Try 'zel {}{}--help'.\n", command_, command_.empty() ? "" : " ");
}

void Console::line(std::string_view kind, std::string_view text) {
  clearStatus();
  fmt::print(err_, "zel: {}{}{}{}\n", command_, command_.empty() ? "" : ": ", kind, oneLine(text));
}

void Console::status(std::string_view text) {
  if (!showsStatus()) return;
  // A line that wraps can't be rewritten.
  fmt::print(err_, "\r{}\x1b[K", text.substr(0, terminalWidth(err_) - 1));
  std::fflush(err_);
  statusShown_ = true;
}

void Console::clearStatus() {
  if (!statusShown_) return;
  fmt::print(err_, "\r\x1b[K");
  std::fflush(err_);
  statusShown_ = false;
}

ExitCode Console::done() const {
  return reportWarnings && !warnings_.empty() ? ExitCode::kWarnings : ExitCode::kDone;
}

}  // namespace zel::tool
