#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "tools/zel/dnxhd/frame_form.h"
#include "tools/zel/media/y4m_format.h"
#include "tools/zel/option_values.h"
#include "tools/zel/read_result.h"

namespace zel::tool {

/// Uncompressed frames of one form, front to back.
class FrameInput {
 public:
  using Read = ReadResult;

  virtual ~FrameInput() = default;

  const FrameForm& form() const { return *form_; }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  media::Y4mInterlace interlace() const { return interlace_; }
  size_t frameBytes() const { return frameBytes_; }

  /// Passes over frames. False when they end before.
  virtual bool skip(uint64_t frames) = 0;
  /// Reads a frame into `frame`, of frameBytes(). Throws Failure when the input can't be read or is
  /// damaged.
  virtual Read read(std::span<uint8_t> frame) = 0;
  /// By the file's size; nothing for a pipe.
  virtual std::optional<uint64_t> frameCount() const = 0;

 protected:
  const FrameForm* form_ = nullptr;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  media::Y4mInterlace interlace_ = media::Y4mInterlace::kUnknown;
  size_t frameBytes_ = 0;
};

/// Opens `path`, "-" for standard input: frames of `form` and `size` when a form is given, a Y4M
/// stream otherwise. Throws Failure for what can't be opened, and for a Y4M stream of a sampling
/// that the codec doesn't take.
std::unique_ptr<FrameInput> openFrames(const std::string& path, const FrameForm* form,
                                       std::optional<PictureSize> size);

}  // namespace zel::tool
