#pragma once

#include <cstdint>

#include "zel/runtime/holder.h"
#include "zel/runtime/properties.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

/// Reads one property after the other; the first negative result stays, and what is read behind it
/// keeps its default. Switches never fail.
class PropertyReader {
 public:
  explicit PropertyReader(IProperties const& source) : properties(source) {}

  int32_t Integer(char const* key, int32_t value) {
    Number(key, value);
    return value;
  }
  double Decimal(char const* key, double value) {
    Number(key, value);
    return value;
  }
  bool Switch(char const* key) const {
    unsigned char value = 0;
    return properties.GetProperty(key, 1, &value) == 1 && value != 0;
  }
  RObject<CString> Text(char const* key) {
    CString* value = nullptr;
    Note(properties.GetProperty(key, value));
    return RObject<CString>(value);
  }
  int Result() const { return result; }

 private:
  template <class T>
  void Number(char const* key, T& value) {
    if (result >= 0) Note(properties.GetProperty(key, value));
  }
  void Note(int read) {
    if (result >= 0 && read < 0) result = read;
  }

  IProperties const& properties;
  int result = 0;
};

}  // namespace Morvalen::Zel
