#include "zel/mux/engine/input/file_source.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace zel::mux {

namespace {

constexpr std::string_view kNumberMark = "%i";

}  // namespace

std::string numbered_name(const std::string& pattern, size_t number) {
  const size_t at = pattern.find(kNumberMark);
  if (at == std::string::npos) return pattern;
  return pattern.substr(0, at) + std::to_string(number) + pattern.substr(at + kNumberMark.size());
}

file_source::file_source(std::vector<std::string> names, fault_function fault)
    : names_(std::move(names)), fault_(std::move(fault)) {
  series_ = names_.size() == 1 && names_.front().find(kNumberMark) != std::string::npos;
}

file_source::~file_source() = default;

std::string file_source::name(size_t number) const {
  return series_ ? numbered_name(names_.front(), number) : names_[number];
}

// fopen opens a directory for reading too; it has no bytes, and isn't what anybody means.
bool file_source::take_file(const std::string& name) {
  file_.reset(std::fopen(name.c_str(), "rb"));
  if (file_ == nullptr) return false;
  struct stat status {};
  const bool isKnown = fstat(fileno(file_.get()), &status) == 0;
  isRegular_ = isKnown && S_ISREG(status.st_mode);
  if (isKnown && S_ISDIR(status.st_mode)) file_.reset();
  // The circular buffer is the buffer: a second one would only copy.
  if (file_ != nullptr) std::setvbuf(file_.get(), nullptr, _IONBF, 0);
  return file_ != nullptr;
}

bool file_source::open() {
  if (names_.empty()) return false;
  take_file(name(0));
  next_ = 1;
  // Whoever numbers by hand starts at 1, programs often at 0.
  if (file_ == nullptr && series_) {
    take_file(name(1));
    next_ = 2;
  }
  if (file_ == nullptr) fault_(names_.front().c_str());
  return file_ != nullptr;
}

bool file_source::open_next() {
  if (series_) return take_file(name(next_++));
  while (next_ < names_.size()) {
    const std::string& name = names_[next_++];
    if (take_file(name)) return true;
    fault_(name.c_str());
  }
  return false;
}

int32_t file_source::read(uint8_t* to, int32_t room) {
  while (file_ != nullptr) {
    const size_t got = std::fread(to, 1, static_cast<size_t>(room), file_.get());
    if (got > 0) {
      given_ += static_cast<int64_t>(got);
      return static_cast<int32_t>(got);
    }
    if (std::ferror(file_.get()) != 0) fault_(nullptr);
    file_.reset();
    if (!open_next()) return 0;
    // Files without a byte begin nothing.
    if (given_ > 0 && (transitions_.empty() || transitions_.back() != given_)) {
      transitions_.push_back(given_);
    }
  }
  return 0;
}

int64_t file_source::take_transition() {
  if (transitions_.empty()) return -1;
  const int64_t place = transitions_.front();
  transitions_.pop_front();
  return place;
}

int32_t video_input_size(int32_t inBufSiz, bool remultiplexed, bool cutByTimeCode,
                         int32_t readSize) {
  if (inBufSiz > 0) return inBufSiz + readSize;
  return (remultiplexed || cutByTimeCode ? 1'000'000 : 250'000) + readSize;
}

int32_t audio_input_size(bool avSync, bool remultiplexed, int32_t readSize) {
  return (avSync ? 260'000 : 60'000) + readSize + (remultiplexed ? 2'400'000 : 0);
}

int32_t video_input_need(int64_t vbvBytes, double bitRate, bool remultiplexed, int32_t readSize) {
  const double quarter = bitRate / 4;
  double need = std::max(static_cast<double>(vbvBytes), quarter) + readSize;
  if (remultiplexed) need *= 4;
  // Headers may claim anything: what no stream of any level needs isn't allocated for a claim.
  constexpr double kMost = 512.0 * 1024 * 1024;
  return static_cast<int32_t>(std::min(need, kMost));
}

}  // namespace zel::mux
