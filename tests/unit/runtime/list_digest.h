#pragma once

#include <cstdint>
#include <string_view>

namespace Morvalen::Zel {

/// FNV-1a, 64 bits, over the lines of a list. A changed, lost, added or moved entry of the exported
/// data changes it: entries may only ever be added with intent, and then the digest with them.
class ListDigest {
 public:
  void AddLine(std::string_view line) {
    for (char const symbol : line) Add(symbol);
    Add('\n');
  }
  uint64_t Value() const { return value_; }

 private:
  void Add(char symbol) { value_ = (value_ ^ static_cast<uint8_t>(symbol)) * 0x100000001B3u; }

  uint64_t value_ = 0xCBF29CE484222325u;
};

}  // namespace Morvalen::Zel
