#include "zel/mux/engine/input/remultiplexing.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "zel/base/media_clock.h"
#include "zel/mux/engine/input/program_stream_source.h"
#include "zel/mux/engine/input/transport_stream_source.h"

namespace zel::mux {

namespace {

constexpr size_t kHead = 3072;

/// A source whose head has been looked at.
class headed_source : public stream_source {
 public:
  explicit headed_source(std::unique_ptr<stream_source> rest) : rest_(std::move(rest)) {
    head_.resize(kHead);
    size_t size = 0;
    while (size < kHead) {
      const int32_t got = rest_->read(head_.data() + size, static_cast<int32_t>(kHead - size));
      if (got <= 0) break;
      size += static_cast<size_t>(got);
    }
    head_.resize(size);
  }

  std::span<const uint8_t> head() const { return head_; }

  int64_t take_transition() override { return rest_->take_transition(); }
  int32_t read(uint8_t* to, int32_t room) override {
    const size_t left = head_.size() - at_;
    if (left == 0) return head_.size() < kHead ? 0 : rest_->read(to, room);
    const size_t count = std::min(left, static_cast<size_t>(room));
    std::memcpy(to, head_.data() + at_, count);
    at_ += count;
    return static_cast<int32_t>(count);
  }

 private:
  std::unique_ptr<stream_source> rest_;
  std::vector<uint8_t> head_;
  size_t at_ = 0;
};

}  // namespace

stream_selection selection_of(const Morvalen::Zel::tsm_stream_record& record) {
  using namespace Morvalen::Zel;
  // What discs put in front of the frames of a substream is, with linear PCM, what tells its form.
  const bool whole = record.kind == tsm_kind_lpcm || record.kind == tsm_kind_smpte302m;
  stream_selection selection;
  selection.tsPid = record.sourceTsPid;
  selection.streamId = record.sourceStreamId;
  selection.subtype = whole ? -1 : record.sourceStreamSubtype;
  selection.described = record.descFromData;
  return selection;
}

std::unique_ptr<stream_source> take_stream(std::unique_ptr<stream_source> bytes,
                                           const stream_selection& selection,
                                           source_fault_function fault) {
  if (selection.tsPid > 0) {
    return std::make_unique<transport_stream_source>(
        std::move(bytes),
        transport_stream_source::selection{selection.tsPid, 0, selection.described},
        std::move(fault));
  }
  auto headed = std::make_unique<headed_source>(std::move(bytes));
  size_t first = 0;
  if (find_packet_size(headed->head(), first) > 0) {
    return std::make_unique<transport_stream_source>(
        std::move(headed), transport_stream_source::selection{-1, selection.streamId, false},
        std::move(fault));
  }
  return std::make_unique<program_stream_source>(std::move(headed), selection.streamId,
                                                 selection.subtype, std::move(fault));
}

std::optional<double> source_delay90k(const Morvalen::Zel::TarnArray& soundFiles,
                                      elementary_input& soundInput,
                                      const Morvalen::Zel::tsm_stream_record& pictures,
                                      elementary_input& picturesInput, int64_t firstPicture) {
  using Morvalen::Zel::tarn_array_text;
  if (tarn_array_text(&soundFiles, 0) != tarn_array_text(&pictures.files, 0)) return std::nullopt;
  if (soundInput.source() == nullptr || picturesInput.source() == nullptr) return std::nullopt;
  const int64_t heard = soundInput.source()->first_pts90k();
  // A zero byte in front of a start code may have been the end of the PES packet before.
  const auto picture = picturesInput.source()->stamp_at(firstPicture + 1);
  const int64_t seen = picture ? picture->pts90k : picturesInput.source()->first_pts90k();
  if (heard < 0 || seen < 0) return std::nullopt;
  return static_cast<double>(base::difference90k(heard, seen));
}

}  // namespace zel::mux
