#include "tools/zel/y4m_input.h"

#include <string_view>

#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"

namespace zel::tool {

Y4mInput::Y4mInput(const std::string& path, const std::string& rawHint)
    : name_(inputName(path)), file_(path), watch_(file_), reader_(watch_) {
  if (!file_.error().empty()) throw Failure(file_.error());
  if (!reader_.readHeader()) {
    if (!file_.error().empty()) throw Failure(file_.error());
    if (watch_.bytesRead() == 0) throw Failure(name_ + " is empty");
    throw Failure(fault() + "; " + rawHint);
  }
  count_ = countFrames(path);
}

std::optional<uint64_t> Y4mInput::countFrames(const std::string& path) const {
  constexpr std::string_view kFrameHeader = "FRAME\n";
  const uint64_t headerBytes = watch_.bytesRead();
  const auto size = regularFileSize(path);
  if (!size || *size < headerBytes) return std::nullopt;
  return (*size - headerBytes) / (kFrameHeader.size() + frameBytes());
}

ReadResult Y4mInput::resultOf(media::Y4mResult result) const {
  if (result == media::Y4mResult::kFrame) return ReadResult::kFrame;
  if (result == media::Y4mResult::kEnd) return ReadResult::kEnd;
  if (watch_.ended()) return ReadResult::kCutShort;
  throw Failure(fault());
}

// The file system's errors name the file already.
std::string Y4mInput::fault() const {
  return file_.error().empty() ? name_ + ": " + reader_.error() : file_.error();
}

}  // namespace zel::tool
