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

#include <algorithm>
#include <cstdint>

#include "zel/platform/text_conversion_tables.h"
#include "zel/platform/utf8_step.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/platform/utf8_to_utf16_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zel::platform::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR

// Emulated vectors would be slower than the definition.
const WideningKernels* wideningKernels() {
  return &scalarTextKernels();
}

#else

namespace hn = hwy::HWY_NAMESPACE;

static_assert(sizeof(wchar_t) == 4, "the lanes of the kernels are those of a 32-bit wchar_t");

const uint8_t* bytesOf(const char* text) {
  return reinterpret_cast<const uint8_t*>(text);
}

bool isContinuation(uint8_t byte) {
  return (byte & 0xC0) == 0x80;
}

template <class D8>
HWY_INLINE bool isAscii(D8 d8, hn::Vec<D8> bytes) {
  const hn::RebindToSigned<D8> ds;
  return hn::AllFalse(ds, hn::Lt(hn::BitCast(ds, bytes), hn::Zero(ds)));
}

// ---- How far UTF-8 is well-formed

struct Scan {
  size_t size;   // bytes that are well-formed, whole characters
  size_t units;  // UTF-16 units that they make
};

// Bytes before `at`, 3 at most, of a character that goes on at `at` or behind. The first three
// bytes of a text are behind `at`, or `at` is 0.
size_t openBytes(const uint8_t* text, size_t at) {
  if (at == 0) return 0;
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

enum class ScanEnd { NoRoom, NotAscii, IllFormed };

// Scans by blocks, which may leave a character open at `scan.size`. The beginning of a text, which
// has no three bytes before it to look at, is scanned as far as it is ASCII.
template <class D>
HWY_INLINE ScanEnd scanBlocks(D d, const uint8_t* text, size_t limit, Scan& scan) {
  const size_t step = hn::Lanes(d);
  const hn::RebindToSigned<D> ds;
  for (; scan.size + step <= limit; scan.size += step) {
    const uint8_t* at = text + scan.size;
    const auto bytes = hn::LoadU(d, at);
    if (isAscii(d, bytes)) {
      if (openBytes(text, scan.size) != 0) return ScanEnd::IllFormed;
      scan.units += step;
      continue;
    }
    if (scan.size == 0) return ScanEnd::NotAscii;
    if (!isWellFormed(d, bytes, at)) return ScanEnd::IllFormed;
    // One unit for each byte but continuations (80..BF, below C0 as signed), and one more for each
    // from F0 on: the end of a block may hold a lead that is ill-formed, but it is open then.
    const auto lead = hn::Set(d, 0xF0);
    scan.units += hn::CountTrue(ds, hn::Gt(hn::BitCast(ds, bytes), hn::Set(ds, -0x41)));
    scan.units += hn::CountTrue(d, hn::Eq(hn::And(bytes, lead), lead));
  }
  return ScanEnd::NoRoom;
}

// Scans whole characters until `limit`, of `size` bytes, or until they are ill-formed.
Scan scan(const uint8_t* text, size_t limit, size_t size) {
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
  const hn::ScalableTag<uint8_t> d;
  const hn::CappedTag<uint8_t, 16> small;
  ScanEnd end = scanBlocks(d, text, limit, result);
  if (result.size == 0) {
    // Three bytes by hand; what follows has enough before it.
    if (!scalarUntil(std::min<size_t>(3, limit))) return result;
    end = scanBlocks(d, text, limit, result);
  }
  if (end != ScanEnd::IllFormed) scanBlocks(small, text, limit, result);
  // Back to where the last character started that isn't whole yet.
  if (result.size >= 3) {
    const size_t open = openBytes(text, result.size);
    if (open != 0) result.units -= text[result.size - open] >= 0xF0 ? 2 : 1;
    result.size -= open;
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

template <class D>
HWY_INLINE void storeWide(D d, hn::Vec<D> units, wchar_t* out) {
  auto* lanes = reinterpret_cast<uint32_t*>(out);
  if constexpr (hn::MaxLanes(D()) * sizeof(uint32_t) <= HWY_MAX_BYTES) {
    const hn::Rebind<uint32_t, D> d32;
    hn::StoreU(hn::PromoteTo(d32, units), d32, lanes);
  } else {
    const hn::Half<D> half;
    const hn::Rebind<uint32_t, decltype(half)> d32;
    hn::StoreU(hn::PromoteTo(d32, hn::LowerHalf(half, units)), d32, lanes);
    hn::StoreU(hn::PromoteTo(d32, hn::UpperHalf(half, units)), d32, lanes + hn::Lanes(d32));
  }
}

// Stores the lanes that count, in front of others that don't; how many there are.
#if HWY_TARGET == HWY_AVX3_DL

using UnitTag = hn::ScalableTag<uint16_t>;

template <class D>
HWY_INLINE size_t storeCounting(D d, hn::Vec<D> units, hn::Mask<D> counts, wchar_t* out) {
  storeWide(d, hn::Compress(units, counts), out);
  return hn::CountTrue(d, counts);
}

#else

using UnitTag = hn::CappedTag<uint16_t, 16>;

template <class D>
HWY_INLINE size_t storeEight(D d, hn::Vec<D> units, uint8_t counts, wchar_t* out) {
  const hn::Repartition<uint8_t, D> d8;
  const auto shuffle = hn::Load(d8, kKeep.shuffle[counts].data());
  storeWide(d, hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(d8, units), shuffle)), out);
  return hwy::PopCount(counts);
}

// Not by hn::Compress, whose table of this size the compiler puts on the stack at each call.
template <class D>
HWY_INLINE size_t storeCounting(D d, hn::Vec<D> units, hn::Mask<D> counts, wchar_t* out) {
  uint8_t bits[8] = {};
  hn::StoreMaskBits(d, counts, bits);
  if constexpr (hn::MaxLanes(D()) == 8) {
    return storeEight(d, units, bits[0], out);
  } else {
    const hn::Half<D> half;
    const size_t first = storeEight(half, hn::LowerHalf(half, units), bits[0], out);
    return first + storeEight(half, hn::UpperHalf(half, units), bits[1], out + first);
  }
}

#endif

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
  return storeCounting(d, units, counts, out);
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

// Goes on by blocks of as many bytes as `d8` has lanes, while a block of ASCII fits before `end`,
// or another one before `blocksEnd`.
template <class D8, class D>
HWY_INLINE void decodeBlocks(D8 d8, D d, Decoder& decoder, size_t end, size_t blocksEnd) {
  const size_t step = hn::Lanes(d8);
  const size_t unitStep = hn::Lanes(d);
  const auto lead = hn::Set(d8, 0xF0);  // of a character of four, in well-formed text
  while (decoder.at + step <= end) {
    const uint8_t* at = decoder.text + decoder.at;
    const auto bytes = hn::LoadU(d8, at);
    if (isAscii(d8, bytes)) {
      widenAscii(at, step, decoder.out + decoder.units);
      decoder.units += step;
      decoder.at += step;
      continue;
    }
    if (decoder.at + step > blocksEnd) return;
    if (decoder.at == 0) {
      // Blocks look at the byte before them, which has to be of this piece.
      decodeScalar(decoder, 1);
      continue;
    }
    const bool mayHavePairs =
        !hn::AllFalse(d8, hn::Eq(hn::And(bytes, lead), lead)) || at[-1] >= 0xF0;
    for (size_t i = 0; i < step; i += unitStep) {
      wchar_t* out = decoder.out + decoder.units;
      decoder.units +=
          mayHavePairs ? decodeBlock<true>(d, at + i, out) : decodeBlock<false>(d, at + i, out);
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
  const auto blocksEnd = [&](size_t lanes) {
    return size + spare > 3 * lanes ? std::min(size, size + spare - 3 * lanes) : 0;
  };
  const hn::ScalableTag<uint8_t> d8;
  const hn::CappedTag<uint8_t, 16> small8;
  const UnitTag d;
  const hn::CappedTag<uint16_t, 8> small;
  decodeBlocks(d8, d, decoder, size, blocksEnd(hn::Lanes(d)));
  decodeBlocks(small8, small, decoder, size, blocksEnd(hn::Lanes(small)));
  if (decoder.at > 0 && text[decoder.at - 1] >= 0xF0) {
    // The rest of a character across the border is its low surrogate.
    const uint8_t* at = text + decoder.at;
    out[decoder.units++] = static_cast<wchar_t>(0xDC00 | (at[1] & 0x0F) << 6 | (at[2] & 0x3F));
  }
  while (decoder.at > 0 && decoder.at < size && isContinuation(text[decoder.at])) ++decoder.at;
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

const WideningKernels* wideningKernels() {
  static constexpr WideningKernels kKernels = {utf16Length, utf8ToUtf16};
  return &kKernels;
}

#endif

}  // namespace
}  // namespace zel::platform::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::platform {

HWY_EXPORT(wideningKernels);

const WideningKernels& vectorWideningKernels() {
  return *HWY_DYNAMIC_DISPATCH(wideningKernels)();
}

}  // namespace zel::platform
#endif
