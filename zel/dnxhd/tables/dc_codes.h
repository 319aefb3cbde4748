#pragma once

#include <array>
#include <cstdint>

// The codes of the size of a DC difference, SMPTE ST 2019-1: `size` more bits follow the code, the
// difference itself if it is positive, and otherwise the difference less one, of which the low
// bits are written.

namespace zel::dnxhd {

struct DcCode {
  uint8_t code;
  uint8_t length;
};

// By size. 10-bit pictures have sizes up to 13, 8-bit ones up to 11.
inline constexpr std::array<DcCode, 14> kDcCodes1235 = {{
    {0x0A, 4},
    {0x3E, 6},
    {0x0B, 4},
    {0x0C, 4},
    {0x0D, 4},
    {0x00, 3},
    {0x01, 3},
    {0x02, 3},
    {0x03, 3},
    {0x04, 3},
    {0x0E, 4},
    {0x1E, 5},
    {0x7E, 7},
    {0x7F, 7},
}};

inline constexpr std::array<DcCode, 12> kDcCodes1237 = {{
    {0x00, 3},
    {0x0C, 4},
    {0x0D, 4},
    {0x01, 3},
    {0x02, 3},
    {0x03, 3},
    {0x04, 3},
    {0x05, 3},
    {0x0E, 4},
    {0x1E, 5},
    {0x3E, 6},
    {0x3F, 6},
}};

}  // namespace zel::dnxhd
