// Any bytes as frame headers: no over-read, and what is accepted is usable.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/syntax/latm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  zel::syntax::LatmConfig config;
  const bool found = zel::syntax::parseLatmFrame(bytes, config) == zel::syntax::LatmResult::kConfig;
  if (found != (config.sampleRate != 0) || found != (config.samplesPerFrame != 0)) std::abort();
  return 0;
}
