#pragma once

#include <cstdint>

// Who finds a quantiser for every macroblock of a job, such that all of them fit its bits.

namespace zel::dnxhd {

class RDRateController {
 public:
  RDRateController() = default;
  virtual ~RDRateController() = default;
  RDRateController(const RDRateController&) = delete;
  RDRateController& operator=(const RDRateController&) = delete;

  /// The job's share: its bits, its macroblocks, and the macroblocks of the picture that it is a
  /// share of.
  void SetBudget(uint32_t targetBits, uint32_t macroblockCount, uint16_t mbRows, uint16_t mbCols) {
    targetBits_ = targetBits;
    macroblockCount_ = macroblockCount;
    mbRows_ = mbRows;
    mbCols_ = mbCols;
  }

  /// What the four mean is the controller's affair. @return 0 or a result word.
  virtual int32_t Run(uint16_t* levelOut, uint16_t* bitsOut, int32_t pass, int32_t jobIndex) = 0;

 protected:
  uint32_t targetBits_ = 0;
  uint32_t macroblockCount_ = 0;
  uint16_t mbRows_ = 0;
  uint16_t mbCols_ = 0;
};

}  // namespace zel::dnxhd
