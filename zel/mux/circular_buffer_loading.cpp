#include "zel/mux/circular_buffer_loading.h"

#include <algorithm>

namespace Morvalen::Zel {
namespace {

// A provider that reports an error, or more than was asked for, must not move the pointers out of
// the buffer: the one counts as the end, the other as what there was room for.
int32_t Read(TarnStreamInfo const& stream, unsigned char* to, int32_t room) {
  return std::clamp(stream.provider->ReadData(to, room, stream.index), 0, room);
}

int LoadEmpty(TarnStreamInfo const& stream, cbuf& buffer) {
  buffer.read = buffer.write = buffer.scan = buffer.start;
  int32_t const count = Read(stream, buffer.start, buffer.size - 1);
  buffer.write += count;
  return count == 0 ? 1 : 0;
}

int LoadBeforeRead(TarnStreamInfo const& stream, cbuf& buffer) {
  int32_t const room = int32_t(buffer.read - buffer.write) - 1;
  if (room <= 0) return 0;
  int32_t const count = Read(stream, buffer.write, room);
  buffer.write += count;
  return count == 0 ? 1 : 0;
}

int LoadAroundTheEnd(TarnStreamInfo const& stream, cbuf& buffer) {
  int32_t const first = int32_t(buffer.end - buffer.write) - (buffer.read == buffer.start ? 1 : 0);
  if (first > 0) {
    int32_t const count = Read(stream, buffer.write, first);
    if (count == 0) return 1;
    buffer.write += count;
  }
  if (buffer.write != buffer.end) return 0;
  buffer.write = buffer.start;
  int32_t const second = int32_t(buffer.read - buffer.start) - 1;
  if (second <= 0) return 0;
  int32_t const count = Read(stream, buffer.start, second);
  buffer.write += count;
  return count == 0 && first <= 0 ? 1 : 0;
}

}  // namespace

int LoadFromProvider(TarnStreamInfo const& stream, cbuf& buffer) {
  if (buffer.finished != 0 || stream.provider == nullptr || buffer.size < 2) return 1;
  if (buffer.read == buffer.write) return LoadEmpty(stream, buffer);
  if (buffer.write < buffer.read) return LoadBeforeRead(stream, buffer);
  return LoadAroundTheEnd(stream, buffer);
}

}  // namespace Morvalen::Zel
