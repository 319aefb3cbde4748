#pragma once

#include <cstdint>
#include <deque>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/input/stream_source.h"
#include "zel/mux/engine/video/layer_boundaries.h"

/// Takes an AVC stream with a second layer apart: what the second view of MVC and the enhancement
/// layer of SVC add goes to an input of its own, the base layer stays (ITU-T H.264, Annexes F, G).

namespace zel::mux {

/// The source of the base layer's input. It reads `raw`, NAL unit by NAL unit, and puts prefix NAL
/// units, subset SPS and slice extensions into `dependent`, which grows as it has to.
class layer_splitter : public stream_source, public layer_boundaries {
 public:
  /// Both inputs outlive this. `dependent` has to be open, without a source.
  layer_splitter(elementary_input& raw, elementary_input& dependent)
      : raw_(raw), dependent_(dependent) {}

  int32_t read(uint8_t* to, int32_t room) override;

  int64_t dependent_end(int64_t basePosition) override;
  bool saw_slice_extension() const { return sawExtension_; }

 private:
  enum class destination { base, before_slice, with_picture };
  struct mark {
    int64_t basePosition;
    int64_t dependentEnd;
    destination kind;
  };

  bool find_unit();
  bool load_more();
  void begin_unit(int64_t start, int64_t prefix);
  void move_to_dependent(int64_t count);

  elementary_input& raw_;
  elementary_input& dependent_;
  destination to_ = destination::base;
  int64_t known_ = 0;   // raw bytes up to here go to `to_`
  int64_t search_ = 0;  // from here on the next start code is looked for
  int64_t basePosition_ = 0;
  bool sawExtension_ = false;
  std::deque<mark> marks_;  // NAL units in `dependent` that haven't been asked for
  int64_t dependentEnd_ = 0;
};

}  // namespace zel::mux
