#include "zel/dnxhd/rate_control/lllm_controller.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {

namespace {

constexpr double kLn2 = 0.6931471805599453;
constexpr double kFirstT = -5;  // the two points of the line; the other is 0
constexpr double kMargin = 1.004;

// Where the derivative of q * q + lambda * R(q) vanishes.
struct Optimum {
  double c;
  double k;

  Optimum(double a, double b) : c(1 / (2 - b)), k(a - kLn2 + std::log(-b)) {}
  double Step(double t) const { return std::exp((k + t) * c); }
  double Rate(double t, double a, double b) const { return std::exp((k + t) * c * b + a); }
};

}  // namespace

int32_t LLLMController::Setup(const LLLMParameters& parameters) {
  if (parameters.modelA == nullptr || parameters.modelB == nullptr || parameters.skip == nullptr ||
      parameters.quantOut == nullptr || parameters.rateOut == nullptr) {
    return kErrorNoInitialization;
  }
  parameters_ = parameters;
  return kSuccessful;
}

double LLLMController::RatesAt(double t) const {
  double sum = 0;
  for (size_t i = 0; i < macroblockCount_; ++i) {
    if (parameters_.skip[i] != 0) continue;
    const double a = parameters_.modelA[i];
    const double b = parameters_.modelB[i];
    sum += Optimum(a, b).Rate(t, a, b);
  }
  return sum;
}

int32_t LLLMController::Run(uint16_t* /*levelOut*/, uint16_t* /*bitsOut*/, int32_t pass,
                            int32_t /*jobIndex*/) {
  if (parameters_.modelA == nullptr) return kErrorNoInitialization;
  const double first = std::log(RatesAt(kFirstT));
  const double second = std::log(RatesAt(0));
  const double slope = (first - second) / kFirstT;
  // Where nothing is left, the coarsest steps are asked for, not those of a logarithm that isn't.
  const double budget = std::max(1.0, double{1} * targetBits_ - reservedBits_);
  const double t = (std::log(budget) - first + kFirstT * slope) / slope;
  double sum = 0;
  for (size_t i = 0; i < macroblockCount_; ++i) {
    if (parameters_.skip[i] != 0) continue;
    const double a = parameters_.modelA[i];
    const double b = parameters_.modelB[i];
    const Optimum optimum(a, b);
    parameters_.quantOut[i] = optimum.Step(t);
    parameters_.rateOut[i] = optimum.Rate(t, a, b);
    sum += parameters_.rateOut[i];
  }
  if (pass == 1 || sum * kMargin <= budget) return kSuccessful;
  for (size_t i = 0; i < macroblockCount_; ++i) {
    if (parameters_.skip[i] == 0) parameters_.rateOut[i] *= budget / (sum * kMargin);
  }
  return kSuccessful;
}

}  // namespace zel::dnxhd
