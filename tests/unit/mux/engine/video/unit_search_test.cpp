#include "zel/mux/engine/video/unit_search.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zel::mux;

// An input over `storage` whose data begin at `begin`, so that they run over the buffer's end.
struct wrapped_input {
  wrapped_input(std::vector<uint8_t>& storage, int32_t begin, const std::vector<uint8_t>& data) {
    cbuf& buffer = input.buffer();
    reset_cbuf(buffer, storage.data(), static_cast<int32_t>(storage.size()));
    buffer.read = buffer.scan = buffer.write = storage.data() + begin;
    for (const uint8_t byte : data) {
      *buffer.write = byte;
      buffer.write = cbuf_forward(buffer, buffer.write, 1);
    }
  }
  elementary_input input;
};

TEST(UnitSearch, FindsAPrefixAtEveryPlaceOfTheWrap) {
  for (int32_t begin = 0; begin < 64; ++begin) {
    std::vector<uint8_t> storage(64, 0xEE);
    std::vector<uint8_t> data(40, 0x55);
    data[20] = data[21] = 0;
    data[22] = 1;
    wrapped_input wrapped(storage, begin, data);
    int64_t resume = -1;
    EXPECT_EQ(find_start_code(wrapped.input, 0, resume), 20) << begin;
    EXPECT_EQ(find_start_code(wrapped.input, 20, resume), 20) << begin;
    EXPECT_EQ(find_start_code(wrapped.input, 21, resume), -1) << begin;
    EXPECT_EQ(resume, 38) << begin;
  }
}

TEST(UnitSearch, APrefixThatIsntWholeIsLookedAtAgain) {
  for (int32_t begin = 0; begin < 32; ++begin) {
    std::vector<uint8_t> storage(32, 1);  // what lies behind the data would complete it
    wrapped_input wrapped(storage, begin, {9, 9, 9, 0, 0});
    int64_t resume = -1;
    EXPECT_EQ(find_start_code(wrapped.input, 0, resume), -1) << begin;
    EXPECT_EQ(resume, 3) << begin;
  }
}

}  // namespace
