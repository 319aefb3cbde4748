#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/zel/media/y4m_format.h"
#include "tools/zel/option_values.h"
#include "tools/zel/read_result.h"

namespace zel::tool {

/// What an input of pictures says of itself.
struct PictureFormat {
  uint32_t width = 0;
  uint32_t height = 0;
  media::Rational rate;    // frames a second, 0/0 unknown
  media::Rational aspect;  // of a sample, 0/0 unknown
  media::Y4mRange range = media::Y4mRange::kUnknown;
  media::Y4mInterlace interlace = media::Y4mInterlace::kUnknown;
  std::string chroma;  // the Y4M tag: "420jpeg"; empty for raw pictures

  size_t frameBytes() const { return size_t{width} * height * 3 / 2; }
};

/// Planar 8-bit 4:2:0 pictures of even size, from a Y4M stream or from raw bytes.
class PictureInput {
 public:
  virtual ~PictureInput() = default;

  const PictureFormat& format() const { return format_; }
  /// "y4m" or "raw"
  virtual const char* container() const = 0;

  /// Reads a picture into `picture`, of format().frameBytes(). Throws Failure when the input can't
  /// be read or is damaged.
  virtual ReadResult read(std::span<uint8_t> picture) = 0;

  /// How many pictures there are by the file's size; nothing for a pipe.
  virtual std::optional<uint64_t> pictureCount() const = 0;

 protected:
  PictureFormat format_;
};

/// Opens `path`, "-" for standard input: raw pictures when a size is given, a Y4M stream otherwise.
/// Throws Failure for what can't be opened or isn't 4:2:0 8-bit of even size, WrongUsage for a size
/// beside a Y4M stream.
std::unique_ptr<PictureInput> openPictures(const std::string& path,
                                           std::optional<PictureSize> size);

}  // namespace zel::tool
