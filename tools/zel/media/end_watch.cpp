#include "tools/zel/media/end_watch.h"

namespace zel::media {

void EndWatch::note(uint64_t wanted, uint64_t got) {
  bytesRead_ += got;
  if (got < wanted) ended_ = true;
  error_ = source_.error();
}

size_t EndWatch::read(std::span<uint8_t> out) {
  const size_t got = source_.read(out);
  note(out.size(), got);
  return got;
}

uint64_t EndWatch::skip(uint64_t count) {
  const uint64_t got = source_.skip(count);
  note(count, got);
  return got;
}

}  // namespace zel::media
