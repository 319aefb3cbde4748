// Telling what a file holds from its first bytes, whatever they are.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/mux/engine/input/stream_content.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace Morvalen::Zel;
  const tsm_content content = tsm_recognise(std::span(data, size));
  if (tsm_content_name(content)[0] == '\0') std::abort();
  // The same bytes are the same thing.
  if (tsm_recognise(std::span(data, size)) != content) std::abort();
  return 0;
}
