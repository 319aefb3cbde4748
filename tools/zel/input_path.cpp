#include "tools/zel/input_path.h"

#include <sys/stat.h>
#include <unistd.h>

namespace zel::tool {

std::string inputName(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

std::optional<uint64_t> regularFileSize(const std::string& path) {
  struct stat status {};
  const int result = path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
  if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<uint64_t>(status.st_size);
}

}  // namespace zel::tool
