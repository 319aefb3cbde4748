#include "zel/dnxhd/rate_control/hd_enc_main_body.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "zel/dnxhd/encoder/quant_tables.h"
#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {

namespace {

constexpr uint32_t kHighestLevel = kMaxLevels - 1;
constexpr uint32_t kMostExtra = 2;

}  // namespace

// The macroblocks of one job, and what is known of their bits.
struct HDEncMainBody::Share {
  const SearchParameters& parameters;
  uint32_t job;
  const SharePattern& pattern;
  MacroblockBits bits;

  Share(const SearchParameters& all, uint32_t jobIndex)
      : parameters(all),
        job(jobIndex),
        pattern(*FindSharePattern(all.jobsPerField)),
        bits(all.plane, *all.cost) {}

  template <typename Visit>
  void ForEach(Visit visit) const {
    ForEachOfShare(pattern, job, parameters.mbRows, parameters.mbCols, visit);
  }

  uint8_t* Range(size_t macroblock) const { return parameters.levelRange + 2 * macroblock; }

  // Counts levels anew, in the place of what stage 1 took them for.
  void Count(size_t macroblock, uint32_t first, uint32_t last) const {
    std::array<uint32_t, kMaxLevels> counted;
    bits.AtLevels(macroblock, first, last, counted.data());
    uint16_t* const rates = parameters.rateTable + kMaxLevels * macroblock;
    for (uint32_t level = first; level <= last; ++level) {
      rates[level] = static_cast<uint16_t>(counted[level - first]);
    }
  }

  // The search's choice, one level up and one down, with true bits.
  void Refine() const {
    ForEach([&](uint32_t macroblock) {
      const uint32_t level = parameters.chosenLevel[macroblock];
      const uint32_t first = level == 0 ? 0 : level - 1;
      const uint32_t last = std::min(level + 1, kHighestLevel);
      Range(macroblock)[0] = static_cast<uint8_t>(first);
      Range(macroblock)[1] = static_cast<uint8_t>(last);
      if (!parameters.ratesAreExact) Count(macroblock, first, last);
    });
  }

  bool RangesCanMove() const {
    bool canMove = true;
    ForEach(
        [&](uint32_t macroblock) { canMove = canMove && Range(macroblock)[1] < kHighestLevel; });
    return canMove;
  }

  void RaiseRanges() const {
    ForEach([&](uint32_t macroblock) {
      const uint32_t top = std::min<uint32_t>(Range(macroblock)[1] + 1u, kHighestLevel);
      Range(macroblock)[1] = static_cast<uint8_t>(top);
      Count(macroblock, top, top);
    });
  }

  // All levels higher by `extra`, if that fits. Levels may pass 7 then: they are shift counts, and
  // must not be clipped.
  bool RaiseLevels(uint32_t extra) const {
    uint64_t sum = 0;
    ForEach([&](uint32_t macroblock) {
      const uint32_t level = parameters.chosenLevel[macroblock] + extra;
      uint32_t counted = 0;
      bits.AtLevels(macroblock, level, level, &counted);
      parameters.chosenBits[macroblock] = static_cast<uint16_t>(counted);
      sum += counted;
    });
    if (sum > parameters.targetBits) return false;
    ForEach([&](uint32_t macroblock) {
      parameters.chosenLevel[macroblock] =
          static_cast<uint16_t>(parameters.chosenLevel[macroblock] + extra);
    });
    return true;
  }
};

int32_t HDEncMainBody::Execute(CodecJob* job) {
  if (job->parameters == nullptr) return FailJob(*job, kErrorNoInitialization);
  const auto& parameters = *static_cast<const SearchParameters*>(job->parameters);
  const int32_t result =
      parameters.control == kSearchControl ? Search(parameters, job->index) : Model(parameters);
  if (result != kSuccessful) return FailJob(*job, static_cast<ResultWord>(result));
  job->status = kJobDone;
  return kSuccessful;
}

int32_t HDEncMainBody::RunSearch(const SearchParameters& parameters, int32_t jobIndex) {
  if (const int32_t result = search_.SetQuantisers(kMaxLevels, kLevelSteps); result < 0) {
    return result;
  }
  if (const int32_t result = search_.SetRates(parameters.rateTable, parameters.jobsPerField);
      result < 0) {
    return result;
  }
  if (const int32_t result = search_.SetDistortionType(1); result < 0) return result;
  return search_.Run(parameters.chosenLevel, parameters.chosenBits, 0, jobIndex);
}

int32_t HDEncMainBody::Search(const SearchParameters& parameters, int32_t jobIndex) {
  search_.SetBudget(parameters.targetBits, parameters.macroblockCount, parameters.mbRows,
                    parameters.mbCols);
  search_.ClearRanges();
  int32_t result = RunSearch(parameters, jobIndex);
  if (result < 0 && result != kErrorInBitCost) return result;

  const Share share(parameters, static_cast<uint32_t>(jobIndex));
  share.Refine();
  result = search_.SetRanges(parameters.levelRange);
  if (result == kSuccessful) result = RunSearch(parameters, jobIndex);
  if (result == kErrorInBitCost) result = Recover(share, jobIndex);
  search_.ClearRanges();
  return result;
}

// The true bits came out above the budget even at the tops of the ranges.
int32_t HDEncMainBody::Recover(const Share& share, int32_t jobIndex) {
  for (uint32_t extra = 1; extra <= kMostExtra; ++extra) {
    if (share.RangesCanMove()) {
      share.RaiseRanges();
      const int32_t result = RunSearch(share.parameters, jobIndex);
      if (result != kErrorInBitCost) return result;
    } else if (share.RaiseLevels(extra)) {
      return kSuccessful;
    }
  }
  return kErrorInBitCost;
}

namespace {

// What the analysis found, macroblock by macroblock: the model's arrays, and the bits at step 1.
struct Analysis {
  double bitsAtOne = 0;  // of all
  uint32_t reservedBits = 0;
};

// Fits each macroblock's model through two points: the bits at step 1, and the step from which on
// nothing but the fixed part is left.
Analysis Analyse(const SearchParameters& parameters, const MacroblockBits& bits) {
  const LLLMParameters& model = parameters.model;
  Analysis analysis;
  for (size_t i = 0; i < parameters.macroblockCount; ++i) {
    const uint32_t fixed = bits.Fixed(i);
    const uint32_t largest = bits.Largest(i);
    const uint32_t atOne = bits.AtStep(i, 1);
    analysis.bitsAtOne += atOne;
    model.modelA[i] = std::log(1.0 * atOne);
    model.quantOut[i] = 1.0;
    model.rateOut[i] = atOne;
    // Magnitudes are whole here, rounded down: 0 is what is below 1.
    model.skip[i] = largest < 1 ? 1 : 0;
    if (model.skip[i] != 0) {
      model.modelB[i] = 0;
      analysis.reservedBits += fixed;
      continue;
    }
    const double zeroing = 2.0 * largest + 1;
    model.modelB[i] = (std::log(1.0 * fixed) - model.modelA[i]) / std::log(zeroing);
  }
  return analysis;
}

// Measures the model at a step near to what it asks for, and mends its slope where it is off.
void Correct(const SearchParameters& parameters, const MacroblockBits& bits) {
  constexpr double kTolerance = 25;  // bits
  constexpr double kLn2InSingle = 0.6931471824645996;
  const LLLMParameters& model = parameters.model;
  const auto& steps = kQuantiserSteps;
  // Deliberate: the place in the list carries over from one macroblock to the next. Pinned by
  // hd_enc_main_body_test.cpp, TheCorrectionsPlaceInTheListCarriesOver.
  size_t position = 0;
  for (size_t i = 0; i < parameters.macroblockCount; ++i) {
    if (model.skip[i] != 0) continue;
    const double wanted = model.quantOut[i];
    while (position < steps.size() && steps[position] < wanted) ++position;
    size_t nearest = std::min(position, steps.size() - 1);
    double logStep = std::log(double{1} * steps[nearest]);
    if (position == 0) {
      nearest = 1;
      logStep = kLn2InSingle;
    } else if (position < steps.size() &&
               std::fabs(wanted - steps[position - 1]) < std::fabs(steps[position] - wanted)) {
      nearest = position - 1;
      logStep = std::log(double{1} * steps[nearest]);
    }
    const double predicted = std::round(std::exp(model.modelB[i] * logStep + model.modelA[i]));
    const double real = bits.AtStep(i, steps[nearest]);
    if (std::fabs(real - predicted) <= kTolerance || logStep == 0) continue;
    const double slope = std::log(real) - model.modelA[i];
    if (slope < 0) model.modelB[i] = slope / logStep;
  }
}

}  // namespace

int32_t HDEncMainBody::Model(const SearchParameters& parameters) {
  const LLLMParameters& model = parameters.model;
  if (const int32_t result = model_.Setup(model); result < 0) return result;
  const MacroblockBits bits(parameters.plane, *parameters.cost);
  const double rows = parameters.mbRows;
  const double available =
      (parameters.pictureBytes - 644.0 - rows * 3.875 - rows * parameters.mbCols * 1.5) * 8;
  const Analysis analysis = Analyse(parameters, bits);
  if (analysis.bitsAtOne >= available) {
    model_.SetBudget(static_cast<uint32_t>(available), parameters.macroblockCount,
                     parameters.mbRows, parameters.mbCols);
    model_.SetReservedBits(analysis.reservedBits);
    if (const int32_t result = model_.Run(nullptr, nullptr, 1, 0); result < 0) return result;
    Correct(parameters, bits);
    if (const int32_t result = model_.Run(nullptr, nullptr, 0, 0); result < 0) return result;
  }
  for (size_t i = 0; i < parameters.macroblockCount; ++i) {
    const double step = std::clamp(std::ceil(model.quantOut[i]), 1.0, 1.0 * parameters.longestStep);
    parameters.chosenLevel[i] = static_cast<uint16_t>(step);
    parameters.chosenBits[i] = static_cast<uint16_t>(std::clamp(model.rateOut[i], 0.0, 65535.0));
  }
  return kSuccessful;
}

}  // namespace zel::dnxhd
