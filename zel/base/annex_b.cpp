#include "zel/base/annex_b.h"

#include <cstring>

#include "zel/base/zero_search.h"

namespace zel::base {

namespace {

constexpr size_t kPrefixSize = 3;

size_t findFrom(std::span<const uint8_t> bytes, size_t from, uint8_t last) {
  if (from >= bytes.size()) return bytes.size();
  return from + vectorZeroSearch().findZeroZero(bytes.data() + from, bytes.size() - from, last);
}

}  // namespace

size_t findStartCode(std::span<const uint8_t> bytes, size_t from) {
  return findFrom(bytes, from, 1);
}

bool NalUnits::next(NalUnit& unit) {
  while (prefix_ < stream_.size()) {
    const size_t prefix = prefix_;
    const size_t begin = prefix + kPrefixSize;
    prefix_ = findStartCode(stream_, begin);
    // A unit never ends in a zero byte (H.264 7.4.1), so zeros there are trailing_zero_8bits, or
    // belong to the next start code.
    size_t end = prefix_;
    while (end > begin && stream_[end - 1] == 0) --end;
    if (end == begin) continue;
    const bool zeroByte = prefix > 0 && stream_[prefix - 1] == 0;
    unit.bytes = stream_.subspan(begin, end - begin);
    unit.startCode = zeroByte ? prefix - 1 : prefix;
    unit.startCodeSize = zeroByte ? 4 : 3;
    return true;
  }
  return false;
}

size_t removeEmulationPrevention(std::span<const uint8_t> unit, uint8_t* out) {
  size_t written = 0;
  size_t from = 0;
  while (from < unit.size()) {
    const size_t found = findFrom(unit, from, 3);
    const size_t end = found == unit.size() ? found : found + 2;
    std::memmove(out + written, unit.data() + from, end - from);
    written += end - from;
    from = found == unit.size() ? found : end + 1;
  }
  return written;
}

void removeEmulationPrevention(std::span<const uint8_t> unit, std::vector<uint8_t>& out) {
  out.resize(unit.size());
  out.resize(removeEmulationPrevention(unit, out.data()));
}

void appendEmulationPrevention(std::span<const uint8_t> payload, std::vector<uint8_t>& out) {
  out.reserve(out.size() + payload.size() + payload.size() / 64 + 1);
  int zeros = 0;
  for (const uint8_t byte : payload) {
    if (zeros == 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  if (!payload.empty() && payload.back() == 0) out.push_back(3);
}

}  // namespace zel::base
