// Any bytes as frame headers: no over-read, and what is accepted is usable.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/syntax/adts.h"
#include "zel/syntax/mpeg_audio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  zel::syntax::MpegAudioHeader mpeg;
  if (zel::syntax::parseMpegAudioHeader(bytes, mpeg)) {
    const bool sized = mpeg.frameSize >= zel::syntax::kMpegAudioHeaderSize;
    if (mpeg.sampleRate == 0 || sized != (mpeg.bitRateIndex != 0)) std::abort();
  }
  zel::syntax::AdtsHeader adts;
  if (zel::syntax::parseAdtsHeader(bytes, adts) && adts.frameSize < 7) std::abort();
  return 0;
}
