#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Finds the samples in a Wave file that comes in pieces: RIFF/WAVE with WAVEFORMATEX and
/// WAVEFORMATEXTENSIBLE, and its 64-bit forms RF64 and BW64 (EBU Tech 3306, ITU-R BS.2088). Several
/// files may come one behind the other. Nothing is sought: a stream can't.

namespace zel::mux {

struct wave_format {
  bool linear = false;  // integer samples
  int channels = 0;
  uint32_t sampleRate = 0;  // Hz
  int bytesPerSample = 0;   // of the container
  int bits = 0;             // that are valid, at the top of the container
  bool operator==(const wave_format&) const = default;
};

class wave_parser {
 public:
  enum class phase {
    start,     // in front of a file
    headers,   // in front of a chunk, or within one that doesn't count
    samples,   // the next samples_left() bytes are samples
    no_wave,   // what stands in front is no Wave file
    corrupted  // it is one, but its samples can't be found
  };

  /// More than this is never looked at in one piece.
  static constexpr size_t kMostWanted = 40;

  phase at() const { return phase_; }
  /// Of the file being read, once its samples are reached.
  const wave_format& format() const { return format_; }
  /// How many files have had their samples reached.
  int files() const { return files_; }

  /// Bytes that advance() needs to see at once to get any further.
  size_t wanted() const { return wanted_; }
  /// Looks at what comes next and returns how many of the bytes are done with. It stops in front of
  /// samples, and for good in the last two phases; otherwise where fewer than wanted() bytes are
  /// left.
  size_t advance(std::span<const uint8_t> bytes);

  /// In the phase of samples; an unknown length counts as kUnknownLength.
  uint64_t samples_left() const { return samplesLeft_; }
  static constexpr uint64_t kUnknownLength = UINT64_MAX;
  /// Notes that `count` bytes of samples were taken; 0 moves on from a file that has none.
  void take_samples(uint64_t count);

 private:
  size_t step(std::span<const uint8_t> bytes);
  size_t open_file(std::span<const uint8_t> bytes);
  size_t open_chunk(std::span<const uint8_t> bytes);
  size_t open_samples(uint32_t size);
  size_t read_format(std::span<const uint8_t> bytes);
  size_t read_sizes(std::span<const uint8_t> bytes);
  size_t skip(std::span<const uint8_t> bytes);
  void to_next_chunk(uint64_t skipped);
  void to_next_file();
  void move_on(uint64_t count);
  size_t stop(phase at);

  enum class state { file, chunk, format, sizes, skipping, stopped };

  phase phase_ = phase::start;
  state state_ = state::file;
  size_t wanted_ = 12;
  wave_format format_;
  bool formatKnown_ = false;
  bool samplesSeen_ = false;
  bool longForm_ = false;      // RF64 or BW64
  uint64_t position_ = 0;      // in the file
  uint64_t fileEnd_ = 0;       // as the file says, 0: it doesn't
  uint64_t longFileSize_ = 0;  // of its ds64 chunk, 0: none
  uint64_t longDataSize_ = 0;
  uint32_t chunkSize_ = 0;
  uint64_t skipLeft_ = 0;
  uint64_t samplesLeft_ = 0;
  bool padBehindSamples_ = false;
  int files_ = 0;
};

}  // namespace zel::mux
