#pragma once

#include <cstdint>

#include "zel/syntax/avc_slice.h"

/// Picture order count of AVC: ITU-T H.264, 8.2.1.

namespace zel::syntax {

struct AvcPictureOrder {
  int32_t top = 0;     // TopFieldOrderCnt, where the picture has a top field
  int32_t bottom = 0;  // BottomFieldOrderCnt likewise
  int32_t poc = 0;     // PicOrderCnt(): the lesser of those that the picture has
};

/// Keeps what the derivation of one picture needs of those before. Pictures come in decoding order,
/// each by the header of its first slice; the two fields of a frame one by one.
class AvcPictureOrderCounter {
 public:
  AvcPictureOrder next(const AvcSps& sps, const AvcSliceHeader& slice);

 private:
  AvcPictureOrder countType0(const AvcSps& sps, const AvcSliceHeader& slice);
  AvcPictureOrder countType1(const AvcSps& sps, const AvcSliceHeader& slice);
  AvcPictureOrder countType2(const AvcSliceHeader& slice);
  void countFrameNum(const AvcSps& sps, const AvcSliceHeader& slice);

  // Of the previous reference picture. Sums are 64 bits wide: a stream may hold any value.
  int64_t previousMsb_ = 0;
  int64_t previousLsb_ = 0;
  // Of the previous picture.
  int64_t frameNumOffset_ = 0;
  uint32_t previousFrameNum_ = 0;
  bool previousReset_ = false;
};

}  // namespace zel::syntax
