#include "tools/zel/input_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "tools/zel/console.h"
#include "tools/zel/failure.h"

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
  const bool isStandard = path == "-";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      isStandard ? stdin : std::fopen(path.c_str(), "rbe"),
      isStandard ? [](std::FILE*) { return 0; } : &std::fclose);
  if (file == nullptr) throw Failure(inputName(path) + ": " + errorText(errno));
  std::string text;
  char bytes[4096];
  for (size_t size = 0; (size = std::fread(bytes, 1, sizeof bytes, file.get())) > 0;)
    text.append(bytes, size);
  if (std::ferror(file.get()) != 0) throw Failure(inputName(path) + ": " + errorText(errno));
  return text;
}

}  // namespace zel::tool
