// Any bytes as MPEG-1/2 video: units lie where their start codes say, and every header parser meets
// every unit.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/syntax/mpeg_video.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zel::syntax;
  const std::span<const uint8_t> stream(data, size);
  MpegVideoUnit unit;
  for (size_t from = 0; findMpegVideoUnit(stream, from, unit); from = unit.startCode + 3) {
    if (unit.startCode < from || stream[unit.startCode + 3] != unit.code) std::abort();
    MpegSequenceHeader sequence;
    MpegGroupHeader group;
    MpegPictureHeader picture;
    MpegSequenceExtension extension;
    MpegSequenceDisplayExtension display;
    MpegPictureCodingExtension coding;
    parseMpegSequenceHeader(unit.payload, sequence);
    parseMpegGroupHeader(unit.payload, group);
    parseMpegPictureHeader(unit.payload, picture);
    parseMpegSequenceExtension(unit.payload, extension);
    parseMpegSequenceDisplayExtension(unit.payload, display);
    if (parseMpegPictureCodingExtension(unit.payload, coding) &&
        mpegDisplayFields(false, coding) > mpegDisplayFields(true, coding)) {
      if (mpegDisplayFields(false, coding) > 3) std::abort();
    }
  }
  return 0;
}
