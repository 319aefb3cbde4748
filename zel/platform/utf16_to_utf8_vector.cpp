// Compression of bytes in one instruction, which this target has, packs all lanes at once.
#define HWY_WANT_AVX3_DL

#include "zel/platform/text_kernels.h"

// UTF-16 to UTF-8 puts each unit's one to three bytes into a lane of 32 bits, two for either half
// of a surrogate pair, which depends on the unit and its neighbours only, and then packs the lanes:
// all at once where bytes are compressed by an instruction, four at a time by a byte shuffle from a
// table elsewhere. A surrogate without its partner is made U+FFFD on the way. So there is no detour
// for any text, but for elements that are no units at all.

#include <algorithm>
#include <cstdint>

#include "zel/platform/text_conversion_tables.h"
#include "zel/platform/utf8_step.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/platform/utf16_to_utf8_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zel::platform::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR

// Emulated vectors would be slower than the definition.
const NarrowingKernels* narrowingKernels() {
  return &scalarTextKernels();
}

#else

namespace hn = hwy::HWY_NAMESPACE;

static_assert(sizeof(wchar_t) == 4, "the lanes of the kernels are those of a 32-bit wchar_t");

using WideTag = hn::ScalableTag<uint32_t>;
using WideVec = hn::Vec<WideTag>;
using WideMask = hn::Mask<WideTag>;

HWY_INLINE const uint32_t* lanesOf(const wchar_t* units) {
  return reinterpret_cast<const uint32_t*>(units);
}

HWY_INLINE WideMask hasPrefix(WideTag d, WideVec units, uint32_t prefix) {
  return hn::Eq(hn::And(units, hn::Set(d, 0xFFFFFC00)), hn::Set(d, prefix));
}

// A block's surrogates: halves of pairs, and those without their partner.
struct Surrogates {
  WideMask pairHigh, pairLow, lone;
};

HWY_INLINE Surrogates surrogatesOf(WideTag d, WideVec units, const wchar_t* at) {
  const auto high = hasPrefix(d, units, 0xD800);
  const auto low = hasPrefix(d, units, 0xDC00);
  const auto beforeHigh = hasPrefix(d, hn::LoadU(d, lanesOf(at - 1)), 0xD800);
  const auto nextLow = hasPrefix(d, hn::LoadU(d, lanesOf(at + 1)), 0xDC00);
  return {hn::And(high, nextLow), hn::And(low, beforeHigh),
          hn::Or(hn::AndNot(nextLow, high), hn::AndNot(beforeHigh, low))};
}

HWY_INLINE bool hasSurrogates(WideTag d, WideVec units) {
  return !hn::AllFalse(d, hn::Eq(hn::And(units, hn::Set(d, 0xFFFFF800)), hn::Set(d, 0xD800)));
}

HWY_INLINE bool areUnits(WideTag d, WideVec units) {
  return hn::AllTrue(d, hn::Eq(hn::And(units, hn::Set(d, 0xFFFF0000)), hn::Zero(d)));
}

// Comparison of lanes below 2^31, which signed lanes have on all targets.
HWY_INLINE WideMask isAbove(WideTag d, WideVec units, int32_t bound) {
  const hn::RebindToSigned<WideTag> ds;
  return hn::RebindMask(d, hn::Gt(hn::BitCast(ds, units), hn::Set(ds, bound)));
}

// Bytes of a character that begins before `at` and goes on there: 2 where a pair lies across.
HWY_INLINE bool splitsPair(const wchar_t* at) {
  return isHighSurrogate(elementValue(at[-1])) && isLowSurrogate(elementValue(at[0]));
}

size_t utf8Length(const wchar_t* units, size_t count) {
  const WideTag d;
  const size_t step = hn::Lanes(d);
  size_t bytes = 0;
  size_t at = 0;
  const auto scalarUntil = [&](size_t end) {
    while (at < end) {
      const Utf16Character character = decodeUtf16(units + at, count - at);
      bytes += utf8Size(character.codePoint);
      at += character.size;
    }
  };
  scalarUntil(std::min<size_t>(1, count));
  while (at + step + 1 <= count) {
    const auto block = hn::LoadU(d, lanesOf(units + at));
    if (!areUnits(d, block)) {
      // A pair that lies across has been counted by half.
      if (splitsPair(units + at)) bytes += 2, ++at;
      scalarUntil(at + step);
      continue;
    }
    bytes += step + hn::CountTrue(d, isAbove(d, block, 0x7F));
    auto threes = isAbove(d, block, 0x7FF);
    if (hasSurrogates(d, block)) {
      const Surrogates surrogates = surrogatesOf(d, block, units + at);
      threes = hn::AndNot(hn::Or(surrogates.pairHigh, surrogates.pairLow), threes);
    }
    bytes += hn::CountTrue(d, threes);
    at += step;
  }
  if (at < count && at > 0 && splitsPair(units + at)) bytes += 2, ++at;
  scalarUntil(count);
  return bytes;
}

// Packs lanes of one to three bytes. Writes up to `kPackMargin` bytes more than the result says.
#if HWY_TARGET == HWY_AVX3_DL

constexpr size_t kPackMargin = 48;

HWY_INLINE size_t packLanes(WideTag d, WideVec lanes, WideMask twos, WideMask threes, char* out) {
  const hn::Repartition<uint8_t, WideTag> d8;
  const auto second = hn::IfThenElseZero(twos, hn::Set(d, 0xFF00));
  const auto third = hn::IfThenElseZero(threes, hn::Set(d, 0xFF0000));
  const auto counts = hn::Or(hn::Set(d, 0xFF), hn::Or(second, third));
  const auto mask = hn::MaskFromVec(hn::BitCast(d8, counts));
  hn::StoreU(hn::Compress(hn::BitCast(d8, lanes), mask), d8, reinterpret_cast<uint8_t*>(out));
  return hn::CountTrue(d8, mask);
}

// Two blocks of units of two bytes or one, in lanes of 16 bits. Twice as fast as lane by lane for
// what isn't ASCII in Latin, Greek and Cyrillic.
HWY_INLINE size_t encodeTwos(WideTag d, WideVec first, WideVec second, char* out) {
  const hn::Repartition<uint16_t, WideTag> d16;
  const hn::Half<decltype(d16)> half;
  const hn::Repartition<uint8_t, WideTag> d8;
  const auto units = hn::Combine(d16, hn::TruncateTo(half, second), hn::TruncateTo(half, first));
  const auto two = hn::Or(hn::Or(hn::ShiftRight<6>(units), hn::Set(d16, 0x80C0)),
                          hn::And(hn::ShiftLeft<8>(units), hn::Set(d16, 0x3F00)));
  const auto twos = hn::Gt(units, hn::Set(d16, 0x7F));
  const auto lanes = hn::IfThenElse(twos, two, units);
  const auto counts = hn::Or(hn::VecFromMask(d16, twos), hn::Set(d16, 0x00FF));
  const auto mask = hn::MaskFromVec(hn::BitCast(d8, counts));
  hn::StoreU(hn::Compress(hn::BitCast(d8, lanes), mask), d8, reinterpret_cast<uint8_t*>(out));
  return hn::Lanes(d16) + hn::CountTrue(d16, twos);
}

#else

constexpr size_t kPackMargin = 12;

HWY_INLINE size_t packLanes(WideTag d, WideVec lanes, WideMask twos, WideMask threes, char* out) {
  const hn::FixedTag<uint8_t, 16> d8;
  alignas(64) uint32_t buffer[HWY_MAX_BYTES / sizeof(uint32_t)];
  hn::Store(lanes, d, buffer);
  uint8_t twoBits[8] = {}, threeBits[8] = {};
  hn::StoreMaskBits(d, twos, twoBits);
  hn::StoreMaskBits(d, threes, threeBits);
  uint32_t twoMask = 0, threeMask = 0;
  hwy::CopyBytes<4>(twoBits, &twoMask);
  hwy::CopyBytes<4>(threeBits, &threeMask);
  size_t bytes = 0;
  for (size_t lane = 0; lane < hn::Lanes(d); lane += 4) {
    const uint32_t index = (twoMask >> lane & 15) | (threeMask >> lane & 15) << 4;
    const auto block = hn::Load(d8, reinterpret_cast<const uint8_t*>(buffer + lane));
    const auto shuffle = hn::Load(d8, kPack.shuffle[index].data());
    hn::StoreU(hn::TableLookupBytes(block, shuffle), d8, reinterpret_cast<uint8_t*>(out + bytes));
    bytes += 4 + hwy::PopCount(index);
  }
  return bytes;
}

#endif

// The six bits of a continuation byte, without its mark, at any place of a lane.
HWY_INLINE WideVec bitsAt(WideTag d, WideVec shifted, uint32_t place) {
  return hn::And(shifted, hn::Set(d, 0x3Fu << place));
}

// Encodes a block; `kSurrogates` where it may have some.
template <bool kSurrogates>
HWY_INLINE size_t encodeBlock(WideTag d, WideVec units, const wchar_t* at, char* out) {
  Surrogates found{};
  if constexpr (kSurrogates) {
    found = surrogatesOf(d, units, at);
    units = hn::IfThenElse(found.lone, hn::Set(d, 0xFFFD), units);
  }
  // The first byte is the lowest of a lane.
  const auto twos = isAbove(d, units, 0x7F);
  auto threes = isAbove(d, units, 0x7FF);
  const auto two = hn::Or(hn::Or(hn::ShiftRight<6>(units), hn::Set(d, 0x80C0)),
                          bitsAt(d, hn::ShiftLeft<8>(units), 8));
  const auto three = hn::Or(
      hn::Or(hn::ShiftRight<12>(units), hn::Set(d, 0x8080E0)),
      hn::Or(bitsAt(d, hn::ShiftLeft<2>(units), 8), bitsAt(d, hn::ShiftLeft<16>(units), 16)));
  auto lanes = hn::IfThenElse(threes, three, hn::IfThenElse(twos, two, units));
  if constexpr (kSurrogates) {
    // The upper eleven bits of the code point, of which the last two go with the low surrogate.
    const auto upper = hn::Add(hn::And(units, hn::Set(d, 0x3FF)), hn::Set(d, 0x40));
    const auto high = hn::Or(hn::Or(hn::ShiftRight<8>(upper), hn::Set(d, 0x80F0)),
                             bitsAt(d, hn::ShiftLeft<6>(upper), 8));
    const auto before = hn::LoadU(d, lanesOf(at - 1));
    const auto joint = hn::Or(hn::ShiftLeft<4>(hn::And(before, hn::Set(d, 3))),
                              hn::And(hn::ShiftRight<6>(units), hn::Set(d, 15)));
    const auto low =
        hn::Or(hn::Or(joint, hn::Set(d, 0x8080)), bitsAt(d, hn::ShiftLeft<8>(units), 8));
    lanes = hn::IfThenElse(found.pairHigh, high, hn::IfThenElse(found.pairLow, low, lanes));
    threes = hn::AndNot(hn::Or(found.pairHigh, found.pairLow), threes);
  }
  return packLanes(d, lanes, twos, threes, out);
}

HWY_INLINE bool areBelow(WideTag d, WideVec units, uint32_t powerOfTwo) {
  return hn::AllTrue(d, hn::Eq(hn::And(units, hn::Set(d, ~(powerOfTwo - 1))), hn::Zero(d)));
}

HWY_INLINE void narrowAscii(WideTag d, WideVec units, char* out) {
  const hn::Rebind<uint8_t, WideTag> d8;
  const hn::RebindToSigned<WideTag> ds;
  hn::StoreU(hn::DemoteTo(d8, hn::BitCast(ds, units)), d8, reinterpret_cast<uint8_t*>(out));
}

// Where an encoder stands: what it has read and what it has written.
struct Encoder {
  const wchar_t* units;
  size_t count;
  char* out;
  size_t at;
  size_t bytes;
};

void encodeScalar(Encoder& encoder, size_t end) {
  while (encoder.at < end) {
    const Utf16Character character =
        decodeUtf16(encoder.units + encoder.at, encoder.count - encoder.at);
    encoder.bytes += putUtf8(character.codePoint, encoder.out + encoder.bytes);
    encoder.at += character.size;
  }
}

// The second half of a pair whose first half a block has written.
void finishPair(Encoder& encoder) {
  if (encoder.at == 0 || encoder.at >= encoder.count) return;
  if (!splitsPair(encoder.units + encoder.at)) return;
  const uint32_t high = elementValue(encoder.units[encoder.at - 1]);
  const uint32_t low = elementValue(encoder.units[encoder.at]);
  encoder.out[encoder.bytes++] = static_cast<char>(0x80 | (high & 3) << 4 | (low >> 6 & 15));
  encoder.out[encoder.bytes++] = static_cast<char>(0x80 | (low & 0x3F));
  ++encoder.at;
}

size_t utf16ToUtf8(const wchar_t* units, size_t count, char* out) {
  const WideTag d;
  const size_t step = hn::Lanes(d);
  Encoder encoder{units, count, out, 0, 0};
  while (encoder.at + step <= count) {
    const wchar_t* at = units + encoder.at;
    char* to = out + encoder.bytes;
    const auto block = hn::LoadU(d, lanesOf(at));
    if (areBelow(d, block, 0x80)) {
      narrowAscii(d, block, to);
      encoder.bytes += step;
      encoder.at += step;
      continue;
    }
    // What a block writes too much each unit to follow gives room for: a byte at least.
    if (encoder.at + step + kPackMargin > count) break;
    if (encoder.at == 0) {
      // Blocks look at the unit before them.
      encodeScalar(encoder, 1);
      continue;
    }
#if HWY_TARGET == HWY_AVX3_DL
    if (encoder.at + 2 * step + kPackMargin <= count) {
      const auto next = hn::LoadU(d, lanesOf(at + step));
      const auto both = hn::Or(block, next);
      if (areBelow(d, both, 0x800)) {
        encoder.bytes += encodeTwos(d, block, next, to);
        encoder.at += 2 * step;
        continue;
      }
      if (areUnits(d, both)) {
        if (hasSurrogates(d, block) || hasSurrogates(d, next)) {
          const size_t bytes = encodeBlock<true>(d, block, at, to);
          encoder.bytes += bytes + encodeBlock<true>(d, next, at + step, to + bytes);
        } else {
          const size_t bytes = encodeBlock<false>(d, block, at, to);
          encoder.bytes += bytes + encodeBlock<false>(d, next, at + step, to + bytes);
        }
        encoder.at += 2 * step;
        continue;
      }
    }
#endif
    if (areUnits(d, block)) {
      encoder.bytes += hasSurrogates(d, block) ? encodeBlock<true>(d, block, at, to)
                                               : encodeBlock<false>(d, block, at, to);
      encoder.at += step;
    } else {
      finishPair(encoder);
      encodeScalar(encoder, encoder.at + step);
    }
  }
  finishPair(encoder);
  encodeScalar(encoder, count);
  return encoder.bytes;
}

const NarrowingKernels* narrowingKernels() {
  static constexpr NarrowingKernels kKernels = {utf8Length, utf16ToUtf8};
  return &kKernels;
}

#endif

}  // namespace
}  // namespace zel::platform::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::platform {

HWY_EXPORT(narrowingKernels);

const NarrowingKernels& vectorNarrowingKernels() {
  return *HWY_DYNAMIC_DISPATCH(narrowingKernels)();
}

}  // namespace zel::platform
#endif
