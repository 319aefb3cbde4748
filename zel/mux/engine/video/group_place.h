#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/mux/engine/stream/fixed_ring.h"

namespace zel::mux {

/// Where a picture of MPEG-1 or MPEG-2 stands in its group, in frames that are shown: the time code
/// of a group (ISO/IEC 13818-2, 6.3.8) numbers those, of which a picture whose fields are repeated
/// takes more than one. Without such pictures it is the temporal reference.
class group_place {
 public:
  /// The next picture is the first of a group.
  void begin_group();

  /// Frames shown between the group's first picture and the next one of the stream, which is shown
  /// for `fields` half frame periods. Pictures come in decoding order: what is shown before an
  /// anchor and decoded behind it is taken to be shown for as long as pictures lately were.
  int64_t frames_before(int32_t temporalReference, int32_t fields);

 private:
  struct picture {
    int32_t temporalReference = 0;
    int32_t fields = 0;  // of both, where it is coded as two
  };

  // As many as make up whole turns of two and three fields, however they are reordered.
  static constexpr size_t kLately = 6;

  int64_t expected_fields(int64_t pictures) const;

  fixed_ring<picture, 64> pictures_;  // of the group
  int64_t olderPictures_ = 0;         // too old to stand there: all shown before
  int64_t olderFields_ = 0;
  fixed_ring<int32_t, kLately> lately_;  // fields of each, of this group and the one before
  int64_t frames_ = 0;                   // before the newest
};

}  // namespace zel::mux
