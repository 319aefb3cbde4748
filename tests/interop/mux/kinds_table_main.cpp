// Prints docs/multiplexed-kinds.md. Its one argument is the zel command.

#include <cstdio>
#include <exception>

#include "tests/interop/mux/kinds_table.h"

namespace {

constexpr const char* kHead =
    R"(# Every kind of stream, multiplexed

This page is made by `build/release/tests/interop/mux_kinds_table build/release/tools/zel/zel`: streams of six seconds
that independent encoders make (x264, x265, FFmpeg and those that it calls), each by one command line. The judge of the
tests, which shares no code with the multiplexer, looks at every packet: sync, counters, tables and their intervals,
CRCs, PCRs (500 ns, 100 ms), time stamps, and the decoder model of ISO/IEC 13818-1, 2.4.2.

Told are its findings; the highest level of the decoder's buffer behind the transport buffers, against the buffer's
size, in bytes; how long the slowest byte waits in the decoder, in seconds; whether the elementary stream comes back
byte for byte; and what `zel mux` warns of. Other encoders' versions give other levels.

| Kind | Made by | Command | Findings | Buffer | Delay | Comes back | Warned of |
|---|---|---|--:|--:|--:|---|---|
)";

}  // namespace

int main(int count, char** words) {
  using namespace zel::test;
  if (count != 2) {
    std::fprintf(stderr, "usage: mux_kinds_table ZEL\n");
    return 2;
  }
  try {
    ElementaryMediaShelf shelf(6);
    const ScratchFolder folder;
    std::fputs(kHead, stdout);
    for (const ElementaryMedia& media : allElementaryMedia()) {
      if (shelf.file(media).empty()) {
        std::fprintf(stderr, "mux_kinds_table: %s is not installed\n", media.program);
        return 1;
      }
      std::printf("%s\n", kindRow(media, runKind(media, shelf, folder, words[1])).c_str());
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "mux_kinds_table: %s\n", failure.what());
    return 1;
  }
  return 0;
}
