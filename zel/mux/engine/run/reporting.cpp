#include "zel/mux/engine/run/reporting.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "zel/mux/engine/messages/fatal_messages.h"
#include "zel/mux/engine/messages/warning_messages.h"

namespace zel::mux {

namespace {

constexpr int kWritingNullFailed = 2;
constexpr int kWritingFailed = 3;

bool no_space_left(int error) {
  return error == ENOMEM || error == EFBIG || error == ENOSPC;
}

std::string place_of(bool isFatal, int64_t packet, int pid, double seconds) {
  const char* word = isFatal ? "Fatal Error" : "Warning";
  char text[400];
  if (pid >= 0) {
    std::snprintf(text, sizeof text, "%s: packet = %" PRId64 ", PID = 0x%04X, time = %.2lfs\n",
                  word, packet, static_cast<unsigned>(pid), seconds);
  } else {
    std::snprintf(text, sizeof text, "%s: packet = %" PRId64 ", time = %.2lfs\n", word, packet,
                  seconds);
  }
  return text;
}

}  // namespace

void reporting::deliver_to(Morvalen::Zel::tsm_error_callback error, void* user) {
  error_ = error;
  user_ = user;
}

void reporting::deliver(bool isFatal, int code, int pid, const message_argument& argument) {
  const int systemError = errno;
  ++(isFatal ? stats_.errors : stats_.warnings);
  // The high word doesn't count: after 6.6 hours the time in the text starts again.
  std::string text = place_of(isFatal, stats_.packetsWritten, pid, now_.low() / 90000.0);
  const message* row =
      isFatal ? find_message(kFatalMessages, code) : find_message(kWarningMessages, code);
  if (row != nullptr) text += format_message(row->text, argument);
  if (isFatal && (code == kWritingNullFailed || code == kWritingFailed) &&
      no_space_left(systemError)) {
    text += "No space left on device: Disk Full\n";
  }
  if (error_ != nullptr) {
    error_(user_, isFatal ? 1 : 0, code, text.c_str());
  } else {
    std::fputs(text.c_str(), stderr);
  }
}

void reporting::warn(int code, int pid, const message_argument& argument) {
  deliver(false, code, pid, argument);
  if (stopOnWarning_) throw engine_stop{};
}

void reporting::fatal(int code, int pid, const message_argument& argument) {
  deliver(true, code, pid, argument);
  if (stopOnError_) throw engine_stop{};
}

}  // namespace zel::mux
