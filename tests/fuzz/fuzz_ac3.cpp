// Any bytes as frame headers: no over-read, and what is accepted is usable.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/syntax/ac3.h"
#include "zel/syntax/eac3.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  zel::syntax::Ac3Header ac3;
  zel::syntax::Eac3Header eac3;
  const bool isAc3 = zel::syntax::parseAc3Header(bytes, ac3);
  const bool isEac3 = zel::syntax::parseEac3Header(bytes, eac3);
  if (isAc3 && isEac3) std::abort();
  if (isAc3 && (ac3.frameSize < 128 || ac3.sampleRate == 0)) std::abort();
  if (isEac3 && (eac3.samples < 256 || eac3.sampleRate == 0)) std::abort();
  return 0;
}
