#include "zel/dnxhd/bitstream/row_reader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "zel/base/byte_order.h"
#include "zel/dnxhd/tables/ac_codes.h"
#include "zel/dnxhd/tables/weights.h"

namespace zel::dnxhd {

// The next bits at the top of a word. Refilling is without branches: it ors in the eight bytes at
// `at`, of which those count that fit whole; at least 56 bits are then there.
struct RowReader::Window {
  const uint8_t* at;
  uint64_t word = 0;
  uint32_t count = 0;

  void Refill() {
    word |= base::loadBig64(at) >> count;
    at += (63 - count) >> 3;
    count |= 56;
  }
  uint32_t Peek(int bits) const { return static_cast<uint32_t>(word >> (64 - bits)); }
  void Skip(uint32_t bits) {
    word <<= bits;
    count -= bits;
  }
  uint32_t Take(int bits) {
    const uint32_t value = Peek(bits);
    Skip(static_cast<uint32_t>(bits));
    return value;
  }
  // The first byte of which nothing was taken, seen from the bytes that are whole in the word.
  size_t BitsTaken(const uint8_t* begin) const {
    return static_cast<size_t>(at - begin) * 8 - count;
  }
};

RowReader::RowReader(const VCIDEntry& entry, Reconstruction reconstruction)
    : entry_(entry),
      lookUp_(LookUpOf(entry)),
      mode_(CodingModeOf(entry)),
      reconstruction_(reconstruction),
      fieldFlag_(HasFieldFlag(entry)),
      mbCols_(GeometryOf(entry).mbCols),
      shift_(mode_ == kMode444 ? 5 : 13 - entry.depth) {}

// The value of level L is (L * w + (w >> 1) + half) / d with w = weight * q, where half is d / 2,
// but 0 if w equals d.
void RowReader::SetQuantiser(uint32_t q) {
  if (q == q_) return;
  q_ = q;
  const uint32_t d = 1u << shift_;
  for (size_t k = 0; k < kBlockCoefficients; ++k) {
    for (const size_t component : {size_t{0}, kBlockCoefficients}) {
      const uint32_t weight = component == 0 ? entry_.lumaWeights[k] : entry_.chromaWeights[k];
      const uint32_t w = weight * q;
      scales_[component + k] = static_cast<int32_t>(w);
      const bool halfway = reconstruction_ == Reconstruction::kHalfway;
      const bool exact = halfway ? w == d : weight == 32 && d == 32;
      const uint32_t within = halfway ? w >> 1 : (w + (w >> 1)) >> 1;
      biases_[component + k] = static_cast<int32_t>(within + (exact ? 0 : d >> 1));
    }
  }
}

// A coefficient by its parts, from a full window. The end of a block is short, and none.
template <typename Take>
[[gnu::always_inline]] inline bool RowReader::ReadLong(Window& window, uint32_t& k, Take store) {
  const AcPart part = lookUp_.Part(window.Peek(16));
  window.Skip(part.bits);
  const bool negative = window.Take(1) != 0;
  int level = part.level;
  if ((part.kind & kEscape) != 0) level += 64 * static_cast<int>(window.Take(lookUp_.EscapeBits()));
  uint32_t run = 0;
  if ((part.kind & kRun) != 0) {
    const RunPart found = lookUp_.Run(window.Peek(kRunIndexBits));
    window.Skip(found.bits);
    run = found.run;
  }
  k += run + 1;
  if (k > 63) return false;
  store(k, negative ? -level : level);
  return true;
}

template <bool Store>
[[gnu::always_inline]] inline bool RowReader::ReadBlock(Window& window, int& predictor,
                                                        const int32_t* scales,
                                                        const int32_t* biases, int16_t* block) {
  window.Refill();
  const DcPart dc = lookUp_.Dc(window.Peek(kDcIndexBits));
  window.Skip(dc.bits);
  if (dc.size != 0) {
    const int bits = static_cast<int>(window.Take(dc.size));
    // A leading 1 is a positive difference; below that it is less by all ones.
    predictor += bits >> (dc.size - 1) != 0 ? bits : bits - ((1 << dc.size) - 1);
  }
  if (Store) block[0] = static_cast<int16_t>(std::clamp(predictor, -32768, 32767));

  const auto store = [=, this](uint32_t k, int level) {
    if (!Store) return;
    // In 32 bits: 4096 * 255 * 2047 is below 2^31.
    const int sign = level >> 31;
    const int magnitude = ((level ^ sign) - sign) * scales[k] + biases[k];
    const int value = std::min(magnitude >> shift_, 32767);
    block[kScan[k]] = static_cast<int16_t>((value ^ sign) - sign);
  };

  // Look-ups for each time that the window is filled.
  constexpr int kLookUps = 4;
  static_assert(kLookUps * kAcIndexBits <= 56);
  const AcLookUp* const table = lookUp_.Ac();
  uint32_t k = 0;
  for (int left = 0;; --left) {
    if (left == 0) {
      window.Refill();
      left = kLookUps;
    }
    const AcLookUp& next = table[window.Peek(kAcIndexBits)];
    const uint32_t first = k + next.toFirst;
    const uint32_t last = k + next.toLast;
    if (last <= 63) [[likely]] {
      window.Skip(next.bits);
      store(first, next.levels[0]);
      store(last, next.levels[1]);
      k = last;
      continue;
    }
    if (next.toLast != kAdvanceLong) {
      window.Skip(next.bits);
      if (next.toLast == kAdvanceEnd) return true;
      if (next.toLast != kAdvanceFirstEnd || first > 63) return false;
      store(first, next.levels[0]);
      return true;
    }
    window.Refill();
    left = 1;  // and again behind it
    if (!ReadLong(window, k, store)) return false;
  }
}

template <bool Store>
bool RowReader::ReadMacroblock(Window& shared, int16_t* coefficients, MacroblockFlags& flags) {
  // In registers: nothing else sees it.
  Window window = shared;
  window.Refill();
  flags.field = fieldFlag_ && window.Take(1) != 0;
  const uint32_t q = window.Take(fieldFlag_ ? 10 : 11);
  flags.color = window.Take(1) != 0;
  flags.q = static_cast<uint16_t>(q);
  if (Store) SetQuantiser(q);
  for (const BlockPlace& place : PlacesOf(mode_)) {
    const size_t weights = place.component == 0 ? 0 : kBlockCoefficients;
    if (!ReadBlock<Store>(window, predictors_[place.component], scales_.data() + weights,
                          biases_.data() + weights, Store ? coefficients + place.offset : nullptr))
      return false;
  }
  shared = window;
  return true;
}

template <bool Store>
ResultWord RowReader::ReadRow(std::span<const uint8_t> data, size_t offset, const RowOutput& out,
                              size_t& end) {
  if (offset >= data.size()) return kErrorInMacroblockIndices;
  const size_t macroblock = BlocksOf(mode_) * kBlockCoefficients;
  if (Store) std::memset(out.coefficients, 0, mbCols_ * macroblock * sizeof(int16_t));
  predictors_ = {};

  // Where a macroblock could read past the data, the rest of it is read from a copy with zeros
  // behind. Inside a macroblock nothing then has to be checked.
  std::vector<uint8_t> tail;
  const uint8_t* begin = data.data();
  size_t beginAt = 0;  // of `begin` in the data
  size_t safeEnd = data.size() > kMostMacroblockBytes ? data.size() - kMostMacroblockBytes : 0;
  Window window{begin + offset};
  MacroblockFlags unused;
  for (size_t column = 0; column < mbCols_; ++column) {
    const size_t bitsTaken = beginAt * 8 + window.BitsTaken(begin);
    if (bitsTaken > data.size() * 8) return kErrorInHuffmanDecode;
    if (tail.empty() && bitsTaken / 8 >= safeEnd) {
      beginAt = bitsTaken / 8;
      tail.assign(data.begin() + static_cast<ptrdiff_t>(beginAt), data.end());
      tail.resize(tail.size() + 2 * kMostMacroblockBytes);
      begin = tail.data();
      window = {begin};
      window.Refill();
      window.Skip(bitsTaken % 8);
    }
    if (!ReadMacroblock<Store>(window, Store ? out.coefficients + column * macroblock : nullptr,
                               out.flags != nullptr ? out.flags[column] : unused))
      return kErrorInHuffmanDecode;
  }
  const size_t bits = beginAt * 8 + window.BitsTaken(begin);
  if (bits > data.size() * 8) return kErrorInHuffmanDecode;
  end = (bits + 31) / 32 * 4;
  return kSuccessful;
}

ResultWord RowReader::Read(std::span<const uint8_t> data, size_t offset, const RowOutput& out,
                           size_t& end) {
  return ReadRow<true>(data, offset, out, end);
}

ResultWord RowReader::Check(std::span<const uint8_t> data, size_t offset, size_t& end,
                            MacroblockFlags* flags) {
  return ReadRow<false>(data, offset, {nullptr, flags}, end);
}

}  // namespace zel::dnxhd
