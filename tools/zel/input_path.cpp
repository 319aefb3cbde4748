#include "tools/zel/input_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "tools/zel/failure.h"
#include "tools/zel/media/byte_stream.h"

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

std::string contentsOf(const std::string& path) {
  media::FileSource file(path);
  std::string text;
  std::array<uint8_t, 4096> bytes;
  for (size_t size = 0; (size = file.read(bytes)) > 0;)
    text.append(reinterpret_cast<const char*>(bytes.data()), size);
  if (!file.error().empty()) throw Failure(file.error());
  return text;
}

}  // namespace zel::tool
