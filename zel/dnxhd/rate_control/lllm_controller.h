#pragma once

#include <cstdint>

#include "zel/dnxhd/rate_control/rd_rate_controller.h"

// A closed form instead of a search. The bits of a macroblock are modelled as R(q) = exp(a) * q^b,
// its distortion as q * q; the steps that a Lagrange multiplier with logarithm t asks for then
// follow, and t from the budget, on a line through two points.

namespace zel::dnxhd {

/// Arrays by macroblock, which the encoder owns.
struct LLLMParameters {
  double* modelA = nullptr;
  double* modelB = nullptr;  // negative
  uint8_t* skip = nullptr;   // 1: nothing to model
  double* quantOut = nullptr;
  double* rateOut = nullptr;
};

class LLLMController : public RDRateController {
 public:
  /// @return kErrorNoInitialization if any pointer is null.
  int32_t Setup(const LLLMParameters& parameters);
  /// Bits that skipped macroblocks take.
  void SetReservedBits(uint32_t bits) { reservedBits_ = bits; }

  /// Sets quantOut and rateOut of every macroblock that is not skipped. Only `pass` is used: 1 for
  /// the first pass; the second scales the rates down to the budget when they pass it.
  /// @return kErrorNoInitialization before Setup.
  int32_t Run(uint16_t* levelOut, uint16_t* bitsOut, int32_t pass, int32_t jobIndex) override;

 private:
  double RatesAt(double t) const;

  LLLMParameters parameters_;
  uint32_t reservedBits_ = 0;
};

}  // namespace zel::dnxhd
