#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {

/// Where the encoder has its samples from. Any number of threads call it at once, each for another
/// row.
class RowSource {
 public:
  virtual ~RowSource() = default;
  /// Macroblock row `row` of picture 0 or 1 of `frame`: 8 or 12 blocks for each of its macroblocks,
  /// in the places of PlacesOf, 64 samples each, centred on 0 in the depth of the id. `blocks` is
  /// aligned to 64 bytes. Lines below the picture are filled.
  virtual ResultWord FetchRow(const void* frame, size_t picture, size_t row,
                              int16_t* blocks) const = 0;
};

}  // namespace zel::dnxhd
