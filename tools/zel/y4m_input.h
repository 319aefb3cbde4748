#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "tools/zel/media/byte_stream.h"
#include "tools/zel/media/end_watch.h"
#include "tools/zel/media/y4m.h"
#include "tools/zel/read_result.h"

namespace zel::tool {

/// A Y4M stream from a file or from standard input, with the tool's own lines for what is wrong.
class Y4mInput {
 public:
  /// Opens `path`, "-" for standard input, and reads the header. Throws Failure when it can't be
  /// opened, is empty, or begins with no sound header; the line then hints at `rawHint`, the
  /// options that raw input takes.
  Y4mInput(const std::string& path, const std::string& rawHint);

  const media::Y4mHeader& header() const { return reader_.header(); }
  size_t frameBytes() const { return reader_.layout().frameBytes; }
  /// "standard input" or the path, for messages.
  const std::string& name() const { return name_; }

  /// `frame` is of frameBytes(). Throws Failure when the input can't be read or is damaged.
  ReadResult read(std::span<uint8_t> frame) { return resultOf(reader_.readFrame(frame)); }
  /// Passes over a frame. Throws as read() does.
  ReadResult skip() { return resultOf(reader_.skipFrame()); }

  /// By the file's size and the shortest frame headers: a file with parameters in them has fewer
  /// frames. Nothing for a pipe.
  std::optional<uint64_t> frameCount() const { return count_; }

 private:
  ReadResult resultOf(media::Y4mResult result) const;
  std::string fault() const;
  std::optional<uint64_t> countFrames(const std::string& path) const;

  std::string name_;
  media::FileSource file_;
  media::EndWatch watch_;
  media::Y4mReader reader_;
  std::optional<uint64_t> count_;
};

}  // namespace zel::tool
