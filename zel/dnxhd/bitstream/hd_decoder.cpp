#include "zel/dnxhd/bitstream/hd_decoder.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

#include "zel/base/byte_order.h"

namespace zel::dnxhd {

namespace {

constexpr std::align_val_t kAlignment{64};
constexpr size_t kFieldCodeAt = 5;
constexpr size_t kIdAt = 40;

}  // namespace

void HDDecoder::AlignedDelete::operator()(int16_t* memory) const {
  ::operator delete[](memory, kAlignment);
}

HDDecoder::HDDecoder(const VCIDEntry& entry, uint32_t resolution, Reconstruction reconstruction)
    : HDDecoder(entry, resolution, reconstruction, ScalarTransformKernels()) {}

HDDecoder::HDDecoder(const VCIDEntry& entry, uint32_t resolution, Reconstruction reconstruction,
                     const TransformKernels& kernels)
    : geometry_(GeometryOf(entry)),
      kernels_(kernels),
      blocks_(BlocksOf(CodingModeOf(entry))),
      depth_(entry.depth),
      blockSize_(HasFieldFlag(entry) ? 8 : 8 / resolution),
      reader_(entry, reconstruction),
      coefficients_(static_cast<int16_t*>(::operator new[](
          geometry_.mbCols* blocks_* kBlockCoefficients * sizeof(int16_t), kAlignment))),
      flags_(geometry_.mbCols) {
  assert(resolution == 1 || resolution == 2 || resolution == 4);
}

HDDecoder_IntelSSE2::HDDecoder_IntelSSE2(const VCIDEntry& entry, uint32_t resolution,
                                         Reconstruction reconstruction)
    : HDDecoder(entry, resolution, reconstruction, VectorTransformKernels()) {}

// The blocks of a macroblock that is coded by fields hold the even lines above and the odd ones
// below. The transform doesn't mix them, so that it comes first and the lines are put in their
// places behind it.
void HDDecoder::InterleaveFields(int16_t* macroblock) const {
  constexpr struct {
    size_t upper;
    size_t lower;
  } kPairs[] = {{0, 128}, {64, 192}, {256, 320}, {384, 448}};
  constexpr size_t kLine = 8;
  for (const auto& pair : kPairs) {
    int16_t lines[2 * kBlockCoefficients];
    for (size_t i = 0; i < 8; ++i) {
      std::copy_n(macroblock + pair.upper + kLine * i, kLine, lines + 2 * kLine * i);
      std::copy_n(macroblock + pair.lower + kLine * i, kLine, lines + 2 * kLine * i + kLine);
    }
    std::copy_n(lines, kBlockCoefficients, macroblock + pair.upper);
    std::copy_n(lines + kBlockCoefficients, kBlockCoefficients, macroblock + pair.lower);
  }
}

ResultWord HDDecoder::DecodeRow(std::span<const uint8_t> data, const FrameHeader& header,
                                size_t picture, size_t row, RowTaker& taker) {
  if (row >= header.rowCount) return kErrorInMacroblockIndices;
  int16_t* const coefficients = coefficients_.get();
  size_t end = 0;
  const ResultWord result =
      reader_.Read(data, header.rowOffsets[row], {coefficients, flags_.data()}, end);
  if (result != kSuccessful) return result;

  const size_t count = geometry_.mbCols * blocks_;
  const int fraction = InverseFraction(depth_);
  if (blockSize_ == 8) {
    kernels_.inverse(coefficients, count, fraction);
  } else {
    kernels_.inverseReduced(coefficients, count, fraction, static_cast<int>(blockSize_));
  }
  for (size_t column = 0; column < geometry_.mbCols; ++column) {
    if (flags_[column].field) InterleaveFields(coefficients + column * blocks_ * 64);
  }
  const bool last = row + 1 == geometry_.mbRows;
  return taker.TakeRow({coefficients, flags_.data(), geometry_.mbCols, blocks_, blockSize_, depth_,
                        picture, row, last && geometry_.bottomPad != 0, geometry_.bottomPad});
}

ResultWord SerialRowRunner::Run(size_t rows, const Task& task) {
  for (size_t row = 0; row < rows; ++row) {
    if (const ResultWord result = task(0, row); result != kSuccessful) return result;
  }
  return kSuccessful;
}

FrameDecoder::FrameDecoder(const VCIDEntry& entry, uint32_t resolution, RowRunner& runner,
                           Reconstruction reconstruction)
    : entry_(entry), runner_(runner) {
  for (size_t worker = 0; worker < runner.WorkerCount(); ++worker) {
    decoders_.push_back(std::make_unique<HDDecoder_IntelSSE2>(entry, resolution, reconstruction));
  }
}

ResultWord FrameDecoder::Decode(std::span<const uint8_t> frame, Pictures pictures,
                                RowTaker& taker) {
  if (frame.size() < kHeaderBytes) return kErrorInBitStream;
  if (FindEntry(base::loadBig32(frame.data() + kIdAt)) != &entry_) return kErrorNonHdFormat;
  const uint8_t fieldCode = frame[kFieldCodeAt];
  if (fieldCode != kProgressivePicture && (fieldCode & ~1) != 2) return kErrorNonHdFormat;
  // The id's row says how many pictures there are, too: a header that has it otherwise would lead
  // to fields of a frame that has none.
  const bool single = entry_.singlePicture == 1;
  if (single != (fieldCode == kProgressivePicture)) return kErrorNonHdFormat;
  if (single) return DecodePicture(frame, 0, taker);
  // The order of the fields is that of their places.
  if (pictures != Pictures::kSecondOnly) {
    const ResultWord result = DecodePicture(frame, 0, taker);
    if (result != kSuccessful || pictures == Pictures::kFirstOnly) return result;
  }
  return DecodePicture(frame, 1, taker);
}

ResultWord FrameDecoder::DecodePicture(std::span<const uint8_t> frame, size_t picture,
                                       RowTaker& taker) {
  const PictureGeometry geometry = GeometryOf(entry_);
  if (frame.size() < (picture + 1) * geometry.pictureBytes) return kErrorInBitStream;
  const auto bytes = frame.subspan(picture * geometry.pictureBytes, geometry.pictureBytes);
  FrameHeader header;
  const ResultWord result = ParseFrameHeader(bytes, header);
  if (result != kSuccessful) return result;
  if (header.entry != &entry_) return kErrorNonHdFormat;
  const auto data = bytes.subspan(kHeaderBytes);
  return runner_.Run(geometry.mbRows, [&](size_t worker, size_t row) {
    return decoders_[worker]->DecodeRow(data, header, picture, row, taker);
  });
}

}  // namespace zel::dnxhd
