#include "tools/zel/mux/trace_file.h"

#include <fmt/format.h>

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

struct KindWord {
  int32_t kind;
  const char* word;
};
constexpr KindWord kKindWords[] = {
    {tsm_stream_null, "null"},     {tsm_stream_psi, "psi"},
    {tsm_stream_video, "video"},   {tsm_stream_audio, "audio"},
    {tsm_stream_data, "data"},     {tsm_stream_smpte302m, "smpte302m"},
    {tsm_stream_table, "table"},   {tsm_stream_private, "private"},
    {tsm_stream_scte35, "scte35"}, {tsm_stream_pcr_only, "pcr"},
    {tsm_stream_lpcm, "lpcm"},
};

const char* wordOf(int32_t kind) {
  for (const KindWord& each : kKindWords)
    if (each.kind == kind) return each.word;
  return "";
}

}  // namespace

std::string traceTitles() {
  return "packet,seconds,pid,kind,pcr,unit_start,level,limit\n";
}

std::string traceRow(const tsm_trace_event& event) {
  constexpr double kClock = 27e6;
  std::string row = fmt::format("{},{:.6f},{},{},{:d},{:d}", event.packet, event.time / kClock,
                                event.pid, wordOf(event.kind), event.hasPcr, event.unitStart);
  // Levels stay empty where there is no decoder's buffer to have one.
  row += event.bufferLevel >= 0 || event.bufferLimit > 0
             ? fmt::format(",{},{}\n", event.bufferLevel, event.bufferLimit)
             : ",,\n";
  return row;
}

}  // namespace zel::tool
