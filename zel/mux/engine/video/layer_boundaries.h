#pragma once

#include <cstdint>

namespace zel::mux {

/// Tells what of a second layer belongs to which access unit.
class layer_boundaries {
 public:
  virtual ~layer_boundaries() = default;

  /// Where the second layer's part of an access unit ends whose base layer ends at `basePosition`,
  /// as a position in the second layer's input. Positions are asked for in ascending order.
  virtual int64_t dependent_end(int64_t basePosition) = 0;
};

}  // namespace zel::mux
