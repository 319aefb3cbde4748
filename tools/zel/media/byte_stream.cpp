#include "tools/zel/media/byte_stream.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace zel::media {
namespace {

bool isRegularFile(std::FILE* file) {
  struct stat status {};
  return fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode);
}

std::string systemError(const std::string& path, const char* what) {
  return path + ": " + what + ": " + std::strerror(errno);
}

}  // namespace

uint64_t ByteSource::skip(uint64_t count) {
  std::array<uint8_t, 16384> scratch;
  uint64_t done = 0;
  while (done < count) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(scratch.size(), count - done));
    const size_t got = read(std::span(scratch).first(want));
    done += got;
    if (got < want) break;
  }
  return done;
}

int ByteSource::readByte() {
  uint8_t byte = 0;
  return read(std::span(&byte, 1)) == 1 ? byte : -1;
}

bool ByteSink::patch(uint64_t, std::span<const uint8_t>) {
  error_ = "this output cannot be changed after writing";
  return false;
}

size_t MemorySource::read(std::span<uint8_t> out) {
  const size_t count = std::min(out.size(), bytes_.size());
  std::copy_n(bytes_.begin(), count, out.begin());
  bytes_ = bytes_.subspan(count);
  return count;
}

uint64_t MemorySource::skip(uint64_t count) {
  const size_t passed = static_cast<size_t>(std::min<uint64_t>(count, bytes_.size()));
  bytes_ = bytes_.subspan(passed);
  return passed;
}

bool MemorySink::write(std::span<const uint8_t> bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return true;
}

bool MemorySink::patch(uint64_t offset, std::span<const uint8_t> bytes) {
  if (!patchable_) return ByteSink::patch(offset, bytes);
  if (offset > bytes_.size() || bytes.size() > bytes_.size() - offset) {
    error_ = "patch outside of what was written";
    return false;
  }
  std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<ptrdiff_t>(offset));
  return true;
}

FileSource::FileSource(const std::string& path) : path_(path == "-" ? "standard input" : path) {
  file_ = path == "-" ? stdin : std::fopen(path.c_str(), "rbe");
  if (file_ == nullptr) {
    error_ = systemError(path_, "cannot open");
    return;
  }
  seekable_ = isRegularFile(file_);
}

FileSource::~FileSource() {
  if (file_ != nullptr && file_ != stdin) std::fclose(file_);
}

size_t FileSource::read(std::span<uint8_t> out) {
  if (file_ == nullptr || out.empty()) return 0;
  const size_t got = std::fread(out.data(), 1, out.size(), file_);
  if (got < out.size() && std::ferror(file_) != 0) error_ = systemError(path_, "cannot read");
  return got;
}

uint64_t FileSource::skip(uint64_t count) {
  if (file_ == nullptr) return 0;
  if (!seekable_) return ByteSource::skip(count);
  // A seek beyond the end succeeds, so the size decides how much there was to pass over. It is
  // asked for each time: the file may still be growing.
  struct stat status {};
  const off_t here = ftello(file_);
  if (here < 0 || fstat(fileno(file_), &status) != 0) return ByteSource::skip(count);
  const uint64_t left = status.st_size > here ? static_cast<uint64_t>(status.st_size - here) : 0;
  const uint64_t passed = std::min(count, left);
  if (fseeko(file_, static_cast<off_t>(passed), SEEK_CUR) != 0) return ByteSource::skip(count);
  return passed;
}

FileSink::FileSink(const std::string& path) : path_(path == "-" ? "standard output" : path) {
  file_ = path == "-" ? stdout : std::fopen(path.c_str(), "wbe");
  if (file_ == nullptr) {
    fail("cannot open");
    return;
  }
  // Standard output sent to a file may have been opened for appending or hold earlier output, so
  // offsets of ours would be wrong: it counts as a pipe.
  seekable_ = file_ != stdout && isRegularFile(file_);
}

FileSink::~FileSink() {
  FileSink::close();
}

bool FileSink::fail(const char* what) {
  if (error_.empty()) error_ = systemError(path_, what);
  return false;
}

bool FileSink::write(std::span<const uint8_t> bytes) {
  if (file_ == nullptr) return false;
  if (bytes.empty()) return true;
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
    return fail("cannot write");
  }
  return true;
}

bool FileSink::patch(uint64_t offset, std::span<const uint8_t> bytes) {
  if (!seekable_ || file_ == nullptr) return ByteSink::patch(offset, bytes);
  const off_t end = ftello(file_);
  if (end < 0) return fail("cannot tell the position");
  if (offset > static_cast<uint64_t>(end) || bytes.size() > static_cast<uint64_t>(end) - offset) {
    error_ = path_ + ": patch outside of what was written";
    return false;
  }
  if (fseeko(file_, static_cast<off_t>(offset), SEEK_SET) != 0) return fail("cannot seek");
  if (!write(bytes)) return false;
  if (fseeko(file_, end, SEEK_SET) != 0) return fail("cannot seek");
  return true;
}

bool FileSink::close() {
  if (file_ == nullptr) return error_.empty();
  std::FILE* const file = file_;
  file_ = nullptr;
  const bool flushed = file == stdout ? std::fflush(file) == 0 : std::fclose(file) == 0;
  if (!flushed) return fail("cannot finish writing");
  return error_.empty();
}

}  // namespace zel::media
