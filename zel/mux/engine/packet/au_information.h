#pragma once

#include <array>
#include <cstdint>

#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

inline constexpr int kAuInformationBytes = 8;

/// The AU_information of ETSI TS 101 154, annex D, as private data of an adaptation field: tag,
/// length, coding format and type, picture structure, the upper 32 bits of the PTS.
std::array<uint8_t, kAuInformationBytes> au_information(video_coding coding,
                                                        const access_unit& unit);

}  // namespace zel::mux
