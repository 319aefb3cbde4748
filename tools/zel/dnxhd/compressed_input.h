#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/zel/dnxhd/frame_range.h"
#include "tools/zel/media/byte_stream.h"
#include "tools/zel/read_result.h"

namespace zel::tool {

/// Memory for a frame, aligned as the codec wants it. Not filled.
class FrameBuffer {
 public:
  explicit FrameBuffer(size_t bytes);
  std::span<uint8_t> bytes() const { return {memory_.get(), size_}; }

 private:
  static constexpr size_t kAlignment = 64;
  struct Deleter {
    void operator()(uint8_t* memory) const;
  };
  std::unique_ptr<uint8_t[], Deleter> memory_;
  size_t size_;
};

/// A file of DNxHD frames, one behind the other. All have the size of the first one's id.
class CompressedInput {
 public:
  using Read = ReadResult;

  /// Opens `path`, "-" for standard input, and reads the first header. Throws Failure for what
  /// can't be opened or doesn't begin with a DNxHD frame.
  explicit CompressedInput(const std::string& path);

  uint32_t id() const { return id_; }
  size_t frameBytes() const { return frameBytes_; }

  /// Passes over frames. Fewer than asked for are the end.
  void skip(uint64_t frames);

  /// Reads the next frame. Throws Failure when the file can't be read.
  Read next();
  /// The frame that was read, or what there is of one that is cut short.
  std::span<uint8_t> frame() const { return frame_->bytes(); }
  size_t bytesOfCut() const { return got_; }
  /// Of the frame that was read, counted from 0.
  uint64_t index() const { return index_ - 1; }

  /// By the file's size; nothing for a pipe.
  std::optional<uint64_t> frameCount() const;

 private:
  size_t readSome(std::span<uint8_t> out);

  std::string path_;
  media::FileSource file_;
  std::vector<uint8_t> start_;  // read to learn the id, and not yet handed out
  uint32_t id_ = 0;
  size_t frameBytes_ = 0;
  std::unique_ptr<FrameBuffer> frame_;
  size_t got_ = 0;
  uint64_t index_ = 0;
};

}  // namespace zel::tool
