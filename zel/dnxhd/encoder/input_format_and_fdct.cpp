#include "zel/dnxhd/encoder/input_format_and_fdct.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "zel/dnxhd/bitstream/row_writer.h"
#include "zel/dnxhd/encoder/quant_tables.h"

namespace zel::dnxhd {

namespace {

constexpr size_t kMaxMbCols = 120;

// Puts the even lines of a macroblock into its upper blocks and the odd ones into its lower, as it
// is coded by fields.
void SplitFields(const int16_t* frame, int16_t* fields) {
  constexpr struct {
    size_t upper;
    size_t lower;
  } kPairs[] = {{0, 128}, {64, 192}, {256, 320}, {384, 448}};
  constexpr size_t kLine = 8;
  for (const auto& pair : kPairs) {
    for (size_t y = 0; y < 16; ++y) {
      const int16_t* const in = frame + (y < 8 ? pair.upper : pair.lower) + kLine * (y % 8);
      int16_t* const out = fields + (y % 2 == 0 ? pair.upper : pair.lower) + kLine * (y / 2);
      std::copy_n(in, kLine, out);
    }
  }
}

}  // namespace

TransformTables::TransformTables(const VCIDEntry& entry)
    : geometry(GeometryOf(entry)),
      mode(CodingModeOf(entry)),
      fieldFlag(HasFieldFlag(entry)),
      depth(entry.depth),
      luma(LumaWeighing(entry)),
      chroma(ChromaWeighing(entry)),
      cost(entry) {}

InputFormatAndFDCTRes::InputFormatAndFDCTRes()
    : transform_(VectorTransformKernels()),
      kernels_(VectorCoefficientKernels()),
      samples_(MakeAlignedArray<int16_t>(kMaxMbCols * kMaxBlocks * kBlockCoefficients)) {}

int32_t InputFormatAndFDCTRes::Execute(CodecJob* job) {
  if (job->parameters == nullptr) return FailJob(*job, kErrorNoInitialization);
  const auto& parameters = *static_cast<const TransformParameters*>(job->parameters);
  if (parameters.tables == nullptr || parameters.source == nullptr) {
    return FailJob(*job, kErrorNoInitialization);
  }
  for (size_t row = 0; row < parameters.rowCount; ++row) {
    const ResultWord result = TransformRow(parameters, row);
    if (result != kSuccessful) return FailJob(*job, result);
  }
  job->status = kJobDone;
  return kSuccessful;
}

void InputFormatAndFDCTRes::Weigh(const TransformTables& tables, const int16_t* transformed,
                                  int16_t* out) const {
  constexpr size_t kPair = 2;
  if (tables.mode == kMode444) {
    for (size_t block = 0; block < 12; block += kPair) {
      kernels_.weigh(transformed + 64 * block, out + 64 * block, kPair,
                     block % 6 == 0 ? tables.luma : tables.chroma);
    }
    return;
  }
  kernels_.weigh(transformed, out, 4, tables.luma);
  kernels_.weigh(transformed + 256, out + 256, 4, tables.chroma);
}

// True bits of each level. @return the sum of them.
uint32_t InputFormatAndFDCTRes::Rates(const TransformTables& tables, const int16_t* macroblock,
                                      int32_t* predictors, uint16_t* rates) const {
  std::array<uint32_t, kMaxLevels> bits;
  bits.fill(tables.cost.endOfBlocks + DcBits(macroblock, tables.mode, tables.cost, predictors));
  kernels_.acBits(macroblock, BlocksOf(tables.mode), tables.cost, 0, kMaxLevels - 1, bits.data());
  uint32_t sum = 0;
  for (size_t level = 0; level < kMaxLevels; ++level) {
    rates[level] = static_cast<uint16_t>(bits[level]);
    sum += bits[level];
  }
  return sum;
}

ResultWord InputFormatAndFDCTRes::TransformRow(const TransformParameters& parameters, size_t row) {
  const TransformTables& tables = *parameters.tables;
  FrameArrays& arrays = *parameters.arrays;
  const size_t mbCols = tables.geometry.mbCols;
  const size_t blocks = BlocksOf(tables.mode);
  const size_t size = blocks * kBlockCoefficients;
  int16_t* const samples = samples_.get();
  const ResultWord result = parameters.source->FetchRow(parameters.frame, parameters.picture,
                                                        parameters.firstRow + row, samples);
  if (result != kSuccessful) return result;

  // Both depths reach the same precision.
  const auto forward = tables.depth == 8 ? transform_.forward8 : transform_.forward;
  std::array<int32_t, 3> predictors{};
  alignas(64) std::array<int16_t, kMaxBlocks * kBlockCoefficients> fieldSamples;
  for (size_t column = 0; column < mbCols; ++column) {
    const size_t index = parameters.firstMacroblock + row * mbCols + column;
    int16_t* const macroblock = samples + column * size;
    int16_t* const out = arrays.coefficients.get() + index * size;
    uint16_t* const rates = arrays.rateTable.get() + index * kMaxLevels;
    arrays.mbColorFlag[index] = 0;
    arrays.mbFieldFlag[index] = 0;
    if (tables.fieldFlag) SplitFields(macroblock, fieldSamples.data());
    forward(macroblock, blocks);
    Weigh(tables, macroblock, out);
    std::array<int32_t, 3> byFrame = predictors;
    const uint32_t frameBits = Rates(tables, out, byFrame.data(), rates);
    if (tables.fieldFlag) {
      int16_t* const out2 = arrays.coefficients2.get() + index * size;
      std::array<uint16_t, kMaxLevels> rates2;
      forward(fieldSamples.data(), blocks);
      Weigh(tables, fieldSamples.data(), out2);
      std::array<int32_t, 3> byField = predictors;
      if (Rates(tables, out2, byField.data(), rates2.data()) < frameBits) {
        arrays.mbFieldFlag[index] = 1;
        std::memcpy(out, out2, size * sizeof(int16_t));
        std::copy(rates2.begin(), rates2.end(), rates);
        byFrame = byField;
      }
    }
    predictors = byFrame;
    for (size_t component = 0; component < 3; ++component) {
      arrays.dcValues[3 * index + component] = static_cast<uint16_t>(predictors[component]);
    }
  }
  return kSuccessful;
}

}  // namespace zel::dnxhd
