#include "tests/support/transport_judge/elementary_units.h"

#include <array>

#include "tests/support/transport_judge/unit_walks.h"

namespace zel::test {

const char* codingName(Coding coding) {
  static constexpr std::array kNames = {
      "unknown", "MPEG-1 video", "MPEG-2 video", "MPEG-4 video", "AVC", "HEVC",      "MPEG audio",
      "ADTS",    "LATM",         "AC-3",         "E-AC-3",       "DTS", "SMPTE 302M"};
  static_assert(kNames.size() == static_cast<size_t>(Coding::kSmpte302m) + 1);
  return kNames[static_cast<size_t>(coding)];
}

bool isVideo(Coding coding) {
  return coding >= Coding::kMpeg1Video && coding <= Coding::kHevc;
}

Units findUnits(Coding coding, std::span<const uint8_t> stream) {
  Units units;
  if (isVideo(coding))
    walkVideo(coding, stream, units);
  else if (coding != Coding::kUnknown && coding != Coding::kSmpte302m)
    walkAudio(coding, stream, units);
  return units;
}

}  // namespace zel::test
