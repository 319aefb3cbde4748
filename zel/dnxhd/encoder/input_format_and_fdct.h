#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/encoder/frame_arrays.h"
#include "zel/dnxhd/encoder/row_source.h"
#include "zel/dnxhd/jobs/codec_job.h"

// Stage 1 of the encoder: from samples to weighed coefficients, and to the bits that each
// macroblock takes at each level.

namespace zel::dnxhd {

/// What all jobs of the stage share, by id.
struct TransformTables {
  PictureGeometry geometry;
  CodingMode mode;
  bool fieldFlag;  // macroblocks may be coded by fields
  uint32_t depth;
  Weighing luma;
  Weighing chroma;
  BitCost cost;

  explicit TransformTables(const VCIDEntry& entry);
};

struct TransformParameters {
  const TransformTables* tables = nullptr;
  const RowSource* source = nullptr;
  const void* frame = nullptr;
  size_t picture = 0;
  size_t firstRow = 0;  // in the picture
  size_t rowCount = 0;
  bool lastJobOfField = false;  // it has the bottom edge
  FrameArrays* arrays = nullptr;
  size_t firstMacroblock = 0;  // of the job, in the arrays
};

class InputFormatAndFDCTRes : public IJobHandler {
 public:
  InputFormatAndFDCTRes();

  /// Takes TransformParameters. @return kErrorNoInitialization without parameters, what the source
  /// gives.
  int32_t Execute(CodecJob* job) override;

 private:
  ResultWord TransformRow(const TransformParameters& parameters, size_t row);
  void Weigh(const TransformTables& tables, const int16_t* transformed, int16_t* out) const;
  uint32_t Rates(const TransformTables& tables, const int16_t* macroblock, int32_t* predictors,
                 uint16_t* rates) const;

  const TransformKernels& transform_;
  const CoefficientKernels& kernels_;
  AlignedArray<int16_t> samples_;
};

}  // namespace zel::dnxhd
