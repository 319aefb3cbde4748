#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tests/support/property_set_model.h"

// The input is a program of operations on property sets, run beside a model of them.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string difference = zel::test::runPropertySetProgram({data, size});
  if (!difference.empty()) {
    std::fprintf(stderr, "the property set differs from its model: %s\n", difference.c_str());
    std::abort();
  }
  return 0;
}
