#include "tools/zel/temporary_file.h"

#include <cerrno>
#include <vector>

#include "tools/zel/console.h"
#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

[[noreturn]] void fail() {
  throw Failure("temporary file: " + errorText(errno));
}

}  // namespace

TemporaryFile::TemporaryFile() : file_(std::tmpfile(), &std::fclose) {
  if (file_ == nullptr) throw Failure("no temporary file: " + errorText(errno));
}

void TemporaryFile::write(std::span<const uint8_t> bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), get()) != bytes.size()) fail();
}

void TemporaryFile::write(std::string_view text) {
  write(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void TemporaryFile::rewind() {
  if (std::fflush(get()) != 0) fail();
  std::rewind(get());
}

void TemporaryFile::readAll(const std::function<void(std::span<const uint8_t>)>& take) {
  rewind();
  std::vector<uint8_t> bytes(size_t{1} << 16);
  for (size_t size = 0; (size = std::fread(bytes.data(), 1, bytes.size(), get())) > 0;)
    take(std::span(bytes).first(size));
  if (std::ferror(get()) != 0) fail();
}

std::string TemporaryFile::text() {
  std::string all;
  readAll([&](std::span<const uint8_t> bytes) { all.append(bytes.begin(), bytes.end()); });
  return all;
}

}  // namespace zel::tool
