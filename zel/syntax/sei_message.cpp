#include "zel/syntax/sei_message.h"

namespace zel::syntax {

namespace {

constexpr uint8_t kTrailingBits = 0x80;

}  // namespace

// Bytes of FF add 255 each, and the first other byte ends the number.
bool SeiMessages::readNumber(uint32_t& value) {
  value = 0;
  while (at_ < rbsp_.size()) {
    const uint8_t byte = rbsp_[at_++];
    value += byte;
    if (byte != 0xFF) return true;
  }
  return false;
}

bool SeiMessages::next(SeiMessage& message) {
  // A unit cut short of its trailing bits still gives the messages that it holds.
  if (failed_ || at_ >= rbsp_.size()) return false;
  if (rbsp_[at_] == kTrailingBits && at_ + 1 == rbsp_.size()) return false;
  uint32_t type = 0;
  uint32_t size = 0;
  if (!readNumber(type) || !readNumber(size) || size > rbsp_.size() - at_) {
    failed_ = true;
    return false;
  }
  message.type = type;
  message.payload = rbsp_.subspan(at_, size);
  at_ += size;
  return true;
}

}  // namespace zel::syntax
