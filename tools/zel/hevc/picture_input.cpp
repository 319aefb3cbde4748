#include "tools/zel/hevc/picture_input.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/media/byte_stream.h"
#include "tools/zel/y4m_input.h"

namespace zel::tool {
namespace {

constexpr std::string_view kY4mMagic = "YUV4MPEG2";

void checkEvenSize(const std::string& name, const PictureFormat& format) {
  if (format.width % 2 == 0 && format.height % 2 == 0) return;
  throw Failure(fmt::format("{} is {}x{}; the encoder takes even widths and heights only", name,
                            format.width, format.height));
}

class Y4mPictures : public PictureInput {
 public:
  explicit Y4mPictures(const std::string& path)
      : stream_(path, "for raw pictures, give --size and --rate") {
    const media::Y4mHeader& header = stream_.header();
    checkSampling(*header.chroma);
    format_.width = header.width;
    format_.height = header.height;
    format_.rate = header.rate;
    format_.aspect = header.aspect;
    format_.range = header.range;
    format_.interlace = header.interlace;
    format_.chroma = std::string(header.chroma->tag);
    checkEvenSize(stream_.name(), format_);
  }

  const char* container() const override { return "y4m"; }

  ReadResult read(std::span<uint8_t> picture) override { return stream_.read(picture); }

  std::optional<uint64_t> pictureCount() const override { return stream_.frameCount(); }

 private:
  void checkSampling(const media::Y4mChroma& chroma) const {
    if (chroma.depth == 8 && chroma.horizontalShift == 1 && chroma.verticalShift == 1 &&
        chroma.planes == 3)
      return;
    throw Failure(fmt::format("{} is {} (C{}); the encoder takes 4:2:0 8-bit", stream_.name(),
                              chroma.name, chroma.tag));
  }

  Y4mInput stream_;
};

class RawPictures : public PictureInput {
 public:
  RawPictures(const std::string& path, PictureSize size) : name_(inputName(path)), file_(path) {
    if (!file_.error().empty()) throw Failure(file_.error());
    format_.width = static_cast<uint32_t>(size.width);
    format_.height = static_cast<uint32_t>(size.height);
    media::Y4mHeader asY4m;
    asY4m.width = format_.width;
    asY4m.height = format_.height;
    asY4m.chroma = media::findY4mChroma("420");
    if (const std::string fault = media::y4mFault(asY4m, {}); !fault.empty())
      throw WrongUsage("--size: " + fault);
    checkEvenSize(name_, format_);
    if (const auto bytes = regularFileSize(path)) count_ = *bytes / format_.frameBytes();
  }

  const char* container() const override { return "raw"; }

  ReadResult read(std::span<uint8_t> picture) override {
    const size_t count = file_.read(picture);
    if (!file_.error().empty()) throw Failure(file_.error());
    if (isFirst_) refuseY4m(picture.first(count));
    if (isFirst_ && count == 0) throw Failure(name_ + " is empty");
    isFirst_ = false;
    if (count == 0) return ReadResult::kEnd;
    return count == picture.size() ? ReadResult::kFrame : ReadResult::kCutShort;
  }

  std::optional<uint64_t> pictureCount() const override { return count_; }

 private:
  void refuseY4m(std::span<const uint8_t> start) const {
    if (start.size() < kY4mMagic.size()) return;
    if (!std::equal(kY4mMagic.begin(), kY4mMagic.end(), start.begin())) return;
    throw WrongUsage(name_ + " is a Y4M stream, which tells its size itself; leave out --size");
  }

  std::string name_;
  media::FileSource file_;
  bool isFirst_ = true;
  std::optional<uint64_t> count_;
};

}  // namespace

std::unique_ptr<PictureInput> openPictures(const std::string& path,
                                           std::optional<PictureSize> size) {
  if (size) return std::make_unique<RawPictures>(path, *size);
  return std::make_unique<Y4mPictures>(path);
}

}  // namespace zel::tool
