#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "zel/mux/engine/input/stream_source.h"

namespace zel::test {

/// A source that gives its bytes at most `piece` at a time.
class BytesSource : public mux::stream_source {
 public:
  explicit BytesSource(std::vector<uint8_t> bytes, size_t piece = SIZE_MAX)
      : bytes_(std::move(bytes)), piece_(piece) {}
  int32_t read(uint8_t* to, int32_t room) override {
    const size_t count = std::min({static_cast<size_t>(room), piece_, bytes_.size() - at_});
    std::copy_n(bytes_.begin() + static_cast<ptrdiff_t>(at_), count, to);
    at_ += count;
    return static_cast<int32_t>(count);
  }

 protected:
  size_t bytesGiven() const { return at_; }

 private:
  std::vector<uint8_t> bytes_;
  size_t piece_;
  size_t at_ = 0;
};

}  // namespace zel::test
