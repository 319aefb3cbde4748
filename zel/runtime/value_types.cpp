#include "zel/runtime/value_types.h"

#include <cstring>

namespace Morvalen::Zel {

// Others lay these over memory.
static_assert(sizeof(Rational16) == 4 && sizeof(Rational32) == 8 && sizeof(Rational64) == 16);
static_assert(sizeof(Rectangle16) == 8 && sizeof(Rectangle32) == 16 && sizeof(Rectangle) == 8);
static_assert(sizeof(_Guid) == 16);

Rational16::Rational16() : Rational16(0, 0) {}
Rational16::Rational16(int16_t top, int16_t bottom) : numerator(top), denominator(bottom) {}
double Rational16::ToDouble() const {
  return static_cast<double>(numerator) / static_cast<double>(denominator);
}

Rational32::Rational32() : Rational32(0, 0) {}
Rational32::Rational32(int32_t top, int32_t bottom) : numerator(top), denominator(bottom) {}
double Rational32::ToDouble() const {
  return static_cast<double>(numerator) / static_cast<double>(denominator);
}

Rational64::Rational64() : Rational64(0, 0) {}
Rational64::Rational64(int64_t top, int64_t bottom) : numerator(top), denominator(bottom) {}
double Rational64::ToDouble() const {
  return static_cast<double>(numerator) / static_cast<double>(denominator);
}
Rational64::operator double() const {
  return ToDouble();
}

Rectangle16::Rectangle16() : Rectangle16(0, 0, 0, 0) {}
Rectangle16::Rectangle16(int16_t a, int16_t b, int16_t c, int16_t d)
    : first(a), second(b), third(c), fourth(d) {}

Rectangle32::Rectangle32() : Rectangle32(0, 0, 0, 0) {}
Rectangle32::Rectangle32(int32_t a, int32_t b, int32_t c, int32_t d)
    : first(a), second(b), third(c), fourth(d) {}

Rectangle& Rectangle::operator=(Rectangle const& other) = default;

bool _Guid::operator==(_Guid const& other) const {
  return std::memcmp(this, &other, sizeof(_Guid)) == 0;
}
bool _Guid::operator!=(_Guid const& other) const {
  return !(*this == other);
}

void _Guid::Swap() {
  data1 = __builtin_bswap32(data1);
  data2 = __builtin_bswap16(data2);
  data3 = __builtin_bswap16(data3);
}

}  // namespace Morvalen::Zel
