#pragma once

#include "tools/zel/media/byte_stream.h"

namespace zel::media {

/// Tells the plain end of the data from damage: a reader that stops has read to the end or not.
class EndWatch : public ByteSource {
 public:
  /// `source` is borrowed for as long as the watch lives.
  explicit EndWatch(ByteSource& source) : source_(source) {}

  size_t read(std::span<uint8_t> out) override;
  uint64_t skip(uint64_t count) override;

  /// The source had less than was asked for, and nothing went wrong.
  bool ended() const { return ended_ && error_.empty(); }
  /// With those that were passed over.
  uint64_t bytesRead() const { return bytesRead_; }

 private:
  void note(uint64_t wanted, uint64_t got);

  ByteSource& source_;
  bool ended_ = false;
  uint64_t bytesRead_ = 0;
};

}  // namespace zel::media
