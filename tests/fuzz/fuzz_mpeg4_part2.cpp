// Any bytes as MPEG-4 part 2 video: every header parser meets every unit, with the clock of the
// layer before, whatever that was.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/syntax/mpeg4_part2.h"
#include "zel/syntax/mpeg_video.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zel::syntax;
  const std::span<const uint8_t> stream(data, size);
  MpegVideoUnit unit;
  uint8_t verid = 1;
  uint16_t resolution = 0;
  for (size_t from = 0; findMpegVideoUnit(stream, from, unit); from = unit.startCode + 3) {
    Mpeg4ObjectSequence sequence;
    if (parseMpeg4ObjectSequence(unit.payload, sequence)) findMpeg4Level(sequence.profileAndLevel);
    Mpeg4VisualObject object;
    if (parseMpeg4VisualObject(unit.payload, object)) verid = object.verid;
    Mpeg4ObjectLayer layer;
    if (parseMpeg4ObjectLayer(unit.payload, verid, layer)) {
      resolution = layer.timeIncrementResolution;
      if (resolution == 0) std::abort();
      if (layer.vbv && layer.vbv->bitRate >= uint32_t{1} << 30) std::abort();
    }
    Mpeg4GroupOfVop group;
    parseMpeg4GroupOfVop(unit.payload, group);
    Mpeg4Vop vop;
    if (parseMpeg4Vop(unit.payload, resolution, vop) && vop.moduloTimeBase > 8 * size) std::abort();
  }
  return 0;
}
