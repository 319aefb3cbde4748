#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/zel/mux/mux_run.h"

namespace zel::test {

/// A run of the multiplexer over a configuration text, and what it wrote.
struct Multiplexed {
  std::vector<uint8_t> bytes;
  tool::MuxResult result;

  /// All messages, a line each, for failures of tests.
  std::string said() const;
  bool warned(int32_t code) const;
};

/// Throws tool::Failure where the text is no configuration, and where the run doesn't end. With a
/// trace, which hears of each packet, the engine asks for each slot by itself.
Multiplexed multiplexText(
    const std::string& text,
    const std::function<void(const Morvalen::Zel::tsm_trace_event&)>& trace = {});

}  // namespace zel::test
