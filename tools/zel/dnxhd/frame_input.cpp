#include "tools/zel/dnxhd/frame_input.h"

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/media/byte_stream.h"
#include "tools/zel/y4m_input.h"

namespace zel::tool {
namespace {

class Y4mFrames : public FrameInput {
 public:
  explicit Y4mFrames(const std::string& path)
      : stream_(path, "for raw frames, give --format and --size") {
    const media::Y4mHeader& header = stream_.header();
    form_ = formOfY4m(*header.chroma);
    if (form_ == nullptr)
      throw Failure(fmt::format("{} is {} (C{}); the codec takes 4:2:2 and 4:4:4 of 8 and 10 bits",
                                stream_.name(), header.chroma->name, header.chroma->tag));
    width_ = header.width;
    height_ = header.height;
    interlace_ = header.interlace;
    frameBytes_ = stream_.frameBytes();
  }

  bool skip(uint64_t frames) override {
    for (uint64_t i = 0; i < frames; ++i)
      if (stream_.skip() != Read::kFrame) return false;
    return true;
  }

  Read read(std::span<uint8_t> frame) override { return stream_.read(frame); }

  std::optional<uint64_t> frameCount() const override { return stream_.frameCount(); }

 private:
  Y4mInput stream_;
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
