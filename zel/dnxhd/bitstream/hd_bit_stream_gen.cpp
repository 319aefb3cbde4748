#include "zel/dnxhd/bitstream/hd_bit_stream_gen.h"

#include <algorithm>

#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::dnxhd {

namespace {

RowInput RowOf(const WriteParameters& parameters, size_t row) {
  const PictureGeometry geometry = GeometryOf(*parameters.entry);
  const size_t blocks = BlocksOf(CodingModeOf(*parameters.entry));
  const size_t macroblocks = row * geometry.mbCols;
  RowInput input = parameters.rows;
  input.coefficients += macroblocks * blocks * kBlockCoefficients;
  input.steps += macroblocks;
  input.colorFlags += macroblocks;
  input.fieldFlags += macroblocks;
  return input;
}

}  // namespace

int32_t HDBitStreamGen::Execute(CodecJob* job) {
  if (job->parameters == nullptr) return FailJob(*job, kErrorNoInitialization);
  auto& parameters = *static_cast<WriteParameters*>(job->parameters);
  if (parameters.entry == nullptr || parameters.writer == nullptr) {
    return FailJob(*job, kErrorNoInitialization);
  }
  const ResultWord result =
      parameters.wholePicture ? WritePicture(parameters) : WriteRows(parameters);
  if (result != kSuccessful) return FailJob(*job, result);
  job->status = kJobDone;
  return kSuccessful;
}

ResultWord HDBitStreamGen::WriteRows(const WriteParameters& parameters) {
  const std::span<uint8_t> data = parameters.picture.subspan(kHeaderBytes);
  for (size_t row = 0; row < parameters.rowsInJob; ++row) {
    const uint32_t* const offsets = parameters.rowOffsets + parameters.firstRow + row;
    const size_t begin = offsets[0] & ~3u;
    const size_t end = offsets[1] & ~3u;
    if (begin > end || end > data.size()) return kErrorEncodeBufferOverflow;
    size_t written = 0;
    const ResultWord result =
        parameters.writer->Write(RowOf(parameters, row), data.subspan(begin, end - begin), written);
    if (result != kSuccessful) return result;
    std::fill(data.begin() + static_cast<ptrdiff_t>(begin + written),
              data.begin() + static_cast<ptrdiff_t>(end), uint8_t{0});
  }
  return kSuccessful;
}

ResultWord HDBitStreamGen::WritePicture(WriteParameters& parameters) {
  size_t used = kHeaderBytes;
  const auto header = parameters.picture.first<kHeaderBytes>();
  for (size_t row = 0; row < parameters.rowsInJob; ++row) {
    SetRowOffset(header, row, static_cast<uint32_t>(used - kHeaderBytes));
    size_t written = 0;
    const ResultWord result =
        parameters.writer->Write(RowOf(parameters, row), parameters.picture.subspan(used), written);
    if (result != kSuccessful) return result;
    used += written;
  }
  parameters.bytesWritten = used;
  return kSuccessful;
}

}  // namespace zel::dnxhd
