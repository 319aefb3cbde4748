#include "zel/mux/engine/packet/pes_header.h"

#include <algorithm>
#include <cstring>

#include "zel/base/byte_order.h"

namespace zel::mux {

namespace {

constexpr int kStampBytes = 5;
constexpr int kFixedBytes = 9;
constexpr int kShortBytes = 6;  // padding streams have nothing behind the length
constexpr int kPrivateFieldBytes = 16;
constexpr size_t kMostExtension = 127;  // PES_extension_field_length has seven bits

bool carries_extension_field(const pes_fields& fields) {
  return fields.hasIdExtension || fields.privateForm == pes_private_form::extension;
}
size_t extension_bytes(const pes_fields& fields) {
  const size_t data =
      fields.privateForm == pes_private_form::extension ? fields.privateData.size() : 0;
  return std::min(data + (fields.hasIdExtension ? 1 : 0), kMostExtension);
}

int needed_length(const pes_fields& fields) {
  int length = 0;
  if (fields.hasPts) length += fields.hasDts ? 2 * kStampBytes : kStampBytes;
  const bool field = fields.privateForm == pes_private_form::field;
  const bool extension = carries_extension_field(fields);
  if (field || extension) length += 1;
  if (field) length += kPrivateFieldBytes;
  if (extension) length += 1 + static_cast<int>(extension_bytes(fields));
  return length;
}

int header_length(const pes_fields& fields) {
  return std::max(needed_length(fields), std::min(fields.forcedHeaderLength, 255));
}

uint8_t* put_extension(uint8_t* out, const pes_fields& fields) {
  const bool field = fields.privateForm == pes_private_form::field;
  const bool extension = carries_extension_field(fields);
  if (!field && !extension) return out;
  *out++ = static_cast<uint8_t>(0x0E | (field ? 0x80 : 0) | (extension ? 1 : 0));
  if (field) {
    const size_t count = std::min<size_t>(fields.privateData.size(), kPrivateFieldBytes);
    std::memset(out, 0, kPrivateFieldBytes);
    std::copy_n(fields.privateData.begin(), count, out);
    out += kPrivateFieldBytes;
  }
  if (extension) {
    const size_t count = extension_bytes(fields);
    *out++ = static_cast<uint8_t>(0x80 | count);
    size_t data = count;
    if (fields.hasIdExtension) {
      *out++ = fields.idExtension & 0x7F;
      --data;
    }
    if (fields.privateForm == pes_private_form::extension) {
      out = std::copy_n(fields.privateData.begin(), data, out);
    }
  }
  return out;
}

}  // namespace

void put_time_stamp(uint8_t* out, int prefix, double ticks27M) {
  const auto stamp = static_cast<uint64_t>(ticks27M / 300.0) & 0x1FFFFFFFF;
  out[0] = static_cast<uint8_t>(prefix << 4 | static_cast<int>(stamp >> 30) << 1 | 1);
  base::storeBig16(out + 1, static_cast<uint16_t>((stamp >> 15 & 0x7FFF) << 1 | 1));
  base::storeBig16(out + 3, static_cast<uint16_t>((stamp & 0x7FFF) << 1 | 1));
}

int pes_header_size(const pes_fields& fields) {
  return fields.streamId == kPaddingStreamId ? kShortBytes : kFixedBytes + header_length(fields);
}

int put_pes_header(uint8_t* out, const pes_fields& fields) {
  const int size = pes_header_size(fields);
  const int packetLength = size - kShortBytes + fields.payloadLength;
  base::storeBig24(out, 1);
  out[3] = fields.streamId;
  base::storeBig16(
      out + 4, static_cast<uint16_t>(fields.unbounded || packetLength > 0xFFFF ? 0 : packetLength));
  if (fields.streamId == kPaddingStreamId) return size;

  const bool extended =
      fields.privateForm == pes_private_form::field || carries_extension_field(fields);
  const int stamps = fields.hasPts ? (fields.hasDts ? 0xC0 : 0x80) : 0;
  out[6] = static_cast<uint8_t>(0x80 | (fields.headerFlags & 0x0F));
  out[7] = static_cast<uint8_t>(stamps | (extended ? 1 : 0));
  out[8] = static_cast<uint8_t>(size - kFixedBytes);

  uint8_t* at = out + kFixedBytes;
  if (fields.hasPts) {
    put_time_stamp(at, fields.hasDts ? 3 : 2, fields.pts);
    at += kStampBytes;
    if (fields.hasDts) {
      put_time_stamp(at, 1, fields.dts);
      at += kStampBytes;
    }
  }
  at = put_extension(at, fields);
  std::memset(at, 0xFF, static_cast<size_t>(out + size - at));
  return size;
}

}  // namespace zel::mux
