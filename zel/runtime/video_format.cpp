#include "zel/runtime/video_format.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

// The lookups are told as walks along the table. Here the compiler makes an index of it: a hash
// table from each code to its first row, and from each row to the first row of its parent. So a
// lookup costs one probe and a step for each level, whatever the size of the table, and there is
// nothing to build at run time, hence nothing to lock.

namespace Morvalen::Zel {

// The values stand in the class, where callers' compilers see them; this makes them data that the
// library exports.
#define ZEL_VIDEO_FORMAT(name, code) const unsigned int VideoFormat::name;
#include "zel/runtime/vocabulary/video_formats.def"
#undef ZEL_VIDEO_FORMAT

#define ZEL_FORMAT(code, name) {FourCharacterCode(code), 0, name},
#define ZEL_FORMAT_KIND(code, parent, name) \
  {FourCharacterCode(code), FourCharacterCode(parent), name},
#define ZEL_FORMAT_ALIAS(code, parent) \
  {FourCharacterCode(code), FourCharacterCode(parent), nullptr},
VideoFormat::Format const VideoFormat::formats[] = {
#include "zel/runtime/vocabulary/video_format_table.def"
    {0, 0, nullptr}};
#undef ZEL_FORMAT
#undef ZEL_FORMAT_KIND
#undef ZEL_FORMAT_ALIAS

namespace {

/// A row as far as the index needs it. The compiler reads these: a constexpr member `formats` would
/// be an inline variable, and its symbol one that keeps the library from being unloaded.
struct Link {
  uint32_t format;
  uint32_t parent;
};

#define ZEL_FORMAT(code, name) {FourCharacterCode(code), 0},
#define ZEL_FORMAT_KIND(code, parent, name) {FourCharacterCode(code), FourCharacterCode(parent)},
#define ZEL_FORMAT_ALIAS(code, parent) {FourCharacterCode(code), FourCharacterCode(parent)},
constexpr Link kLinks[] = {
#include "zel/runtime/vocabulary/video_format_table.def"
};
#undef ZEL_FORMAT
#undef ZEL_FORMAT_KIND
#undef ZEL_FORMAT_ALIAS

constexpr size_t kRows = std::size(kLinks);
constexpr uint16_t kNoRow = 0xFFFF;
constexpr size_t kSlotBits = 11;
static_assert(kRows * 2 < size_t{1} << kSlotBits, "the hash table must stay sparse");

constexpr size_t SlotOf(uint32_t code) {
  return (code * 0x9E3779B1u) >> (32 - kSlotBits);
}

class FormatIndex {
 public:
  constexpr FormatIndex() {
    slots_.fill(kNoRow);
    for (size_t row = 0; row < kRows; ++row) {
      size_t const slot = Probe(kLinks[row].format);
      if (slots_[slot] == kNoRow) slots_[slot] = static_cast<uint16_t>(row);
    }
    for (size_t row = 0; row < kRows; ++row) {
      parents_[row] = FirstRow(kLinks[row].parent);
    }
  }

  /// The first row with a code; kNoRow when there is none, as for 0.
  constexpr uint16_t FirstRow(uint32_t code) const { return slots_[Probe(code)]; }

  /// The first row with the code of the row's parent; kNoRow for a root.
  constexpr uint16_t ParentOf(uint16_t row) const { return parents_[row]; }

 private:
  /// The slot that holds the code, or the empty one where it would go.
  constexpr size_t Probe(uint32_t code) const {
    size_t slot = SlotOf(code);
    while (slots_[slot] != kNoRow && kLinks[slots_[slot]].format != code) {
      slot = (slot + 1) % slots_.size();
    }
    return slot;
  }

  std::array<uint16_t, size_t{1} << kSlotBits> slots_{};
  std::array<uint16_t, kRows> parents_{};
};

constexpr FormatIndex kIndex;

/// Whether every way upward ends: the lookups below follow parents without counting.
constexpr bool EveryWayEnds() {
  for (size_t row = 0; row < kRows; ++row) {
    size_t steps = 0;
    for (uint16_t at = static_cast<uint16_t>(row); at != kNoRow; at = kIndex.ParentOf(at)) {
      if (++steps > kRows) return false;
    }
  }
  return true;
}
static_assert(EveryWayEnds(), "a format may not be its own ancestor");

/// The first row with a name at or above the code's; kNoRow when there is none.
uint16_t NamedRow(uint32_t format) {
  uint16_t row = kIndex.FirstRow(format);
  while (row != kNoRow && !VideoFormat::formats[row].name) row = kIndex.ParentOf(row);
  return row;
}

}  // namespace

char const* VideoFormat::GetName(unsigned int format) {
  uint16_t const row = NamedRow(format);
  return row == kNoRow ? nullptr : formats[row].name;
}

unsigned int VideoFormat::GetEquivalentFormat(unsigned int format) {
  uint16_t const row = NamedRow(format);
  return row == kNoRow ? 0 : kLinks[row].format;
}

unsigned int VideoFormat::GetCategoricalFormat(unsigned int format) {
  uint16_t const row = NamedRow(format);
  return row == kNoRow ? 0 : kLinks[row].parent;
}

unsigned int VideoFormat::GetCanonicalFormat(unsigned int format) {
  uint16_t row = kIndex.FirstRow(format);
  while (row != kNoRow && kLinks[row].parent) row = kIndex.ParentOf(row);
  return row == kNoRow ? 0 : kLinks[row].format;
}

bool VideoFormat::IsFormat(unsigned int format, unsigned int kind) {
  if (format == kind) return true;
  for (uint16_t row = kIndex.FirstRow(format); row != kNoRow; row = kIndex.ParentOf(row)) {
    unsigned int const parent = kLinks[row].parent;
    if (!parent) return false;
    if (parent == kind) return true;
  }
  return false;
}

}  // namespace Morvalen::Zel
