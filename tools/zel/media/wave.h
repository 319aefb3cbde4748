#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/zel/media/byte_stream.h"

namespace zel::media {

/// Linear PCM as a Wave file describes it. A frame is one sample of every channel.
struct WaveFormat {
  uint32_t channels = 0;       // 1 to 255
  uint32_t sampleRate = 0;     // Hz
  uint32_t bitsPerSample = 0;  // 16, 24 or 32, as stored
  uint32_t validBits = 0;      // of them, from the top, those that mean something; 0: all
  uint32_t channelMask = 0;    // speaker positions (bit 0 front left...), 0: not said

  uint32_t bytesPerFrame() const { return channels * (bitsPerSample / 8); }
};

/// The usual speaker positions of 1, 2, 4, 6 and 8 channels; 0 for other counts.
uint32_t usualChannelMask(uint32_t channels);

/// Reads RIFF, RF64 and BW64 Wave files front to back, so pipes too. Chunks that nobody asked for
/// are passed over. Stated sizes are never trusted for more than a count.
class WaveReader {
 public:
  /// `source` is borrowed until the reader goes.
  explicit WaveReader(ByteSource& source) : source_(source) {}

  /// Reads up to the first sample; to be called once, first. False when it is no Wave file, or
  /// none of linear PCM of 16, 24 or 32 bits; `error` says what was found.
  bool readHeader();

  /// Valid once `readHeader` has succeeded.
  const WaveFormat& format() const { return format_; }

  /// Whether the header knows the length: a file written to a pipe goes on to its end.
  bool lengthKnown() const { return lengthKnown_; }

  /// Frames that the header promises, when it does.
  uint64_t frames() const { return lengthKnown_ ? dataBytes_ / format_.bytesPerFrame() : 0; }

  /// Reads whole frames into `samples` (interleaved, a multiple of the channel count), each value
  /// sign-extended at its stored width: a 24-bit full scale is 2^23 - 1. Returns the frames read,
  /// fewer than there is room for only at the end or on failure.
  size_t read(std::span<int32_t> samples);

  /// After the end: whether the data stopped before the length the header promised, or amid a
  /// frame. The frames before are good.
  bool truncated() const { return truncated_; }

  const std::string& error() const { return error_; }

 private:
  bool fail(std::string text);
  bool readRiffHeader();
  bool readSizes64(uint64_t chunkBytes);
  bool readFormatChunk(uint64_t chunkBytes);
  bool skipChunk(uint64_t bytes);

  ByteSource& source_;
  WaveFormat format_;
  std::vector<uint8_t> buffer_;
  std::string error_;
  uint64_t dataBytes_ = 0;    // as stated
  uint64_t dataBytes64_ = 0;  // from ds64
  uint64_t framesRead_ = 0;
  bool wide_ = false;  // RF64 or BW64
  bool haveSizes64_ = false;
  bool lengthKnown_ = false;
  bool ready_ = false;
  bool truncated_ = false;
};

/// What a file of more than 4 GiB does.
enum class WaveGrowth : uint8_t {
  kPlain,         // 44 or 68 bytes of header; writing past 4 GiB fails
  kMayBecomeRf64  // room is left for the 64-bit sizes of EBU Tech 3306, used when they are needed
};

/// Writes a Wave file. More than two channels, more than 16 bits or a channel mask make it
/// WAVE_FORMAT_EXTENSIBLE. Where the length is not known beforehand, sizes are put in by `finish`;
/// into a pipe they then stay 0xFFFFFFFF, which readers take as "to the end".
class WaveWriter {
 public:
  /// `sink` is borrowed until the writer goes; closing it is the caller's part.
  explicit WaveWriter(ByteSink& sink) : sink_(sink) {}

  /// To be called once, first. False for a format that cannot be written, or when the sink fails.
  bool writeHeader(const WaveFormat& format, WaveGrowth growth = WaveGrowth::kPlain);

  /// The same for a file of exactly so many frames: its header is right from the start, in a pipe
  /// too, and has the 64-bit sizes when it takes them. `finish` fails unless they were written.
  bool writeHeaderOf(const WaveFormat& format, uint64_t frames);

  /// Writes whole frames, interleaved; each value is stored with its low bitsPerSample bits.
  bool write(std::span<const int32_t> samples);

  /// Pads the data and patches the sizes. The file is complete after this only.
  bool finish();

  uint64_t framesWritten() const { return framesWritten_; }
  const std::string& error() const { return error_; }

 private:
  bool fail(std::string text);
  bool put(std::span<const uint8_t> bytes);
  bool checkFormat(const WaveFormat& format);
  bool putHeader(bool roomForWideSizes);
  bool patchSizes();
  uint64_t dataBytesOf(uint64_t frames) const { return frames * format_.bytesPerFrame(); }

  ByteSink& sink_;
  WaveFormat format_;
  WaveGrowth growth_ = WaveGrowth::kPlain;
  std::vector<uint8_t> buffer_;
  std::string error_;
  std::optional<uint64_t> promised_;  // frames that the header tells of already
  uint64_t headerBytes_ = 0;          // up to the first sample
  uint64_t framesWritten_ = 0;
  bool finished_ = false;
};

}  // namespace zel::media
