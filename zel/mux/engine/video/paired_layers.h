#pragma once

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/video/layer_boundaries.h"

namespace zel::mux {

/// Two layers that come out of one multiplex in a PID each: what of the second has the DTS of an
/// access unit of the first belongs to it (ISO/IEC 13818-1, 2.14.3).
class paired_layers : public layer_boundaries {
 public:
  /// Both inputs are of transport streams, and outlive this. `dependent` grows as it has to.
  paired_layers(elementary_input& base, elementary_input& dependent)
      : base_(base), dependent_(dependent) {}

  int64_t dependent_end(int64_t basePosition) override;

 private:
  bool load_more();
  int64_t position_of(int64_t dts90k);

  elementary_input& base_;
  elementary_input& dependent_;
  int64_t unitStart_ = 0;  // of the access unit that is asked for next, in the base layer
  int64_t dependentEnd_ = 0;
};

}  // namespace zel::mux
