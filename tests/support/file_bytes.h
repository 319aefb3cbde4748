#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

/// Whole files as bytes.

namespace zel::test {

/// Nothing where there is no such file.
inline std::vector<uint8_t> fileBytes(const std::string& path) {
  if (!std::filesystem::is_regular_file(path)) return {};
  std::ifstream file(path, std::ios::binary);
  std::vector<uint8_t> bytes(std::filesystem::file_size(path));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<size_t>(file.gcount()));
  return bytes;
}

/// False where it can't be opened or the disk is full.
inline bool writeFile(const std::string& path, std::span<const uint8_t> bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return bool(file.flush());
}

}  // namespace zel::test
