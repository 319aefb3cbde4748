#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/external_program.h"

namespace zel::tool {

/// A folder for the files of a test, with ways to fill it and to look at it.
class ScratchFolder : public zel::test::ScratchFolder {
 public:
  std::string operator/(const std::string& name) const { return file(name); }

  /// Returns the file's path.
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(file(name), std::ios::binary) << bytes;
    return file(name);
  }
  std::string read(const std::string& name) const {
    std::ostringstream bytes;
    bytes << std::ifstream(file(name), std::ios::binary).rdbuf();
    return bytes.str();
  }
  bool has(const std::string& name) const { return std::filesystem::exists(file(name)); }
};

}  // namespace zel::tool
