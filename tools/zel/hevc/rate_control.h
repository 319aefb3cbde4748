#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/zel/hevc/encoder_settings.h"

namespace zel::tool {

/// The rate control that the command line asks for, in the user's units: bits and bits a second,
/// per cent, seconds. Nothing where an option was not given.
struct RateControlOptions {
  std::optional<int64_t> method;  // the number that the encoder's key holds
  std::optional<int64_t> bitRate;
  std::optional<int64_t> quantiser;
  std::optional<double> rateFactor;
  std::optional<int64_t> vbvMaxRate;
  std::optional<int64_t> vbvBufferSize;
  std::optional<double> vbvInitialFill;
  std::optional<double> bufferDelay;
  bool hrd = false;
};

void addRateControlOptions(CLI::App& app, RateControlOptions& options);

/// The same in the encoder's terms.
struct RateControl {
  int64_t bitRate = 0;  ///< bits a second, for the encoder's Begin
  std::vector<EncoderProperty> properties;
};

/// Throws WrongUsage for options that contradict each other, and for those that the encoder would
/// pass over without a word. The method that is not named follows from the others: a bit rate means
/// abr, a quantiser cqp, a rate factor crf; without any, the preset's own stays (crf 28).
RateControl resolveRateControl(const RateControlOptions& options);

}  // namespace zel::tool
