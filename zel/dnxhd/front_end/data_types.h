#pragma once

#include <cstdint>
#include <optional>

#include "zel/dnxhd/front_end/uncomp_info.h"

// From the library's video formats to the codec's own description of samples.

namespace Morvalen::Zel {

struct DataTypes {
  UnCompInfo record;
  uint32_t rowBytes;
};

/// Every format that isn't another's is taken as 8-bit Cb Y Cr Y.
DataTypes DataTypesForEncode(uint32_t format, uint32_t width, int32_t fieldMode);

/// Nothing for a format that the decoder doesn't write.
std::optional<DataTypes> DataTypesForDecode(uint32_t format, uint32_t width, int32_t fieldMode);

}  // namespace Morvalen::Zel
