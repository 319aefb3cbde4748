#include "zel/mux/engine/pcm/aes3_combiner.h"

#include <algorithm>
#include <utility>

namespace zel::mux {

aes3_combiner::aes3_combiner(std::vector<std::unique_ptr<aes3_source>> sources,
                             const pcm_cadence& cadence)
    : cadence_(cadence) {
  layout_.channels = 2 * static_cast<int>(sources.size());
  layout_.wordSize = sources.front()->bits();
  for (auto& source : sources) inputs_.push_back({std::move(source)});
  subframes_.resize(static_cast<size_t>(cadence_.most_frames() * layout_.channels));
}

size_t aes3_combiner::most_bytes() const {
  return aes3_payload_size(layout_, static_cast<size_t>(cadence_.most_frames()));
}

// Reads until `frames` are there or the source has ended; false where it has nothing just now.
bool aes3_combiner::gather(input& from, size_t index, size_t frames) {
  if (from.ended || from.framesRead == frames) return true;
  const auto stride = static_cast<size_t>(layout_.channels);
  uint32_t* const to = subframes_.data() + from.framesRead * stride + 2 * index;
  size_t count = 0;
  const auto got = from.source->read_subframes(to, stride, frames - from.framesRead, count);
  from.framesRead += count;
  from.ended = got == pcm_source::result::ended;
  return got != pcm_source::result::later;
}

size_t aes3_combiner::put(std::span<uint8_t> out, size_t frames) const {
  const size_t size = aes3_payload_size(layout_, frames);
  put_aes3_header(out.data(), layout_, size - kAes3HeaderSize);
  uint8_t* at = out.data() + kAes3HeaderSize;
  const auto pairs = frames * static_cast<size_t>(layout_.channels / 2);
  for (size_t pair = 0; pair < pairs; ++pair) {
    at = put_aes3_pair(at, subframes_[2 * pair], subframes_[2 * pair + 1], layout_.wordSize);
  }
  return size;
}

pcm_units::result aes3_combiner::next(std::span<uint8_t> out, pcm_unit& unit) {
  const auto wanted = static_cast<size_t>(cadence_.frames(index_));
  bool complete = true;
  for (size_t i = 0; i < inputs_.size(); ++i) complete = gather(inputs_[i], i, wanted) && complete;
  if (!complete) return result::later;

  size_t frames = 0;
  for (const input& each : inputs_) frames = std::max(frames, each.framesRead);
  if (frames == 0) return result::ended;
  unit.bytes = put(out, frames);
  unit.frames = static_cast<int64_t>(frames);
  // A pair that ends before the others is silent from there on.
  std::ranges::fill(subframes_, 0);
  for (input& each : inputs_) each.framesRead = 0;
  ++index_;
  return result::ready;
}

}  // namespace zel::mux
