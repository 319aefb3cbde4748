// Compression of 16-bit lanes in one instruction, which this target has, is what decoding waits
// for.
#define HWY_WANT_AVX3_DL

#include "zel/platform/text_kernels.h"

// UTF-8 to UTF-16 runs in two steps over pieces that stay in the first-level cache. `scan` finds
// how far the bytes are well-formed, and counts their units on the way; `decode` then needs no
// check at all, and what is ill-formed goes through the scalar step, one sequence at a time.
//
// `scan` classifies each byte by its own upper half and both halves of the byte before it: three
// table look-ups whose conjunction tells every error of two bytes at once. What follows third and
// fourth in a sequence is compared with what should.
//
// `decode` treats every byte as if a character started there: it computes the unit that this
// would give, in lanes of 16 bits, from the byte and its two successors, and then drops the
// lanes of continuation bytes by compression. The second byte of a character of four gives the low
// surrogate, so that also these need no detour. Blocks advance by a fixed number of bytes; a
// character may lie across their border.
//
// UTF-16 to UTF-8 puts each unit's one to three bytes into a lane of 32 bits, two for either half
// of a surrogate pair, which depends on the unit and its neighbours only, and packs four lanes at a
// time by a byte shuffle from a table.

#include <algorithm>
#include <array>
#include <cstdint>

#include "zel/platform/utf8_step.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/platform/text_conversion_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#ifndef ZEL_TEXT_CONVERSION_TABLES
#define ZEL_TEXT_CONVERSION_TABLES
namespace zel::platform {
namespace {

static_assert(sizeof(wchar_t) == 4, "the lanes of the kernels are those of a 32-bit wchar_t");

// Two bytes in a row, by the upper (H) and lower (L) half of the first and the upper half (C) of
// the second, are ill-formed if all three lie in the sets of one rule. The Unicode Standard, table
// 3-7.
struct PairRule {
  uint16_t firstHigh, firstLow, secondHigh;  // sets of halves: bit n for the value n
  uint8_t flag;
};
constexpr uint16_t kAscii = 0x00FF, kContinuation = 0x0F00, kLead = 0xF000, kAny = 0xFFFF;
constexpr uint16_t half(int value) {
  return static_cast<uint16_t>(1 << value);
}
constexpr uint8_t kTwoContinuations = 0x80;  // no error by itself: a third or fourth byte
constexpr PairRule kPairRules[] = {
    {kLead, kAny, static_cast<uint16_t>(~kContinuation), 0x01},  // a sequence ends early
    {kAscii, kAny, kContinuation, 0x02},                         // continuation of nothing
    {half(0xE), half(0), half(8) | half(9), 0x04},               // overlong: E0 80..9F
    {half(0xE), half(0xD), half(0xA) | half(0xB), 0x08},         // surrogate: ED A0..BF
    {half(0xC), half(0) | half(1), kContinuation, 0x10},         // overlong: C0, C1
    {half(0xF), 0xFFF0, half(9) | half(0xA) | half(0xB), 0x20},  // beyond: F4 90.., F5..
    {half(0xF), half(0) | 0xFFE0, half(8), 0x40},                // overlong F0 80, or F5.. 80
    {kContinuation, kAny, kContinuation, kTwoContinuations},
};

enum class PairTable { FirstHigh, FirstLow, SecondHigh };

constexpr std::array<uint8_t, 16> pairTable(PairTable which) {
  std::array<uint8_t, 16> table{};
  for (const PairRule& rule : kPairRules) {
    const uint16_t halves = which == PairTable::FirstHigh  ? rule.firstHigh
                            : which == PairTable::FirstLow ? rule.firstLow
                                                           : rule.secondHigh;
    for (size_t value = 0; value < 16; ++value) {
      if (halves >> value & 1) table[value] = static_cast<uint8_t>(table[value] | rule.flag);
    }
  }
  return table;
}
alignas(16) constexpr std::array<uint8_t, 16> kFirstHigh = pairTable(PairTable::FirstHigh);
alignas(16) constexpr std::array<uint8_t, 16> kFirstLow = pairTable(PairTable::FirstLow);
alignas(16) constexpr std::array<uint8_t, 16> kSecondHigh = pairTable(PairTable::SecondHigh);

// Shuffles that pack four lanes of four bytes, of which the first one, two or three count. The
// index has a bit for each lane with two bytes or more, and above these one for each with three.
struct PackTable {
  std::array<uint8_t, 16> shuffle[256];
};
constexpr PackTable makePackTable() {
  PackTable table{};
  for (unsigned index = 0; index < 256; ++index) {
    size_t to = 0;
    for (unsigned lane = 0; lane < 4; ++lane) {
      const unsigned bytes = 1 + (index >> lane & 1) + (index >> (lane + 4) & 1);
      for (unsigned byte = 0; byte < bytes; ++byte) {
        table.shuffle[index][to++] = static_cast<uint8_t>(4 * lane + byte);
      }
    }
  }
  return table;
}
alignas(16) constexpr PackTable kPack = makePackTable();

}  // namespace
}  // namespace zel::platform
#endif

HWY_BEFORE_NAMESPACE();
namespace zel::platform::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR

// Emulated vectors would be slower than the definition.
const TextKernels* kernels() {
  return &scalarTextKernels();
}

#else

const uint8_t* bytesOf(const char* text) {
  return reinterpret_cast<const uint8_t*>(text);
}

bool isContinuation(uint8_t byte) {
  return (byte & 0xC0) == 0x80;
}

// ---- How far UTF-8 is well-formed

struct Scan {
  size_t size;   // bytes that are well-formed, whole characters
  size_t units;  // UTF-16 units that they make
};

// Bytes before `at`, 3 at most, of a character that goes on at `at` or behind.
size_t openBytes(const uint8_t* text, size_t at) {
  if (text[at - 1] >= 0xC0) return 1;
  if (text[at - 2] >= 0xE0) return 2;
  return text[at - 3] >= 0xF0 ? 3 : 0;
}

template <class D>
HWY_INLINE hn::Vec<D> pairErrors(D d, hn::Vec<D> bytes, const uint8_t* at) {
  const auto lowHalf = hn::Set(d, 0x0F);
  const auto before = hn::LoadU(d, at - 1);
  // A shift of 16-bit lanes with a mask: there is none of bytes.
  const hn::Repartition<uint16_t, D> d16;
  const auto high = [&](hn::Vec<D> v) HWY_ATTR {
    return hn::And(hn::BitCast(d, hn::ShiftRight<4>(hn::BitCast(d16, v))), lowHalf);
  };
  const auto byFirstHigh = hn::TableLookupBytes(hn::LoadDup128(d, kFirstHigh.data()), high(before));
  const auto byFirstLow =
      hn::TableLookupBytes(hn::LoadDup128(d, kFirstLow.data()), hn::And(before, lowHalf));
  const auto bySecond = hn::TableLookupBytes(hn::LoadDup128(d, kSecondHigh.data()), high(bytes));
  return hn::And(hn::And(byFirstHigh, byFirstLow), bySecond);
}

// Whether a block is well-formed as far as it goes, given that what stands before it is.
template <class D>
HWY_INLINE bool isWellFormed(D d, hn::Vec<D> bytes, const uint8_t* at) {
  const auto errors = pairErrors(d, bytes, at);
  // The top bit stands where the second byte before starts a sequence of three or more, or the
  // third before one of four; there, and only there, two continuation bytes follow each other.
  const auto third = hn::SaturatedSub(hn::LoadU(d, at - 2), hn::Set(d, 0xE0 - 0x80));
  const auto fourth = hn::SaturatedSub(hn::LoadU(d, at - 3), hn::Set(d, 0xF0 - 0x80));
  const auto expected = hn::And(hn::Or(third, fourth), hn::Set(d, kTwoContinuations));
  return hn::AllTrue(d, hn::Eq(errors, expected));
}

// Scans whole characters until `limit`, of `size` bytes, or until they are ill-formed.
Scan scan(const uint8_t* text, size_t limit, size_t size) {
  const hn::ScalableTag<uint8_t> d;
  const size_t step = hn::Lanes(d);
  Scan result{0, 0};
  const auto scalarUntil = [&](size_t end) {
    while (result.size < end) {
      const Utf8Character character = decodeUtf8(text + result.size, size - result.size);
      if (!character.wellFormed) return false;
      result.size += character.size;
      result.units += character.codePoint < 0x10000 ? 1 : 2;
    }
    return true;
  };
  // The blocks look at three bytes before them.
  if (!scalarUntil(std::min<size_t>(3, limit))) return result;
  size_t at = result.size;
  for (; at + step <= limit; at += step) {
    const auto bytes = hn::LoadU(d, text + at);
    const auto signedBytes = hn::BitCast(hn::RebindToSigned<decltype(d)>(), bytes);
    const hn::RebindToSigned<decltype(d)> ds;
    if (hn::AllFalse(ds, hn::Lt(signedBytes, hn::Zero(ds)))) {
      if (openBytes(text, at) != 0) break;
      result.units += step;
      continue;
    }
    if (!isWellFormed(d, bytes, text + at)) break;
    // One unit for each byte but continuations (80..BF: below C0 as signed), one more for each lead
    // of four (F0 and above; the end of
    // a block may hold one that is ill-formed, and is then gone back over).
    result.units += hn::CountTrue(ds, hn::Gt(signedBytes, hn::Set(ds, -0x41)));
    const auto fours = hn::Eq(hn::And(bytes, hn::Set(d, 0xF0)), hn::Set(d, 0xF0));
    result.units += hn::CountTrue(d, fours);
  }
  // Back to where the last character started that isn't whole yet.
  if (at > result.size) {
    const size_t open = openBytes(text, at);
    if (open != 0) result.units -= text[at - open] >= 0xF0 ? 2 : 1;
    result.size = at - open;
  }
  scalarUntil(limit);
  return result;
}

size_t utf16Length(const char* text, size_t size) {
  size_t units = 0;
  for (size_t at = 0; at < size;) {
    const Scan piece = scan(bytesOf(text) + at, size - at, size - at);
    units += piece.units;
    at += piece.size;
    if (at == size) break;
    at += decodeUtf8(bytesOf(text) + at, size - at).size;
    ++units;
  }
  return units;
}

// ---- UTF-8 to UTF-16

// Lanes of 16 bits to a block: where compression of them is one instruction, all that there are.
#if HWY_TARGET == HWY_AVX3_DL
using UnitTag = hn::ScalableTag<uint16_t>;
#else
using UnitTag = hn::CappedTag<uint16_t, 8>;
#endif

template <class D>
HWY_INLINE void storeWide(D d, hn::Vec<D> units, wchar_t* out) {
  const hn::Half<D> dh;
  const hn::Rebind<uint32_t, decltype(dh)> d32;
  auto* lanes = reinterpret_cast<uint32_t*>(out);
  hn::StoreU(hn::PromoteTo(d32, hn::LowerHalf(dh, units)), d32, lanes);
  hn::StoreU(hn::PromoteTo(d32, hn::UpperHalf(dh, units)), d32, lanes + hn::Lanes(d32));
}

// Decodes the characters that start in the block's bytes; `kPairs` where one of them may be a byte
// of a character of four. Reads one byte before the block and two behind, and writes a block's
// lanes, of which the result says how many count.
template <bool kPairs, class D>
HWY_INLINE size_t decodeBlock(D d, const uint8_t* at, wchar_t* out) {
  const hn::Rebind<uint8_t, D> d8;
  const auto load = [&](ptrdiff_t offset)
                        HWY_ATTR { return hn::PromoteTo(d, hn::LoadU(d8, at + offset)); };
  // All values are below 0x100, so that comparisons of signed lanes do, which all targets have.
  const hn::RebindToSigned<D> ds;
  const auto isBelow = [&](hn::Vec<D> v, int16_t bound) HWY_ATTR {
    return hn::RebindMask(d, hn::Lt(hn::BitCast(ds, v), hn::Set(ds, bound)));
  };
  const auto sixBits = hn::Set(d, 0x3F);
  const auto first = load(0);
  const auto second = hn::And(load(1), sixBits);
  const auto third = hn::And(load(2), sixBits);
  const auto two = hn::Or(hn::ShiftLeft<6>(hn::And(first, hn::Set(d, 0x1F))), second);
  // The shift leaves four bits of a lead of three.
  const auto three = hn::Or(hn::Or(hn::ShiftLeft<12>(first), hn::ShiftLeft<6>(second)), third);
  auto units =
      hn::IfThenElse(isBelow(first, 0x80), first, hn::IfThenElse(isBelow(first, 0xE0), two, three));
  const auto continuation = hn::Eq(hn::And(first, hn::Set(d, 0xC0)), hn::Set(d, 0x80));
  auto counts = hn::Not(continuation);
  if constexpr (kPairs) {
    // The code point less 0x10000, shifted by ten, on top of 0xD800.
    const auto high = hn::Add(hn::Set(d, 0xD7C0),
                              hn::Or(hn::ShiftLeft<8>(hn::And(first, hn::Set(d, 0x07))),
                                     hn::Or(hn::ShiftLeft<2>(second), hn::ShiftRight<4>(third))));
    // At the second byte of four, so that `second` and `third` are the third and fourth.
    const auto low = hn::Or(hn::Set(d, 0xDC00),
                            hn::Or(hn::And(hn::ShiftLeft<6>(second), hn::Set(d, 0x3C0)), third));
    const auto behindFour = hn::Not(isBelow(load(-1), 0xF0));
    units = hn::IfThenElse(isBelow(first, 0xF0), units, high);
    units = hn::IfThenElse(behindFour, low, units);
    counts = hn::Or(counts, behindFour);
  }
  storeWide(d, hn::Compress(units, counts), out);
  return hn::CountTrue(d, counts);
}

HWY_INLINE void widenAscii(const uint8_t* at, size_t count, wchar_t* out) {
  const hn::ScalableTag<uint32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  for (size_t i = 0; i < count; i += hn::Lanes(d32)) {
    hn::StoreU(hn::PromoteTo(d32, hn::LoadU(d8, at + i)), d32,
               reinterpret_cast<uint32_t*>(out) + i);
  }
}

// Where a decoder stands: what it has read of a well-formed piece, and what it has written.
struct Decoder {
  const uint8_t* text;
  wchar_t* out;
  size_t at;
  size_t units;
};

HWY_INLINE void decodeScalar(Decoder& decoder, size_t end) {
  while (decoder.at < end) {
    // A piece is well-formed, so a character that starts in it ends in it.
    const Utf8Character character = decodeUtf8(decoder.text + decoder.at, 4);
    decoder.units += putUtf16(character.codePoint, decoder.out + decoder.units);
    decoder.at += character.size;
  }
}

// Goes on by blocks of as many bytes as `d8` has lanes, until `end` or less than a block before it.
template <class D8, class D>
HWY_INLINE void decodeBlocks(D8 d8, D d, Decoder& decoder, size_t end) {
  const hn::RebindToSigned<D8> ds8;
  const size_t step = hn::Lanes(d8);
  const size_t unitStep = hn::Lanes(d);
  const auto lead = hn::Set(d8, 0xF0);  // of a character of four, in well-formed text
  while (decoder.at + step <= end) {
    const uint8_t* at = decoder.text + decoder.at;
    const auto bytes = hn::LoadU(d8, at);
    if (hn::AllFalse(ds8, hn::Lt(hn::BitCast(ds8, bytes), hn::Zero(ds8)))) {
      widenAscii(at, step, decoder.out + decoder.units);
      decoder.units += step;
    } else if (hn::AllFalse(d8, hn::Eq(hn::And(bytes, lead), lead)) && at[-1] < 0xF0) {
      for (size_t i = 0; i < step; i += unitStep) {
        decoder.units += decodeBlock<false>(d, at + i, decoder.out + decoder.units);
      }
    } else {
      for (size_t i = 0; i < step; i += unitStep) {
        decoder.units += decodeBlock<true>(d, at + i, decoder.out + decoder.units);
      }
    }
    decoder.at += step;
  }
}

// Decodes a well-formed piece of `size` bytes, behind which `spare` more bytes of text follow.
size_t decode(const uint8_t* text, size_t size, size_t spare, wchar_t* out) {
  Decoder decoder{text, out, 0, 0};
  // A block writes all its lanes. Behind a block there is room for one unit to three bytes of text,
  // which is room enough while three times the lanes follow; that also covers the two bytes that a
  // block looks ahead.
  const auto endFor = [&](size_t lanes) {
    return size + spare > 3 * lanes ? std::min(size, size + spare - 3 * lanes) : 0;
  };
  const hn::ScalableTag<uint8_t> d8;
  const hn::CappedTag<uint8_t, 16> small8;
  const UnitTag d;
  const hn::CappedTag<uint16_t, 8> small;
  // Blocks look at the byte before them, which has to be of this piece.
  decodeScalar(decoder, std::min<size_t>(1, size));
  decodeBlocks(d8, d, decoder, endFor(hn::Lanes(d)));
  if (hn::Lanes(d8) > hn::Lanes(small8)) {
    decodeBlocks(small8, small, decoder, endFor(hn::Lanes(small)));
  }
  if (decoder.at == 0) return 0;
  // The rest of a character across the border: its low surrogate, or nothing.
  if (text[decoder.at - 1] >= 0xF0) {
    const uint8_t* at = text + decoder.at;
    out[decoder.units++] = static_cast<wchar_t>(0xDC00 | (at[1] & 0x0F) << 6 | (at[2] & 0x3F));
  }
  while (decoder.at < size && isContinuation(text[decoder.at])) ++decoder.at;
  decodeScalar(decoder, size);
  return decoder.units;
}

size_t utf8ToUtf16(const char* text, size_t size, wchar_t* out) {
  // Small enough that what `scan` read is near when `decode` reads it.
  constexpr size_t kPiece = 8192;
  const uint8_t* bytes = bytesOf(text);
  size_t units = 0;
  for (size_t at = 0; at < size;) {
    const size_t limit = std::min(kPiece, size - at);
    const Scan piece = scan(bytes + at, limit, size - at);
    units += decode(bytes + at, piece.size, size - at - piece.size, out + units);
    at += piece.size;
    if (piece.size >= limit) continue;
    const Utf8Character character = decodeUtf8(bytes + at, size - at);
    units += putUtf16(character.codePoint, out + units);
    at += character.size;
  }
  return units;
}

// ---- UTF-16 to UTF-8

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
  return isHighSurrogate(static_cast<uint32_t>(at[-1])) &&
         isLowSurrogate(static_cast<uint32_t>(at[0]));
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

// Compression of bytes in one instruction packs all lanes at once. Measured against the shuffles
// below: see the figures of the change that brought it.
HWY_INLINE size_t packLanes(WideTag d, WideVec lanes, WideMask twos, WideMask threes, char* out) {
  const hn::Repartition<uint8_t, WideTag> d8;
  const auto second = hn::IfThenElseZero(twos, hn::Set(d, 0xFF00));
  const auto third = hn::IfThenElseZero(threes, hn::Set(d, 0xFF0000));
  const auto counts = hn::Or(hn::Set(d, 0xFF), hn::Or(second, third));
  const auto mask = hn::MaskFromVec(hn::BitCast(d8, counts));
  hn::StoreU(hn::Compress(hn::BitCast(d8, lanes), mask), d8, reinterpret_cast<uint8_t*>(out));
  return hn::CountTrue(d8, mask);
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

HWY_INLINE WideVec continuation(WideTag d, WideVec sixBits) {
  return hn::Or(hn::And(sixBits, hn::Set(d, 0x3F)), hn::Set(d, 0x80));
}

HWY_INLINE size_t encodeBlock(WideTag d, WideVec units, const wchar_t* at, char* out) {
  const bool surrogates = hasSurrogates(d, units);
  Surrogates found{};
  if (surrogates) {
    found = surrogatesOf(d, units, at);
    units = hn::IfThenElse(found.lone, hn::Set(d, 0xFFFD), units);
  }
  const auto twos = isAbove(d, units, 0x7F);
  auto threes = isAbove(d, units, 0x7FF);
  const auto last = continuation(d, units);
  const auto middle = continuation(d, hn::ShiftRight<6>(units));
  const auto two =
      hn::Or(hn::Or(hn::ShiftRight<6>(units), hn::Set(d, 0xC0)), hn::ShiftLeft<8>(last));
  const auto three = hn::Or(hn::Or(hn::ShiftRight<12>(units), hn::Set(d, 0xE0)),
                            hn::Or(hn::ShiftLeft<8>(middle), hn::ShiftLeft<16>(last)));
  auto lanes = hn::IfThenElse(threes, three, hn::IfThenElse(twos, two, units));
  if (surrogates) {
    // The upper eleven bits of the code point, of which the last two go with the low surrogate.
    const auto upper = hn::Add(hn::And(units, hn::Set(d, 0x3FF)), hn::Set(d, 0x40));
    const auto high = hn::Or(hn::Or(hn::ShiftRight<8>(upper), hn::Set(d, 0xF0)),
                             hn::ShiftLeft<8>(continuation(d, hn::ShiftRight<2>(upper))));
    const auto before = hn::LoadU(d, lanesOf(at - 1));
    const auto joint = hn::Or(hn::ShiftLeft<4>(hn::And(before, hn::Set(d, 3))),
                              hn::And(hn::ShiftRight<6>(units), hn::Set(d, 15)));
    const auto low = hn::Or(continuation(d, joint), hn::ShiftLeft<8>(last));
    lanes = hn::IfThenElse(found.pairHigh, high, hn::IfThenElse(found.pairLow, low, lanes));
    threes = hn::AndNot(hn::Or(found.pairHigh, found.pairLow), threes);
  }
  return packLanes(d, lanes, twos, threes, out);
}

HWY_INLINE void narrowAscii(WideTag d, WideVec units, char* out) {
  const hn::Rebind<uint8_t, WideTag> d8;
  const hn::RebindToSigned<WideTag> ds;
  hn::StoreU(hn::DemoteTo(d8, hn::BitCast(ds, units)), d8, reinterpret_cast<uint8_t*>(out));
}

size_t utf16ToUtf8(const wchar_t* units, size_t count, char* out) {
  const WideTag d;
  const size_t step = hn::Lanes(d);
  size_t bytes = 0;
  size_t at = 0;
  const auto scalarUntil = [&](size_t end) {
    while (at < end) {
      const Utf16Character character = decodeUtf16(units + at, count - at);
      bytes += putUtf8(character.codePoint, out + bytes);
      at += character.size;
    }
  };
  // The second half of a pair whose first half a block has written.
  const auto finishPair = [&] {
    const auto high = static_cast<uint32_t>(units[at - 1]);
    const auto low = static_cast<uint32_t>(units[at]);
    out[bytes++] = static_cast<char>(0x80 | (high & 3) << 4 | (low >> 6 & 15));
    out[bytes++] = static_cast<char>(0x80 | (low & 0x3F));
    ++at;
  };
  // Blocks look at the unit before them.
  scalarUntil(std::min<size_t>(1, count));
  // What they write too many each unit to follow gives room for: a byte at least.
  while (at + step + kPackMargin <= count) {
    const auto block = hn::LoadU(d, lanesOf(units + at));
    if (hn::AllTrue(d, hn::Eq(hn::And(block, hn::Set(d, 0xFFFFFF80)), hn::Zero(d)))) {
      narrowAscii(d, block, out + bytes);
      bytes += step;
      at += step;
    } else if (areUnits(d, block)) {
      bytes += encodeBlock(d, block, units + at, out + bytes);
      at += step;
    } else {
      if (splitsPair(units + at)) finishPair();
      scalarUntil(at + step);
    }
  }
  if (at < count && at > 0 && splitsPair(units + at)) finishPair();
  scalarUntil(count);
  return bytes;
}

const TextKernels* kernels() {
  static constexpr TextKernels kKernels = {utf16Length, utf8ToUtf16, utf8Length, utf16ToUtf8};
  return &kKernels;
}

#endif

}  // namespace
}  // namespace zel::platform::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::platform {

HWY_EXPORT(kernels);

const TextKernels& vectorTextKernels() {
  return *HWY_DYNAMIC_DISPATCH(kernels)();
}

}  // namespace zel::platform
#endif
