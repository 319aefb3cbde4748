#include "tools/zel/hevc/picture_input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/media/byte_stream.h"
#include "tools/zel/media/y4m.h"

namespace zel::tool {
namespace {

constexpr std::string_view kY4mMagic = "YUV4MPEG2";

std::optional<uint64_t> regularFileSize(const std::string& path) {
  struct stat status {};
  const int result = path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
  if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<uint64_t>(status.st_size);
}

void checkEvenSize(const std::string& name, const PictureFormat& format) {
  if (format.width % 2 == 0 && format.height % 2 == 0) return;
  throw Failure(fmt::format("{} is {}x{}; the encoder takes even widths and heights only", name,
                            format.width, format.height));
}

// Tells the plain end of the data from damage: a reader that stops has read to the end or not.
class EndWatch : public media::ByteSource {
 public:
  explicit EndWatch(media::ByteSource& source) : source_(source) {}

  size_t read(std::span<uint8_t> out) override {
    const size_t count = source_.read(out);
    bytesRead_ += count;
    if (count < out.size()) ended_ = true;
    error_ = source_.error();
    return count;
  }

  bool ended() const { return ended_ && error_.empty(); }
  uint64_t bytesRead() const { return bytesRead_; }

 private:
  media::ByteSource& source_;
  bool ended_ = false;
  uint64_t bytesRead_ = 0;
};

class Y4mPictures : public PictureInput {
 public:
  explicit Y4mPictures(const std::string& path)
      : name_(inputName(path)), file_(path), watch_(file_), reader_(watch_) {
    if (!file_.error().empty()) throw Failure(file_.error());
    if (!reader_.readHeader()) throwHeaderFault();
    const media::Y4mHeader& header = reader_.header();
    checkSampling(*header.chroma);
    format_.width = header.width;
    format_.height = header.height;
    format_.rate = header.rate;
    format_.aspect = header.aspect;
    format_.range = header.range;
    format_.interlace = header.interlace;
    format_.chroma = std::string(header.chroma->tag);
    checkEvenSize(name_, format_);
    if (const auto size = regularFileSize(path)) countPictures(*size);
  }

  const char* container() const override { return "y4m"; }

  ReadResult read(std::span<uint8_t> picture) override {
    switch (reader_.readFrame(picture)) {
      case media::Y4mResult::kFrame:
        return ReadResult::kPicture;
      case media::Y4mResult::kEnd:
        return ReadResult::kEnd;
      case media::Y4mResult::kError:
        break;
    }
    if (watch_.ended()) return ReadResult::kCutShort;
    throw Failure(fault());
  }

  std::optional<uint64_t> pictureCount() const override { return count_; }

 private:
  // The file system's errors name the file already.
  std::string fault() const {
    return file_.error().empty() ? name_ + ": " + reader_.error() : file_.error();
  }

  [[noreturn]] void throwHeaderFault() const {
    if (!file_.error().empty()) throw Failure(file_.error());
    if (watch_.bytesRead() == 0) throw Failure(name_ + " is empty");
    throw Failure(fault() + "; for raw pictures, give --size and --rate");
  }

  void checkSampling(const media::Y4mChroma& chroma) const {
    if (chroma.depth == 8 && chroma.horizontalShift == 1 && chroma.verticalShift == 1 &&
        chroma.planes == 3)
      return;
    throw Failure(fmt::format("{} is {} (C{}); the encoder takes 4:2:0 8-bit", name_, chroma.name,
                              chroma.tag));
  }

  // By the shortest frame headers; a file with parameters in them has fewer pictures.
  void countPictures(uint64_t fileBytes) {
    constexpr std::string_view kFrameHeader = "FRAME\n";
    const uint64_t headerBytes = watch_.bytesRead();
    if (fileBytes >= headerBytes)
      count_ = (fileBytes - headerBytes) / (kFrameHeader.size() + reader_.layout().frameBytes);
  }

  std::string name_;
  media::FileSource file_;
  EndWatch watch_;
  media::Y4mReader reader_;
  std::optional<uint64_t> count_;
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
    return count == picture.size() ? ReadResult::kPicture : ReadResult::kCutShort;
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

std::string inputName(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

std::unique_ptr<PictureInput> openPictures(const std::string& path,
                                           std::optional<PictureSize> size) {
  if (size) return std::make_unique<RawPictures>(path, *size);
  return std::make_unique<Y4mPictures>(path);
}

}  // namespace zel::tool
