// Any bytes as frame headers: no over-read, and what is accepted is usable.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/syntax/dts.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  zel::syntax::DtsCoreHeader core;
  if (zel::syntax::parseDtsCoreHeader(bytes, core) && core.frameSize < 96) std::abort();
  zel::syntax::DtsExtensionHeader extension;
  if (zel::syntax::parseDtsExtensionHeader(bytes, extension) &&
      extension.frameSize < extension.headerSize) {
    std::abort();
  }
  zel::syntax::DtsHdChunk chunk;
  if (zel::syntax::parseDtsHdChunk(bytes, chunk) != (bytes.size() >= 16)) std::abort();
  return 0;
}
