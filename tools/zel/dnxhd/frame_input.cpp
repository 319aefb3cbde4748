#include "tools/zel/dnxhd/frame_input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/hevc/picture_input.h"
#include "tools/zel/media/byte_stream.h"
#include "tools/zel/media/y4m.h"

namespace zel::tool {
namespace {

std::optional<uint64_t> regularFileSize(const std::string& path) {
  struct stat status {};
  const int result = path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
  if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<uint64_t>(status.st_size);
}

// Counts what is read, so that an end in the midst of a frame can be told from damage.
class CountingSource : public media::ByteSource {
 public:
  explicit CountingSource(media::ByteSource& source) : source_(source) {}

  size_t read(std::span<uint8_t> out) override {
    const size_t count = source_.read(out);
    bytesRead_ += count;
    if (count < out.size()) ended_ = true;
    error_ = source_.error();
    return count;
  }
  uint64_t skip(uint64_t count) override {
    const uint64_t skipped = source_.skip(count);
    bytesRead_ += skipped;
    if (skipped < count) ended_ = true;
    error_ = source_.error();
    return skipped;
  }

  bool ended() const { return ended_ && error_.empty(); }
  uint64_t bytesRead() const { return bytesRead_; }

 private:
  media::ByteSource& source_;
  bool ended_ = false;
  uint64_t bytesRead_ = 0;
};

class Y4mFrames : public FrameInput {
 public:
  explicit Y4mFrames(const std::string& path)
      : name_(inputName(path)), file_(path), source_(file_), reader_(source_) {
    if (!file_.error().empty()) throw Failure(file_.error());
    if (!reader_.readHeader()) throwHeaderFault();
    const media::Y4mHeader& header = reader_.header();
    form_ = formOfY4m(*header.chroma);
    if (form_ == nullptr)
      throw Failure(fmt::format("{} is {} (C{}); the codec takes 4:2:2 and 4:4:4 of 8 and 10 bits",
                                name_, header.chroma->name, header.chroma->tag));
    width_ = header.width;
    height_ = header.height;
    interlace_ = header.interlace;
    frameBytes_ = reader_.layout().frameBytes;
    // By the shortest frame headers; a file with parameters in them has fewer frames.
    constexpr std::string_view kFrameHeader = "FRAME\n";
    const uint64_t headerBytes = source_.bytesRead();
    if (const auto size = regularFileSize(path); size && *size >= headerBytes)
      count_ = (*size - headerBytes) / (kFrameHeader.size() + frameBytes_);
  }

  bool skip(uint64_t frames) override {
    for (uint64_t i = 0; i < frames; ++i)
      if (resultOf(reader_.skipFrame()) != Read::kFrame) return false;
    return true;
  }

  Read read(std::span<uint8_t> frame) override { return resultOf(reader_.readFrame(frame)); }

  std::optional<uint64_t> frameCount() const override { return count_; }

 private:
  Read resultOf(media::Y4mResult result) const {
    if (result == media::Y4mResult::kFrame) return Read::kFrame;
    if (result == media::Y4mResult::kEnd) return Read::kEnd;
    if (source_.ended()) return Read::kCutShort;
    throw Failure(fault());
  }

  // The file system's errors name the file already.
  std::string fault() const {
    return file_.error().empty() ? name_ + ": " + reader_.error() : file_.error();
  }

  [[noreturn]] void throwHeaderFault() const {
    if (!file_.error().empty()) throw Failure(file_.error());
    if (source_.bytesRead() == 0) throw Failure(name_ + " is empty");
    throw Failure(fault() + "; for raw frames, give --format and --size");
  }

  std::string name_;
  media::FileSource file_;
  CountingSource source_;
  media::Y4mReader reader_;
  std::optional<uint64_t> count_;
};

class RawFrames : public FrameInput {
 public:
  RawFrames(const std::string& path, const FrameForm& form, PictureSize size) : file_(path) {
    if (!file_.error().empty()) throw Failure(file_.error());
    form_ = &form;
    width_ = static_cast<uint32_t>(size.width);
    height_ = static_cast<uint32_t>(size.height);
    frameBytes_ = fileFrameBytes(form, width_, height_);
    if (const auto bytes = regularFileSize(path)) count_ = *bytes / frameBytes_;
  }

  bool skip(uint64_t frames) override {
    for (uint64_t i = 0; i < frames; ++i)
      if (file_.skip(frameBytes_) < frameBytes_) return false;
    return true;
  }

  Read read(std::span<uint8_t> frame) override {
    const size_t count = file_.read(frame);
    if (!file_.error().empty()) throw Failure(file_.error());
    if (count == 0) return Read::kEnd;
    return count == frame.size() ? Read::kFrame : Read::kCutShort;
  }

  std::optional<uint64_t> frameCount() const override { return count_; }

 private:
  media::FileSource file_;
  std::optional<uint64_t> count_;
};

}  // namespace

std::unique_ptr<FrameInput> openFrames(const std::string& path, const FrameForm* form,
                                       std::optional<PictureSize> size) {
  if (form != nullptr && size) return std::make_unique<RawFrames>(path, *form, *size);
  return std::make_unique<Y4mFrames>(path);
}

}  // namespace zel::tool
