#pragma once

#include "zel/base/bit_reader.h"
#include "zel/syntax/avc_parameter_sets.h"

/// The parts of Annex E that several parameter sets share. Each moves the reader on and fails it
/// for a value that can't be.

namespace zel::syntax {

void readAvcVui(base::BitReader& bits, AvcVui& vui);
void readAvcHrd(base::BitReader& bits, AvcHrd& hrd);
void readAvcTiming(base::BitReader& bits, AvcTiming& timing);

}  // namespace zel::syntax
