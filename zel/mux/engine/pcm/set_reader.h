#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/pcm/pcm_result.h"
#include "zel/mux/engine/run/reporting.h"

/// Finds the sets of a PCM stream that comes out of another multiplex: four bytes of header that
/// tell how many bytes follow, one behind the other. A header holds
///
///   size_t payload;                            bytes behind the header
///   bool same_layout(const Header&) const;     what a stream doesn't change
///   bool resembles(const Header&) const;       what is likely to be of one stream
///
/// Bytes between sets, which damage leaves, are passed over with warning 61.

namespace zel::mux {

inline constexpr int64_t kSetHeader = 4;

template <typename Header>
class set_reader {
 public:
  using header_bytes = std::span<const uint8_t, kSetHeader>;
  /// False where these bytes can't be a header.
  using header_parser = bool (*)(header_bytes bytes, Header& header);
  using result = pcm_result;

  set_reader(elementary_input& input, header_parser parse, int pid, reporting& reports)
      : input_(input), parse_(parse), pid_(pid), report_(reports) {}

  /// Moves the input to the next set, and loads it whole. One that stands where it has to, of the
  /// layout known, is believed; any other has to be followed by one like it, and behind damage to
  /// resemble the one before.
  result find(Header& header) {
    bool inPlace = known_;
    while (true) {
      const int64_t at = input_.read_position();
      if (!load_until(at + kSetHeader)) return input_.ended() ? result::ended : result::later;
      if (header_at(at, header)) {
        const int64_t end = end_of(at, header);
        const bool whole = load_until(end);
        if (!whole && !input_.ended() && input_.room() > 0) return result::later;
        load_until(end + kSetHeader);
        const bool expected = inPlace && header.same_layout(latest_);
        const bool likely = inPlace || !known_ || header.resembles(latest_);
        if (whole && (expected || (likely && is_set(at, header)))) return result::ready;
        // The rest of a stream that was cut.
        if (!whole && expected) return result::ended;
      }
      if (inPlace) report_.warn(kDataLost, pid_);
      inPlace = false;
      input_.skip(1);
    }
  }
  /// What find() gave is of the stream, and what the next one is measured by.
  void accept(const Header& header) {
    latest_ = header;
    known_ = true;
  }
  const Header& latest() const { return latest_; }

  /// Enters the next set: its header is dropped. A stream whose layout isn't that of `first` any
  /// more ends there for good, and `changed` is called with the new header.
  template <typename Changed>
  result enter(const Header& first, Header& header, const Changed& changed) {
    if (over_) return result::ended;
    const result found = find(header);
    if (found == result::later) return found;
    over_ = found == result::ended || !header.same_layout(first);
    if (over_) {
      if (found == result::ready) changed(header);
      return result::ended;
    }
    accept(header);
    input_.skip(static_cast<int32_t>(kSetHeader));
    return result::ready;
  }

  bool header_at(int64_t position, Header& header) const {
    std::array<uint8_t, kSetHeader> bytes;
    input_.copy(position, bytes.data(), static_cast<int32_t>(bytes.size()));
    return parse_(bytes, header);
  }
  static int64_t end_of(int64_t position, const Header& header) {
    return position + kSetHeader + static_cast<int64_t>(header.payload);
  }
  bool load_until(int64_t end) {
    while (input_.end_position() < end && input_.load()) continue;
    return input_.end_position() >= end;
  }

 private:
  static constexpr int kDataLost = 61;

  // Behind a set stands another of the same layout, or nothing.
  bool is_set(int64_t position, const Header& header) const {
    const int64_t next = end_of(position, header);
    if (next + kSetHeader > input_.end_position()) return true;
    Header following;
    return header_at(next, following) && following.same_layout(header);
  }

  elementary_input& input_;
  header_parser parse_;
  int pid_;
  reporting& report_;
  bool known_ = false;
  bool over_ = false;
  Header latest_{};
};

/// Whether two sets of one stream may have these sizes.
inline bool sizes_resemble(size_t one, size_t other) {
  const size_t larger = std::max(one, other);
  return (larger - std::min(one, other)) * 10 <= larger;
}

}  // namespace zel::mux
