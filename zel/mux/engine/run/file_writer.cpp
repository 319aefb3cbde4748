#include "zel/mux/engine/run/file_writer.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>

#include "zel/mux/engine/input/file_source.h"

namespace zel::mux {

namespace {

constexpr int kNullWriteFailed = 2;
constexpr int kWriteFailed = 3;
constexpr int kOpenFailed = 30;
constexpr int kNoFile = 46;
constexpr int kManyFilesWithoutSize = 47;
constexpr int kSizeTooSmall = 48;
constexpr int kMoreFilesNeeded = 49;
constexpr int64_t kLeastSize = 1024;
constexpr int32_t kKindOfNull = 2;
constexpr size_t kFileBuffer = 256 * 1024;

}  // namespace

file_writer::file_writer(std::vector<std::string> names, int64_t fileSize, reporting& reports)
    : names_(std::move(names)),
      fileSize_(std::max<int64_t>(fileSize, 0)),
      reports_(reports),
      series_(names_.size() == 1 && names_[0].find("%i") != std::string::npos) {}

bool file_writer::open() {
  if (names_.empty()) {
    reports_.fatal(kNoFile);
    return false;
  }
  if (names_.size() > 1 && fileSize_ == 0) reports_.fatal(kManyFilesWithoutSize);
  if (fileSize_ > 0 && fileSize_ < kLeastSize) {
    reports_.fatal(kSizeTooSmall);
    fileSize_ = kLeastSize;
  }
  return open_next();
}

bool file_writer::open_next() {
  written_ = 0;
  if (!close()) {
    reports_.fatal(kWriteFailed);
    return false;
  }
  if (!series_ && next_ >= names_.size()) {
    reports_.fatal(kMoreFilesNeeded);
    return false;
  }
  name_ = series_ ? numbered_name(names_[0], next_) : names_[next_];
  ++next_;
  file_.reset(std::fopen(name_.c_str(), "wb"));
  if (file_ != nullptr) {
    // Whole pages, many at once: packets alone would end each write inside of a page.
    std::setvbuf(file_.get(), nullptr, _IOFBF, kFileBuffer);
    return true;
  }
  reports_.fatal(kOpenFailed, no_pid, std::string_view(name_));
  return false;
}

bool file_writer::put(const uint8_t* data, size_t size, int32_t packetKind) {
  if (file_ == nullptr) return false;
  written_ += static_cast<int64_t>(size);
  if (std::fwrite(data, 1, size, file_.get()) == size) return true;
  const int error = errno;  // the message tells of a full disk by it
  file_.reset();
  cut_to_whole_packets();
  errno = error;
  reports_.fatal(packetKind == kKindOfNull ? kNullWriteFailed : kWriteFailed);
  return false;
}

int file_writer::write(void* user, const uint8_t* data, int32_t size, int32_t packetKind) {
  file_writer& self = *static_cast<file_writer*>(user);
  auto left = static_cast<int64_t>(size);
  if (self.fileSize_ == 0) {
    return self.put(data, static_cast<size_t>(left), packetKind) ? 0 : 1;
  }
  // A file takes one packet at least, so that this ends.
  const int64_t most = std::max<int64_t>(self.fileSize_ / self.packetSize_, 1) * self.packetSize_;
  while (left > 0) {
    if (self.written_ >= most && !self.open_next()) return 1;
    const int64_t part = std::min(left, most - self.written_);
    if (!self.put(data, static_cast<size_t>(part), packetKind)) return 1;
    data += part;
    left -= part;
  }
  return 0;
}

bool file_writer::close() {
  if (file_ == nullptr) return true;
  const bool wasGood = std::ferror(file_.get()) == 0;
  if (std::fclose(file_.release()) == 0 && wasGood) return true;
  const int error = errno;
  cut_to_whole_packets();
  errno = error;
  return false;
}

// What a write that failed did of its packets is cut off again. A device keeps no size.
void file_writer::cut_to_whole_packets() {
  std::error_code fault;
  if (!std::filesystem::is_regular_file(name_, fault)) return;
  const std::uintmax_t size = std::filesystem::file_size(name_, fault);
  if (fault) return;
  const std::uintmax_t rest = size % static_cast<std::uintmax_t>(packetSize_);
  if (rest > 0) std::filesystem::resize_file(name_, size - rest, fault);
}

}  // namespace zel::mux
