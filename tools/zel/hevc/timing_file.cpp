#include "tools/zel/hevc/timing_file.h"

#include <fmt/format.h>

namespace zel::tool {
namespace {

double seconds(int64_t ticks, int64_t timeScale) {
  return static_cast<double>(ticks) / static_cast<double>(timeScale);
}

}  // namespace

std::string timingTitles() {
  return "access_unit,decode_time,presentation_time,decode_seconds,presentation_seconds,bytes,type,"
         "nal_type\n";
}

std::string timingRow(const AccessUnitTiming& timing, int64_t timeScale) {
  return fmt::format("{},{},{},{:.6f},{:.6f},{},{},{}\n", timing.index, timing.decodeTime,
                     timing.presentationTime, seconds(timing.decodeTime, timeScale),
                     seconds(timing.presentationTime, timeScale), timing.bytes, timing.type,
                     timing.nalType);
}

}  // namespace zel::tool
