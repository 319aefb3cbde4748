#pragma once

#include <cstdint>
#include <span>

/// The header of a PES packet: ISO/IEC 13818-1, 2.4.3.6 and 2.4.3.7.

namespace zel::mux {

inline constexpr uint8_t kPaddingStreamId = 0xBE;
inline constexpr uint8_t kExtendedStreamId = 0xFD;

/// What goes out as PES private data: 16 bytes in their own field, or up to 127 bytes in the
/// extension field.
enum class pes_private_form : uint8_t { none, field, extension };

struct pes_fields {
  uint8_t streamId = 0xE0;
  int32_t payloadLength = 0;  // bytes behind the header; PES_packet_length is worked out
  bool unbounded = false;     // PES_packet_length 0: video only
  uint8_t headerFlags = 0;    // priority 8, alignment 4, copyright 2, original 1
  bool hasPts = false;
  bool hasDts = false;  // with hasPts
  double pts = 0;       // 27 MHz ticks within the wrap
  double dts = 0;
  bool hasIdExtension = false;
  uint8_t idExtension = 0;
  pes_private_form privateForm = pes_private_form::none;
  std::span<const uint8_t> privateData;
  int32_t forcedHeaderLength = 0;  // of the fields and stuffing behind the length byte
};

/// The most that a header takes: the fixed bytes and 255 bytes behind the length byte.
inline constexpr int kMostPesHeader = 9 + 255;

/// Bytes that put_pes_header would write.
int pes_header_size(const pes_fields& fields);

/// Writes the header, at most kMostPesHeader bytes, and returns its size. A length that 16 bits
/// can't hold becomes 0.
int put_pes_header(uint8_t* out, const pes_fields& fields);

/// A time stamp of 33 bits with its marker bits: five bytes. `prefix` is 2 for a PTS alone, 3 for a
/// PTS with a DTS behind it, 1 for that DTS.
void put_time_stamp(uint8_t* out, int prefix, double ticks27M);

}  // namespace zel::mux
