#include "zel/mux/engine/video/unit_search.h"

#include <algorithm>

#include "zel/base/annex_b.h"

namespace zel::mux {

namespace {

constexpr int64_t kPrefixSize = 3;

bool prefix_at(const elementary_input& input, int64_t position) {
  return input.at(position) == 0 && input.at(position + 1) == 0 && input.at(position + 2) == 1;
}

}  // namespace

int64_t find_start_code(const elementary_input& input, int64_t from, int64_t& resume) {
  const int64_t end = input.end_position();
  int64_t position = std::max(from, input.read_position());
  while (end - position >= kPrefixSize) {
    const std::span<const uint8_t> piece = input.straight(position);
    const size_t found = base::findStartCode(piece);
    if (found < piece.size()) return position + static_cast<int64_t>(found);
    // The last places of the piece: a prefix there goes on at the buffer's start.
    const int64_t pieceEnd = position + static_cast<int64_t>(piece.size());
    const int64_t tail = std::max(position, pieceEnd - (kPrefixSize - 1));
    for (position = tail; position < pieceEnd && position + kPrefixSize <= end; ++position) {
      if (prefix_at(input, position)) return position;
    }
  }
  resume = std::max(from, end - (kPrefixSize - 1));
  return -1;
}

}  // namespace zel::mux
