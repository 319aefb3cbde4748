#pragma once

#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

// Plain values with public fields. All start out zero.

/// A fraction of two numbers of 16 bits, as it was given: nothing reduces it.
struct ZEL_API Rational16 {
  Rational16();
  /// `numerator / denominator`.
  Rational16(int16_t numerator, int16_t denominator);
  /// The quotient; with a zero denominator an infinity or not a number.
  double ToDouble() const;

  int16_t numerator;
  int16_t denominator;
};

/// A fraction of two numbers of 32 bits, as it was given: nothing reduces it.
struct ZEL_API Rational32 {
  Rational32();
  /// `numerator / denominator`.
  Rational32(int32_t numerator, int32_t denominator);
  /// The quotient; with a zero denominator an infinity or not a number.
  double ToDouble() const;

  int32_t numerator;
  int32_t denominator;
};

/// A fraction of two numbers of 64 bits, as it was given: nothing reduces it.
struct ZEL_API Rational64 {
  Rational64();
  /// `numerator / denominator`.
  Rational64(int64_t numerator, int64_t denominator);
  /// The quotient; with a zero denominator an infinity or not a number.
  double ToDouble() const;
  operator double() const;

  int64_t numerator;
  int64_t denominator;
};

/// Four values in the order in which they are given. Whether they are edges, or a corner and a
/// size, is between those who write and read them.
struct ZEL_API Rectangle16 {
  Rectangle16();
  /// Four values in this order.
  Rectangle16(int16_t first, int16_t second, int16_t third, int16_t fourth);

  int16_t first;
  int16_t second;
  int16_t third;
  int16_t fourth;
};

/// The same with wider values.
struct ZEL_API Rectangle32 {
  Rectangle32();
  /// Four values in this order.
  Rectangle32(int32_t first, int32_t second, int32_t third, int32_t fourth);

  int32_t first;
  int32_t second;
  int32_t third;
  int32_t fourth;
};

/// The layout of Rectangle16, to be filled and assigned.
struct ZEL_API Rectangle {
  Rectangle& operator=(Rectangle const& other);

  int16_t first = 0;
  int16_t second = 0;
  int16_t third = 0;
  int16_t fourth = 0;
};

/// A globally unique identifier (RFC 4122) as four parts in the machine's byte order.
struct ZEL_API _Guid {
  bool operator==(_Guid const& other) const;
  bool operator!=(_Guid const& other) const;
  /// Converts between the little-endian and the big-endian wire form: reverses the bytes of each of
  /// the first three parts. The last eight bytes are the same in both.
  void Swap();

  uint32_t data1 = 0;
  uint16_t data2 = 0;
  uint16_t data3 = 0;
  uint8_t data4[8] = {};
};

}  // namespace Morvalen::Zel
