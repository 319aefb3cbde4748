#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

// One direction of a set while it is put together: fails rather than pass its end.
class SetSide {
 public:
  SetSide(BitReader& bits, std::array<int32_t, kHevcMaxSetPictures>& deltas,
          std::array<bool, kHevcMaxSetPictures>& used, uint8_t& count)
      : bits_(bits), deltas_(deltas), used_(used), count_(count) {}

  void add(int32_t delta, bool used) {
    if (count_ == kHevcMaxSetPictures) {
      bits_.fail();
      return;
    }
    deltas_[count_] = delta;
    used_[count_++] = used;
  }

 private:
  BitReader& bits_;
  std::array<int32_t, kHevcMaxSetPictures>& deltas_;
  std::array<bool, kHevcMaxSetPictures>& used_;
  uint8_t& count_;
};

struct PredictionFlags {
  std::array<bool, kHevcMaxSetPictures + 1> used{};
  std::array<bool, kHevcMaxSetPictures + 1> useDelta{};
};

// Equations 7-61 and 7-62: the set before, moved by deltaRps, sorted into the two directions.
void predict(BitReader& bits, const HevcShortTermSet& from, int32_t deltaRps,
             const PredictionFlags& flags, HevcShortTermSet& set) {
  const size_t negative = from.numNegative;
  const size_t positive = from.numPositive;
  const size_t last = negative + positive;
  SetSide before(bits, set.deltaPocS0, set.usedS0, set.numNegative);
  SetSide after(bits, set.deltaPocS1, set.usedS1, set.numPositive);
  const auto offer = [&](int32_t delta, size_t index) {
    if (!flags.useDelta[index] || delta == 0) return;
    (delta < 0 ? before : after).add(delta, flags.used[index]);
  };
  const auto offerIf = [&](bool negativeSide, int32_t delta, size_t index) {
    if (negativeSide == (delta < 0)) offer(delta, index);
  };
  for (size_t i = positive; i-- > 0;) {
    offerIf(true, from.deltaPocS1[i] + deltaRps, negative + i);
  }
  offerIf(true, deltaRps, last);
  for (size_t i = 0; i < negative; ++i) offerIf(true, from.deltaPocS0[i] + deltaRps, i);

  for (size_t i = negative; i-- > 0;) offerIf(false, from.deltaPocS0[i] + deltaRps, i);
  offerIf(false, deltaRps, last);
  for (size_t i = 0; i < positive; ++i) {
    offerIf(false, from.deltaPocS1[i] + deltaRps, negative + i);
  }
}

void readPredicted(BitReader& bits, std::span<const HevcShortTermSet> sets, bool inSlice,
                   HevcShortTermSet& set) {
  const auto count = static_cast<uint32_t>(sets.size());
  const uint32_t back = inSlice ? 1 + readUeUpTo(bits, count - 1) : 1;
  const bool negative = bits.readFlag();
  const auto magnitude = static_cast<int32_t>(readUeUpTo(bits, 32767) + 1);
  if (bits.failed()) return;
  const HevcShortTermSet& from = sets[count - back];
  PredictionFlags flags;
  for (size_t j = 0; j <= static_cast<size_t>(from.numDeltaPocs()); ++j) {
    flags.used[j] = bits.readFlag();
    flags.useDelta[j] = flags.used[j] || bits.readFlag();
  }
  predict(bits, from, negative ? -magnitude : magnitude, flags, set);
}

void readSide(BitReader& bits, uint8_t count, int32_t sign,
              std::array<int32_t, kHevcMaxSetPictures>& deltas,
              std::array<bool, kHevcMaxSetPictures>& used) {
  int32_t delta = 0;
  for (size_t i = 0; i < count; ++i) {
    delta += sign * static_cast<int32_t>(readUeUpTo(bits, 32767) + 1);
    deltas[i] = delta;
    used[i] = bits.readFlag();
  }
}

}  // namespace

void readHevcShortTermSet(BitReader& bits, std::span<const HevcShortTermSet> sets, bool inSlice,
                          HevcShortTermSet& set) {
  set = {};
  if (!sets.empty() && bits.readFlag()) {
    readPredicted(bits, sets, inSlice, set);
  } else {
    const uint32_t negative = readUeUpTo(bits, kHevcMaxSetPictures);
    const uint32_t positive = readUeUpTo(bits, kHevcMaxSetPictures - negative);
    set.numNegative = static_cast<uint8_t>(negative);
    set.numPositive = static_cast<uint8_t>(positive);
    readSide(bits, set.numNegative, -1, set.deltaPocS0, set.usedS0);
    readSide(bits, set.numPositive, 1, set.deltaPocS1, set.usedS1);
  }
  if (set.numDeltaPocs() > kHevcMaxSetPictures) bits.fail();
}

}  // namespace zel::syntax
