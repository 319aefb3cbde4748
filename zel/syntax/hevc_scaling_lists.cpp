#include <algorithm>

#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

// Table 7-6, in the coding order of the lists: the up-right diagonal scan of 8x8.
// clang-format off
constexpr std::array<uint8_t, 64> kIntra = {
    16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 17, 16, 17, 16, 17, 18,
    17, 18, 18, 17, 18, 21, 19, 20, 21, 20, 19, 21, 24, 22, 22, 24,
    24, 22, 22, 24, 25, 25, 27, 30, 27, 25, 25, 29, 31, 35, 35, 31,
    29, 36, 41, 44, 41, 36, 47, 54, 54, 47, 65, 70, 65, 88, 88, 115};
constexpr std::array<uint8_t, 64> kInter = {
    16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 17, 17, 17, 17, 17, 18,
    18, 18, 18, 18, 18, 20, 20, 20, 20, 20, 20, 20, 24, 24, 24, 24,
    24, 24, 24, 24, 25, 25, 25, 25, 25, 25, 25, 28, 28, 28, 28, 28,
    28, 33, 33, 33, 33, 33, 41, 41, 41, 41, 54, 54, 54, 71, 71, 91};
// clang-format on

constexpr size_t kSizes = 4;
constexpr uint8_t kFlat = 16;

void setDefault(HevcScalingLists& lists, size_t size, size_t matrix) {
  if (size == 0) {
    lists.size4x4[matrix].fill(kFlat);
    return;
  }
  lists.larger[size - 1][matrix] = matrix < 3 ? kIntra : kInter;
  if (size >= 2) lists.dc[size - 2][matrix] = kFlat;
}

void copyList(HevcScalingLists& lists, size_t size, size_t matrix, size_t from) {
  if (size == 0) {
    lists.size4x4[matrix] = lists.size4x4[from];
    return;
  }
  lists.larger[size - 1][matrix] = lists.larger[size - 1][from];
  if (size >= 2) lists.dc[size - 2][matrix] = lists.dc[size - 2][from];
}

void readList(BitReader& bits, HevcScalingLists& lists, size_t size, size_t matrix) {
  int next = 8;
  if (size >= 2) {
    next = 8 + readSeBetween(bits, -7, 247);
    lists.dc[size - 2][matrix] = static_cast<uint8_t>(next);
  }
  const std::span<uint8_t> list = size == 0 ? std::span<uint8_t>(lists.size4x4[matrix])
                                            : std::span<uint8_t>(lists.larger[size - 1][matrix]);
  for (uint8_t& value : list) {
    next = (next + readSeBetween(bits, -128, 127) + 256) % 256;
    value = static_cast<uint8_t>(next);
  }
}

}  // namespace

HevcScalingLists defaultHevcScalingLists() {
  HevcScalingLists lists;
  for (size_t size = 0; size < kSizes; ++size) {
    for (size_t matrix = 0; matrix < 6; ++matrix) setDefault(lists, size, matrix);
  }
  return lists;
}

void readHevcScalingLists(BitReader& bits, HevcScalingLists& lists) {
  for (size_t size = 0; size < kSizes; ++size) {
    const size_t step = size == 3 ? 3 : 1;
    for (size_t matrix = 0; matrix < 6 && !bits.failed(); matrix += step) {
      if (bits.readFlag()) {
        readList(bits, lists, size, matrix);
        continue;
      }
      const size_t delta = step * readUeUpTo(bits, static_cast<uint32_t>(matrix / step));
      if (delta == 0) {
        setDefault(lists, size, matrix);
      } else {
        copyList(lists, size, matrix, matrix - delta);
      }
    }
  }
  // 7.4.5: where chroma has 32x32 blocks, their factors are those of 16x16.
  for (const size_t matrix : {1, 2, 4, 5}) {
    lists.larger[2][matrix] = lists.larger[1][matrix];
    lists.dc[1][matrix] = lists.dc[0][matrix];
  }
}

}  // namespace zel::syntax
