#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include "tools/zel/mux/mux_run.h"

namespace zel::tool {

struct MuxSummary {
  const MuxResult& result;
  std::string output;
  int passes = 1;
  double elapsedSeconds = 0;
};

/// Duration, rate, share of nulls; then a line a stream.
std::string toText(const MuxSummary& summary);
/// The same facts, and the messages.
nlohmann::ordered_json toJson(const MuxSummary& summary);

/// "8,000,000"
std::string grouped(int64_t number);

}  // namespace zel::tool
