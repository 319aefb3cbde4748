#include "zel/dnxhd/rate_control/rd_opt_controller.h"

#include <cmath>
#include <limits>
#include <new>

#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {

namespace {

constexpr double kCoarseLambda = 100000000.0;
constexpr double kFineLambda = 0;
constexpr double kTolerance = 0.0001;  // of the budget
constexpr int kMostIterations = 30;

// One end of the interval that the budget lies in.
struct End {
  double lambda;
  SearchTotals totals;
};

}  // namespace

int32_t RDOptController::SetQuantisers(uint32_t count, const uint16_t* table) {
  if (table == nullptr) return kErrorNoInitialization;
  if (count == 0 || count > kMaxLevels) return kErrorInvalidQuantLevel;
  levelCount_ = count;
  quantisers_ = table;
  tablesReady_ = false;
  return kSuccessful;
}

int32_t RDOptController::SetRates(const uint16_t* rateTable, uint32_t jobs) {
  if (rateTable == nullptr) return kErrorNoInitialization;
  const SharePattern* pattern = FindSharePattern(jobs);
  if (pattern == nullptr) return kErrorInvalidMbStride;
  rateTable_ = rateTable;
  pattern_ = pattern;
  return kSuccessful;
}

int32_t RDOptController::SetDistortionType(uint32_t type) {
  distortionType_ = type;
  if (type != 1) return kErrorDistortionTypeNotSupported;
  tablesReady_ = false;
  if (quantisers_ == nullptr) return kErrorInitializationFailed;
  for (size_t level = 0; level < levelCount_; ++level) {
    table_.distortion[level] = 1.0 * quantisers_[level] * quantisers_[level];
  }
  tablesReady_ = true;
  return kSuccessful;
}

int32_t RDOptController::SetRanges(const uint8_t* ranges) {
  if (ranges == nullptr) return kErrorNoInitialization;
  ranges_ = ranges;
  useRanges_ = true;
  return kSuccessful;
}

void RDOptController::ClearRanges() {
  useRanges_ = false;
}

uint32_t RDOptController::LowestLevel(uint32_t macroblock) const {
  return useRanges_ ? ranges_[2 * macroblock] : 0;
}

uint32_t RDOptController::HighestLevel(uint32_t macroblock) const {
  return useRanges_ ? ranges_[2 * macroblock + 1] : levelCount_ - 1;
}

int32_t RDOptController::Run(uint16_t* levelOut, uint16_t* bitsOut, int32_t /*pass*/,
                             int32_t jobIndex) {
  if (levelOut == nullptr || bitsOut == nullptr) return kErrorNoInitialization;
  if (!tablesReady_ || rateTable_ == nullptr) return kErrorNoInitialization;
  if (distortionType_ != 1) return kErrorInitializationFailed;
  if (jobIndex < 0 || static_cast<uint32_t>(jobIndex) >= pattern_->jobs) {
    return kErrorInvalidMbStride;
  }
  jobIndex_ = static_cast<uint32_t>(jobIndex);
  try {
    GatherRates();
  } catch (const std::bad_alloc&) {
    return kErrorInMemoryAllocation;
  }
  return Choose(Search(), levelOut, bitsOut);
}

void RDOptController::GatherRates() {
  size_t count = 0;
  ForEachOfShare(*pattern_, jobIndex_, mbRows_, mbCols_, [&](uint32_t) { ++count; });
  table_.levels = levelCount_;
  table_.Resize(count);
  constexpr float kForbidden = std::numeric_limits<float>::infinity();
  size_t i = 0;
  ForEachOfShare(*pattern_, jobIndex_, mbRows_, mbCols_, [&](uint32_t macroblock) {
    const uint32_t lowest = LowestLevel(macroblock);
    const uint32_t highest = HighestLevel(macroblock);
    for (uint32_t level = 0; level < levelCount_; ++level) {
      table_.rates[level * table_.stride + i] =
          level < lowest || level > highest
              ? kForbidden
              : static_cast<float>(
                    rateTable_[static_cast<size_t>(macroblock) * levelCount_ + level]);
    }
    ++i;
  });
}

// The interval between the two ends holds the budget; the slope of the chord between them is the
// next lambda, until it finds nothing new or is near enough below the budget.
double RDOptController::Search() const {
  const auto evaluate = VectorSearchKernels().evaluate;
  const double target = targetBits_;
  End low{kCoarseLambda, evaluate(table_, kCoarseLambda)};
  End high{kFineLambda, evaluate(table_, kFineLambda)};
  if (high.totals.bits < target) return high.lambda;
  double before = -1;
  double lambda = -1;
  SearchTotals totals{};
  for (int i = 0; i < kMostIterations; ++i) {
    const double rate = high.totals.bits - low.totals.bits;
    if (rate == 0) return low.lambda;
    before = lambda;
    lambda = std::fabs((high.totals.distortion - low.totals.distortion) / rate);
    if (lambda == before) return high.totals.bits < target ? high.lambda : low.lambda;
    totals = evaluate(table_, lambda);
    if (totals.bits == low.totals.bits) return low.lambda;
    const double margin = target - totals.bits;
    if (margin > 0 && margin < kTolerance * target) return lambda;
    (totals.bits > target ? high : low) = {lambda, totals};
  }
  return totals.bits > target ? before : lambda;
}

int32_t RDOptController::Choose(double lambda, uint16_t* levelOut, uint16_t* bitsOut) const {
  uint64_t sum = 0;
  uint32_t chosen = 0;
  ForEachOfShare(*pattern_, jobIndex_, mbRows_, mbCols_, [&](uint32_t macroblock) {
    const uint16_t* const rates = rateTable_ + size_t{macroblock} * levelCount_;
    const uint32_t highest = HighestLevel(macroblock);
    double best = kWorstCost;
    // Deliberate: with an empty range the level of the macroblock before is written again. Pinned
    // by rd_opt_controller_test.cpp, AnEmptyRangeRepeatsTheLevelBefore.
    for (uint32_t level = LowestLevel(macroblock); level <= highest && level < levelCount_;
         ++level) {
      const double rate = rates[level];
      const double cost = table_.distortion[level] + rate * lambda;
      if (cost < best) {
        best = cost;
        chosen = level;
      }
    }
    levelOut[macroblock] = static_cast<uint16_t>(chosen);
    bitsOut[macroblock] = rates[chosen];
    sum += rates[chosen];
  });
  return sum > targetBits_ ? kErrorInBitCost : kSuccessful;
}

}  // namespace zel::dnxhd
