#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/support/property_set_model.h"
#include "tests/support/seed.h"

namespace zel::test {
namespace {

TEST(PropertySet, BehavesAsAListOfNamesAndBytes) {
  std::mt19937_64 random(testSeed());
  for (int program = 0; program < 300; ++program) {
    std::vector<uint8_t> bytes(random() % 1500);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    ASSERT_EQ(runPropertySetProgram(bytes), "") << "program " << program;
  }
}

}  // namespace
}  // namespace zel::test
