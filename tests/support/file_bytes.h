#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

/// Whole files as bytes.

namespace zel::test {

/// Nothing where there is no such file.
inline std::vector<uint8_t> fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, std::span<const uint8_t> bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace zel::test
