#pragma once

#include <cstdint>

#include "zel/mux/engine/input/elementary_input.h"

namespace zel::mux {

/// The position of the first start code prefix, 00 00 01, at or after `from` among the bytes that
/// the input holds, across the end of its buffer; -1 if there is none yet. `resume` is then where
/// to go on once more bytes have come: a prefix may have begun.
int64_t find_start_code(const elementary_input& input, int64_t from, int64_t& resume);

}  // namespace zel::mux
