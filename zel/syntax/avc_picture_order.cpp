#include "zel/syntax/avc_picture_order.h"

#include <algorithm>

namespace zel::syntax {

namespace {

int32_t order(int64_t value) {
  return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

AvcPictureOrder orders(int64_t top, int64_t bottom, const AvcSliceHeader& slice) {
  AvcPictureOrder result{order(top), order(bottom), 0};
  if (!slice.fieldPic) {
    result.poc = std::min(result.top, result.bottom);
  } else {
    result.poc = slice.bottomField ? result.bottom : result.top;
  }
  return result;
}

}  // namespace

AvcPictureOrder AvcPictureOrderCounter::next(const AvcSps& sps, const AvcSliceHeader& slice) {
  if (sps.pocType == 0) return countType0(sps, slice);
  countFrameNum(sps, slice);
  return sps.pocType == 1 ? countType1(sps, slice) : countType2(slice);
}

AvcPictureOrder AvcPictureOrderCounter::countType0(const AvcSps& sps, const AvcSliceHeader& slice) {
  if (slice.idr) previousMsb_ = previousLsb_ = 0;
  const int64_t range = int64_t{1} << sps.log2MaxPocLsb;
  const int64_t lsb = slice.pocLsb;
  int64_t msb = previousMsb_;
  if (lsb < previousLsb_ && previousLsb_ - lsb >= range / 2) {
    msb += range;
  } else if (lsb > previousLsb_ && lsb - previousLsb_ > range / 2) {
    msb -= range;
  }
  const int64_t top = msb + lsb;
  const AvcPictureOrder result = orders(top, top + slice.deltaPocBottom, slice);
  if (slice.nalRefIdc != 0) {
    previousMsb_ = msb;
    previousLsb_ = lsb;
    if (slice.resetsPictures()) {
      // The picture itself moves to zero: tempPicOrderCnt is taken off it (8.2.1).
      previousMsb_ = 0;
      previousLsb_ = slice.bottomField ? 0 : top - result.poc;
    }
  }
  return result;
}

// FrameNumOffset: frame_num without its wrap.
void AvcPictureOrderCounter::countFrameNum(const AvcSps& sps, const AvcSliceHeader& slice) {
  const uint32_t previous = previousReset_ ? 0 : previousFrameNum_;
  if (previousReset_) frameNumOffset_ = 0;
  if (slice.idr) {
    frameNumOffset_ = 0;
  } else if (previous > slice.frameNum) {
    frameNumOffset_ += int64_t{1} << sps.log2MaxFrameNum;
  }
  previousFrameNum_ = slice.frameNum;
  previousReset_ = slice.resetsPictures();
}

AvcPictureOrder AvcPictureOrderCounter::countType1(const AvcSps& sps, const AvcSliceHeader& slice) {
  const int64_t cycle = sps.numRefFramesInPocCycle;
  int64_t number = cycle != 0 ? frameNumOffset_ + slice.frameNum : 0;
  if (slice.nalRefIdc == 0 && number > 0) --number;
  int64_t expected = 0;
  if (number > 0) {
    int64_t perCycle = 0;
    for (int64_t i = 0; i < cycle; ++i) perCycle += sps.offsetForRefFrame[static_cast<size_t>(i)];
    const int64_t inCycle = (number - 1) % cycle;
    expected = (number - 1) / cycle * perCycle;
    for (int64_t i = 0; i <= inCycle; ++i)
      expected += sps.offsetForRefFrame[static_cast<size_t>(i)];
  }
  if (slice.nalRefIdc == 0) expected += sps.offsetForNonRefPic;
  const int64_t top = expected + slice.deltaPoc[0];
  const int64_t second = slice.fieldPic ? slice.deltaPoc[0] : slice.deltaPoc[1];
  const int64_t base = slice.fieldPic ? expected : top;
  return orders(top, base + sps.offsetForTopToBottomField + second, slice);
}

AvcPictureOrder AvcPictureOrderCounter::countType2(const AvcSliceHeader& slice) {
  int64_t value = 0;
  if (!slice.idr) value = 2 * (frameNumOffset_ + slice.frameNum) - (slice.nalRefIdc == 0 ? 1 : 0);
  return orders(value, value, slice);
}

}  // namespace zel::syntax
