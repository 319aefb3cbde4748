#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// Reads a packet's header and adaptation field as a decoder does, by ISO/IEC 13818-1, 2.4.3.2 and
/// 2.4.3.4. Shares nothing with what writes them.

namespace zel::test {

struct ParsedPacket {
  int pid = 0;
  bool unitStart = false;
  int continuity = 0;
  bool hasField = false, hasPayload = false;
  int fieldLength = 0;
  int flags = 0;
  std::optional<int64_t> pcrBase;
  int pcrExtension = 0;
  std::optional<int> countdown;
  std::optional<std::vector<uint8_t>> privateData;
  int stuffing = 0;
  size_t payloadAt = 0;
};

/// Nothing if the packet breaks the syntax.
inline std::optional<ParsedPacket> parsePacket(std::span<const uint8_t, 188> p) {
  ParsedPacket r;
  if (p[0] != 0x47 || (p[1] & 0x80) != 0 || (p[3] & 0xC0) != 0) return {};
  r.unitStart = (p[1] & 0x40) != 0;
  r.pid = (p[1] & 31) * 256 + p[2];
  r.continuity = p[3] & 15;
  r.hasField = (p[3] & 0x20) != 0;
  r.hasPayload = (p[3] & 0x10) != 0;
  if (!r.hasField && !r.hasPayload) return {};
  size_t at = 4;
  if (r.hasField) {
    r.fieldLength = p[4];
    // "In the case of adaptation_field_control 11 0 to 182, of 10 exactly 183."
    if (r.hasPayload ? r.fieldLength > 182 : r.fieldLength != 183) return {};
    const size_t end = 5 + static_cast<size_t>(r.fieldLength);
    at = 5;
    if (r.fieldLength > 0) {
      r.flags = p[at++];
      if (r.flags & 0x10) {
        if (at + 6 > end) return {};
        int64_t bits = 0;
        for (int i = 0; i < 6; ++i) bits = bits << 8 | p[at++];
        r.pcrBase = bits >> 15;
        if ((bits >> 9 & 63) != 63) return {};
        r.pcrExtension = static_cast<int>(bits & 511);
        if (r.pcrExtension > 299) return {};
      }
      if (r.flags & 0x08) return {};  // OPCR: nobody here writes it
      if (r.flags & 0x04) {
        if (at + 1 > end) return {};
        r.countdown = static_cast<int8_t>(p[at++]);
      }
      if (r.flags & 0x02) {
        if (at + 1 > end) return {};
        const size_t count = p[at++];
        if (at + count > end) return {};
        r.privateData.emplace(p.begin() + static_cast<ptrdiff_t>(at),
                              p.begin() + static_cast<ptrdiff_t>(at + count));
        at += count;
      }
      if (r.flags & 0x01) return {};
      for (; at < end; ++at, ++r.stuffing) {
        if (p[at] != 0xFF) return {};
      }
    }
  }
  r.payloadAt = at;
  return r;
}

}  // namespace zel::test
