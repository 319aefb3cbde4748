#pragma once

#include "zel/mux/engine/callbacks.h"

namespace zel::mux {

/// The callbacks of the process as a run takes them when it is opened. Null is the built-in.
struct engine_callbacks {
  Morvalen::Zel::tsm_progress_callback progress = nullptr;
  Morvalen::Zel::tsm_write_callback write = nullptr;
  Morvalen::Zel::tsm_error_callback error = nullptr;
  Morvalen::Zel::tsm_load_callback load = nullptr;
  Morvalen::Zel::tsm_block_end_callback blockEnd = nullptr;
};

}  // namespace zel::mux
