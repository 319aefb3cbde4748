#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tools/zel/media/byte_stream.h"
#include "tools/zel/media/y4m_format.h"

namespace zel::media {

enum class Y4mResult : uint8_t { kFrame, kEnd, kError };

/// Reads a YUV4MPEG2 stream front to back. What the stream says is checked, never trusted: line
/// lengths, picture sizes and frame bytes have limits. After an error every call fails.
class Y4mReader {
 public:
  /// `source` is borrowed until the reader goes.
  explicit Y4mReader(ByteSource& source, const Y4mLimits& limits = {});

  /// Reads the header line; to be called once, first. False when it is no Y4M stream or one that
  /// is not supported; `error` says what was found.
  bool readHeader();

  /// Valid once `readHeader` has succeeded.
  const Y4mHeader& header() const { return header_; }
  const Y4mLayout& layout() const { return layout_; }

  /// Reads the next frame into `frame`, which holds layout().frameBytes. A frame cut short is an
  /// error; the end between two frames is kEnd.
  Y4mResult readFrame(std::span<uint8_t> frame);

  /// Passes over the next frame.
  Y4mResult skipFrame();

  /// Of the frame read or skipped last.
  const Y4mFrameParameters& frameParameters() const { return parameters_; }

  /// Frames read or skipped so far.
  uint64_t framesRead() const { return framesRead_; }

  const std::string& error() const { return error_; }

 private:
  enum class Line : uint8_t { kComplete, kEnd, kFailed };

  Line readLine(const char* what);
  bool parseHeaderParameter(std::string_view parameter);
  bool parseComment(std::string_view comment);
  bool parseFrameParameter(std::string_view parameter);
  Y4mResult readFrameHeader();
  bool fail(std::string text);
  bool failAfterSource(std::string text);

  ByteSource& source_;
  Y4mLimits limits_;
  Y4mHeader header_;
  Y4mLayout layout_;
  Y4mFrameParameters parameters_;
  std::string subtag_;  // of XYSCSS, which stands in when there is no C
  std::string line_;
  std::string error_;
  uint64_t framesRead_ = 0;
};

/// Writes a YUV4MPEG2 stream.
class Y4mWriter {
 public:
  /// `sink` is borrowed until the writer goes; closing it is the caller's part.
  explicit Y4mWriter(ByteSink& sink, const Y4mLimits& limits = {});

  /// Writes the header line; to be called once, first. False when the header makes no sound
  /// stream (a comment with a space in it, a frame beyond the limits) or the sink fails.
  bool writeHeader(const Y4mHeader& header);

  const Y4mLayout& layout() const { return layout_; }

  /// Writes one frame of layout().frameBytes. In a mixed stream (Im) its parameters stand in the
  /// frame's header; otherwise they are not written.
  bool writeFrame(std::span<const uint8_t> frame, const Y4mFrameParameters& parameters = {});

  uint64_t framesWritten() const { return framesWritten_; }
  const std::string& error() const { return error_; }

 private:
  bool fail(std::string text);
  bool writeText(std::string_view text);

  ByteSink& sink_;
  Y4mLimits limits_;
  Y4mHeader header_;
  Y4mLayout layout_;
  std::string error_;
  uint64_t framesWritten_ = 0;
};

}  // namespace zel::media
