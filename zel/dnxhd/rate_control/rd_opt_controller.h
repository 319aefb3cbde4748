#pragma once

#include <cstdint>

#include "zel/dnxhd/rate_control/rate_search.h"
#include "zel/dnxhd/rate_control/rd_rate_controller.h"
#include "zel/dnxhd/rate_control/share_pattern.h"

// A Lagrangian search over tables of rates: a level for each macroblock such that the sum of
// distortion + rate * lambda is the least, with the smallest lambda whose rates fit the budget.

namespace zel::dnxhd {

/// The steps of the levels 0 to 7: what the rate tables of a frame are made for.
inline constexpr uint16_t kLevelSteps[kMaxLevels] = {1, 2, 4, 8, 16, 32, 64, 128};

class RDOptController : public RDRateController {
 public:
  RDOptController() = default;

  /// @return kErrorNoInitialization for a null table, kErrorInvalidQuantLevel for a count of 0 or
  /// above kMaxLevels. The table is borrowed.
  int32_t SetQuantisers(uint32_t count, const uint16_t* table);
  /// `rateTable` has the count of quantisers' values for each macroblock of the picture, and is
  /// borrowed. @return kErrorNoInitialization for a null table, kErrorInvalidMbStride unless there
  /// are 1, 2, 4 or 8 jobs to the picture.
  int32_t SetRates(const uint16_t* rateTable, uint32_t jobs);
  /// Only type 1 exists: the square of the step. @return kErrorDistortionTypeNotSupported for
  /// another, kErrorInitializationFailed without quantisers.
  int32_t SetDistortionType(uint32_t type);
  /// Lowest and highest level, for each macroblock of the picture; borrowed. @return
  /// kErrorNoInitialization for null.
  int32_t SetRanges(const uint8_t* ranges);
  void ClearRanges();

  /// Writes level and rate of each macroblock of the share. `pass` is not used.
  /// @return 0; kErrorInBitCost when even the coarsest choice is above the budget, with the levels
  /// and rates of that choice written; kErrorNoInitialization for null or before the tables are set
  /// up, kErrorInitializationFailed when the distortion type is not 1: nothing is then written.
  int32_t Run(uint16_t* levelOut, uint16_t* bitsOut, int32_t pass, int32_t jobIndex) override;

 private:
  void GatherRates();
  double Search() const;
  int32_t Choose(double lambda, uint16_t* levelOut, uint16_t* bitsOut) const;
  uint32_t LowestLevel(uint32_t macroblock) const;
  uint32_t HighestLevel(uint32_t macroblock) const;

  uint32_t levelCount_ = 0;
  const uint16_t* quantisers_ = nullptr;
  uint32_t distortionType_ = 0;
  bool useRanges_ = false;
  const uint8_t* ranges_ = nullptr;
  bool tablesReady_ = false;
  const uint16_t* rateTable_ = nullptr;
  const SharePattern* pattern_ = nullptr;
  uint32_t jobIndex_ = 0;
  SearchTable table_;  // the share's rates, gathered, and the distortions
};

}  // namespace zel::dnxhd
