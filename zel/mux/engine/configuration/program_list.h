#pragma once

#include <cstdint>

#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {

/// Makes a program with the defaults of one that comes behind programs of which `highest` is the
/// highest identity (0: none), and hangs it at `link`, the list's end. Null when memory is short.
Morvalen::Zel::tsm_program* append_program(Morvalen::Zel::tsm_program*& link, int32_t highest);

}  // namespace zel::mux
