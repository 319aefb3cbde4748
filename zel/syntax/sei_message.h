#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Supplemental enhancement information as both ITU-T H.264 (7.3.2.3.1) and H.265 (7.3.5) lay it
/// out: messages of a type and a size, behind each other, up to the trailing bits.

namespace zel::syntax {

/// The types that both standards have, with the same number and meaning; what is in them differs.
enum SeiType : uint32_t {
  kSeiBufferingPeriod = 0,
  kSeiPicTiming = 1,
  kSeiUserDataRegistered = 4,
  kSeiUserDataUnregistered = 5,
  kSeiRecoveryPoint = 6,
};

struct SeiMessage {
  uint32_t type = 0;
  std::span<const uint8_t> payload;  // a view of the RBSP
};

/// Walks the messages of one SEI RBSP (what follows the NAL unit header, without emulation
/// prevention). A message whose size passes the end ends the walk and sets failed().
class SeiMessages {
 public:
  explicit SeiMessages(std::span<const uint8_t> rbsp) : rbsp_(rbsp) {}

  /// Gives the next message; false at the trailing bits, and at a message that can't be.
  bool next(SeiMessage& message);
  bool failed() const { return failed_; }

 private:
  bool readNumber(uint32_t& value);

  std::span<const uint8_t> rbsp_;
  size_t at_ = 0;
  bool failed_ = false;
};

}  // namespace zel::syntax
