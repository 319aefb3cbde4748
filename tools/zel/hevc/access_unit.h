#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zel::tool {

/// What an access unit is, as far as its NAL unit headers tell.
struct AccessUnitKind {
  std::string_view type;     ///< "IDR", "BLA", "CRA", "I", "reference" or "disposable"
  std::string_view nalType;  ///< of its first slice, as ITU-T H.265 names it: "TRAIL_R"
};

/// `bytes` are an Annex B byte stream; `dependent` says whether the picture is coded with others.
/// Both names are "?" when there is no slice.
AccessUnitKind accessUnitKind(std::span<const uint8_t> bytes, bool dependent);

}  // namespace zel::tool
