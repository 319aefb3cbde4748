#include "tools/zel/dnxhd/compressed_input.h"

#include <algorithm>
#include <new>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "zel/dnxhd/front_end/frame_report.h"

namespace zel::tool {

FrameBuffer::FrameBuffer(size_t bytes)
    : memory_(static_cast<uint8_t*>(::operator new[](bytes, std::align_val_t(kAlignment)))),
      size_(bytes) {}

void FrameBuffer::Deleter::operator()(uint8_t* memory) const {
  ::operator delete[](memory, std::align_val_t(kAlignment));
}

CompressedInput::CompressedInput(const std::string& path) : path_(path), file_(path) {
  if (!file_.error().empty()) throw Failure(file_.error());
  constexpr size_t kStartBytes = 44;  // up to the id
  start_.resize(kStartBytes);
  start_.resize(file_.read(start_));
  if (!file_.error().empty()) throw Failure(file_.error());
  const std::string name = inputName(path);
  if (start_.empty()) throw Failure(name + " is empty");
  id_ = Morvalen::Zel::ReadCompressionId(start_.data(), start_.size());
  if (id_ == 0) throw Failure(name + " doesn't begin with a DNxHD frame");
  frameBytes_ = Morvalen::Zel::FrameBytesOf(id_);
  if (frameBytes_ == 0)
    throw Failure(fmt::format("{} begins with a frame of id {}, which is not known", name, id_));
  frame_ = std::make_unique<FrameBuffer>(frameBytes_);
}

size_t CompressedInput::readSome(std::span<uint8_t> out) {
  const size_t held = std::min(start_.size(), out.size());
  std::copy_n(start_.begin(), held, out.begin());
  start_.erase(start_.begin(), start_.begin() + static_cast<ptrdiff_t>(held));
  const size_t got = held + file_.read(out.subspan(held));
  if (!file_.error().empty()) throw Failure(file_.error());
  return got;
}

void CompressedInput::skip(uint64_t frames) {
  for (uint64_t i = 0; i < frames; ++i) {
    const size_t held = start_.size();
    start_.clear();
    if (held + file_.skip(frameBytes_ - held) < frameBytes_) return;
    ++index_;
  }
}

CompressedInput::Read CompressedInput::next() {
  got_ = readSome(frame_->bytes());
  if (got_ == 0) return Read::kEnd;
  ++index_;
  return got_ == frameBytes_ ? Read::kFrame : Read::kCutShort;
}

std::optional<uint64_t> CompressedInput::frameCount() const {
  const auto bytes = regularFileSize(path_);
  return bytes ? std::optional(*bytes / frameBytes_) : std::nullopt;
}

}  // namespace zel::tool
