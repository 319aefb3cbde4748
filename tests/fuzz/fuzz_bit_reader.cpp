// The input is operations and, from its middle on, the bits that they read: with the fast reader
// and bit by bit, which have to agree.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "tests/support/slow_bits.h"
#include "zel/base/bit_reader.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void step(uint8_t operation, zel::base::BitReader& reader, zel::test::SlowBits& slow) {
  const int amount = operation & 31;
  switch (operation >> 5) {
    case 0:
      require(reader.read(amount) == slow.read(amount));
      break;
    case 1:
      require(reader.read(32 - amount) == slow.read(32 - amount));
      break;
    case 2:
      require(reader.readLong(64 - amount) == slow.read(64 - amount));
      break;
    case 3:
      reader.skip(static_cast<unsigned>(amount * amount));
      slow.skip(static_cast<unsigned>(amount * amount));
      break;
    case 4:
      require(reader.moreRbspData() == slow.moreRbspData());
      break;
    case 5:
      reader.align();
      if (!slow.failed()) slow.skip(-slow.position() & 7);
      break;
    default: {
      const uint32_t value = reader.readUe();
      const uint32_t expected = slow.readUe();
      require(slow.failed() || value == expected);
    }
  }
  require(reader.failed() == slow.failed());
  require(slow.failed() || reader.position() == slow.position());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> input(data, size);
  const auto bits = input.subspan(size / 2);
  zel::base::BitReader reader(bits);
  zel::test::SlowBits slow(bits);
  for (const uint8_t operation : input.first(size / 2)) step(operation, reader, slow);
  return 0;
}
