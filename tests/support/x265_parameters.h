#pragma once

#include <x265.h>

#include <memory>

namespace zel::test {

struct FreeX265Parameters {
  void operator()(x265_param* parameters) const { x265_param_free(parameters); }
};

/// x265's parameters, freed at the end of the scope.
using X265Parameters = std::unique_ptr<x265_param, FreeX265Parameters>;

/// With x265's defaults: freeing them reads them.
inline X265Parameters newX265Parameters() {
  X265Parameters parameters(x265_param_alloc());
  x265_param_default(parameters.get());
  return parameters;
}

}  // namespace zel::test
