#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zel/mux/engine/input/stream_source.h"

namespace zel::mux {

/// Files read one after the other as one stream. A single name that holds "%i" is a pattern for a
/// numbered series: it begins with number 0, or with 1 where there is no 0, and ends before the
/// first number that isn't there.
class file_source : public stream_source {
 public:
  /// Called with the name of a file that doesn't open, and with null for a read error. When it
  /// returns, the source goes on with the next file.
  using fault_function = std::function<void(const char* name)>;

  file_source(std::vector<std::string> names, fault_function fault);
  ~file_source() override;

  /// Opens the first file. False, and the fault told, when it can't be.
  bool open();

  int32_t read(uint8_t* to, int32_t room) override;
  int32_t ready_bytes() const override { return isRegular_ ? kReadyBytes : 0; }
  int64_t take_transition() override;

 private:
  static constexpr int32_t kReadyBytes = 64 * 1024;

  struct close_file {
    void operator()(FILE* file) const { std::fclose(file); }
  };

  std::string name(size_t number) const;
  bool take_file(const std::string& name);
  bool open_next();

  std::vector<std::string> names_;
  fault_function fault_;
  bool series_ = false;
  size_t next_ = 0;  // index of the next file, or its number in a series
  std::unique_ptr<FILE, close_file> file_;
  bool isRegular_ = false;  // and no pipe or device, which gives what it has when it has it
  int64_t given_ = 0;       // bytes
  std::deque<int64_t> transitions_;
};

/// The name of number `number` in a series: the first "%i" of `pattern` replaced.
std::string numbered_name(const std::string& pattern, size_t number);

/// Sizes of the circular buffers before a stream's own need is known, in bytes. `inBufSiz` is the
/// configured size or 0; `readSize` the read granularity.
int32_t video_input_size(int32_t inBufSiz, bool remultiplexed, bool cutByTimeCode,
                         int32_t readSize);
int32_t audio_input_size(bool avSync, bool remultiplexed, int32_t readSize);

/// What a video stream's buffer has to hold once the decoder's buffer is known. `bitRate` counts
/// for AVC and HEVC only: pass 0 for others.
int32_t video_input_need(int64_t vbvBytes, double bitRate, bool remultiplexed, int32_t readSize);

}  // namespace zel::mux
