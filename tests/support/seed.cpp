#include "tests/support/seed.h"

#include <cstdio>
#include <cstdlib>

namespace zel::test {

uint64_t testSeed() {
  static const uint64_t seed = [] {
    const char* text = std::getenv("ZEL_TEST_SEED");
    const uint64_t value = text != nullptr ? std::strtoull(text, nullptr, 0) : 20120101u;
    std::printf("random tests use ZEL_TEST_SEED=%llu\n", static_cast<unsigned long long>(value));
    return value;
  }();
  return seed;
}

}  // namespace zel::test
