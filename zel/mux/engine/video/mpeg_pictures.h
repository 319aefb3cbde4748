#pragma once

#include "zel/mux/engine/video/display_order.h"
#include "zel/mux/engine/video/video_analyser.h"

namespace zel::mux {

/// What MPEG-1, MPEG-2 and MPEG-4 part 2 have alike: codes of a byte, and pictures whose times of
/// display follow from their types.
class mpeg_pictures : public video_analyser {
 public:
  using video_analyser::video_analyser;

 protected:
  int32_t code_size() const override { return 1; }
  void order_units(bool ended) override;

  /// No picture waits for the next anchor.
  bool shows_at_once() const;
  /// A B picture ends low delay, with a warning. @return whether it did now.
  bool ends_low_delay(const access_unit& unit);

 private:
  mpeg_display_order order_;
};

}  // namespace zel::mux
