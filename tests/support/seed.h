#pragma once

#include <cstdint>

namespace zel::test {

/// The seed of this run's random tests: ZEL_TEST_SEED when it is set, otherwise a fixed number, so
/// that every run is the same unless asked otherwise. The seed is printed once.
uint64_t testSeed();

}  // namespace zel::test
