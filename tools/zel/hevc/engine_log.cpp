#include "tools/zel/hevc/engine_log.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace zel::tool {

EngineLog::EngineLog() {
  // Memory, not a pipe: it takes any amount without a reader.
  catcher_ = memfd_create("engine log", MFD_CLOEXEC);
  if (catcher_ < 0) return;  // then the lines go where they always go
  std::fflush(stderr);
  saved_ = dup(STDERR_FILENO);
  if (saved_ < 0 || dup2(catcher_, STDERR_FILENO) < 0) finish();
}

EngineLog::~EngineLog() {
  finish();
}

std::vector<std::string> EngineLog::finish() {
  if (saved_ >= 0) {
    std::fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    saved_ = -1;
  }
  std::vector<std::string> lines;
  if (catcher_ < 0) return lines;
  lseek(catcher_, 0, SEEK_SET);
  std::string line;
  char bytes[4096];
  for (ssize_t count = 0; (count = read(catcher_, bytes, sizeof bytes)) > 0;) {
    for (ssize_t i = 0; i < count; ++i) {
      if (bytes[i] != '\n') {
        line += bytes[i];
        continue;
      }
      lines.push_back(std::move(line));
      line.clear();
    }
  }
  if (!line.empty()) lines.push_back(std::move(line));
  close(catcher_);
  catcher_ = -1;
  return lines;
}

EngineMessage parseEngineLine(const std::string& line) {
  const size_t open = line.find('[');
  const size_t close = line.find("]: ");
  if (open == std::string::npos || close == std::string::npos || close < open)
    return {EngineMessage::Level::kOther, line};
  const std::string level = line.substr(open + 1, close - open - 1);
  EngineMessage message{EngineMessage::Level::kOther, line.substr(close + 3)};
  if (level == "error") message.level = EngineMessage::Level::kError;
  if (level == "warning") message.level = EngineMessage::Level::kWarning;
  return message;
}

}  // namespace zel::tool
