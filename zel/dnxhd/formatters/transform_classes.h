#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/transform.h"

// The transforms as classes, by depth and by size of what comes out. Coefficients of the forward
// transform are in the scale of 10 bits for both depths, so that both reach the same precision;
// those of the inverse one are in the scale of the depth.

namespace zel::dnxhd {

class CForwardDCT {
 public:
  virtual ~CForwardDCT() = default;
  /// `count` blocks of 64 samples, one behind the other, in place.
  virtual void Transform(int16_t* blocks, size_t count) const = 0;
};

class CInverseDCT {
 public:
  virtual ~CInverseDCT() = default;
  /// The blocks of a macroblock row, in place.
  virtual void TransformRow(int16_t* blocks, size_t count) const = 0;
};

using TransformKernelsOf = const TransformKernels& (*)();

template <TransformKernelsOf Kernels, int Depth>
class ForwardTransform : public CForwardDCT {
 public:
  void Transform(int16_t* blocks, size_t count) const override {
    (Depth == 8 ? Kernels().forward8 : Kernels().forward)(blocks, count);
  }
};

template <TransformKernelsOf Kernels, int Depth>
class InverseTransform : public CInverseDCT {
 public:
  void TransformRow(int16_t* blocks, size_t count) const override {
    Kernels().inverse(blocks, count, InverseFraction(Depth));
  }
};

/// To 4 by 4 or 2 by 2 samples a block.
template <TransformKernelsOf Kernels, int Depth>
class ReducedTransform : public CInverseDCT {
 public:
  explicit ReducedTransform(int size) : size_(size) {}
  void TransformRow(int16_t* blocks, size_t count) const override {
    Kernels().inverseReduced(blocks, count, InverseFraction(Depth), size_);
  }

 private:
  const int size_;
};

// clang-format off: a line a class.

class CBaseFDCT_8Bit_FullRes_IEEE final : public ForwardTransform<ScalarTransformKernels, 8> {};
class COptFDCT_8Bit_FullRes_IEEE final : public ForwardTransform<VectorTransformKernels, 8> {};
class CBaseFDCT_10Bit_FullRes_IEEE final : public ForwardTransform<ScalarTransformKernels, 10> {};
class COptFDCT_10Bit_FullRes_IEEE final : public ForwardTransform<VectorTransformKernels, 10> {};

class CBaseIDCT_8Bit_FullRes_IEEE final : public InverseTransform<ScalarTransformKernels, 8> {};
class COptIDCT_8Bit_FullRes_IEEE final : public InverseTransform<VectorTransformKernels, 8> {};
class CBaseIDCT_10Bit_FullRes_IEEE final : public InverseTransform<ScalarTransformKernels, 10> {};
class COptIDCT_10Bit_FullRes_IEEE final : public InverseTransform<VectorTransformKernels, 10> {};

class CBaseIDCT_8Bit_Half_QuartRes_IEEE final : public ReducedTransform<ScalarTransformKernels, 8> {
  using ReducedTransform::ReducedTransform;
};
class COptIDCT_8Bit_Half_QuartRes_IEEE final : public ReducedTransform<VectorTransformKernels, 8> {
  using ReducedTransform::ReducedTransform;
};
class CBaseIDCT_10Bit_Half_QuartRes_IEEE final
    : public ReducedTransform<ScalarTransformKernels, 10> {
  using ReducedTransform::ReducedTransform;
};
class COptIDCT_10Bit_Half_QuartRes_IEEE final
    : public ReducedTransform<VectorTransformKernels, 10> {
  using ReducedTransform::ReducedTransform;
};

// clang-format on

}  // namespace zel::dnxhd
