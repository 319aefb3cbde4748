#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "zel/dnxhd/bitstream/row_writer.h"
#include "zel/dnxhd/jobs/codec_job.h"

// Stage 3 of the encoder: macroblock rows are written, each at its offset.

namespace zel::dnxhd {

struct WriteParameters {
  const VCIDEntry* entry = nullptr;
  const RowWriter* writer = nullptr;
  RowInput rows;  // of the job: its first row, and on
  size_t rowsInJob = 0;
  size_t firstRow = 0;  // in the picture
  /// From byte 640 on; behind the offset of the last row of the picture its end. Set in advance,
  /// and the low two bits of each are cleared.
  const uint32_t* rowOffsets = nullptr;
  /// The picture with its header.
  std::span<uint8_t> picture;
  /// The job writes a whole picture, row behind row, and the row table. `bytesWritten` is then
  /// what the picture has, header included.
  bool wholePicture = false;
  size_t bytesWritten = 0;
};

class HDBitStreamGen : public IJobHandler {
 public:
  /// Takes WriteParameters. @return kErrorNoInitialization without parameters,
  /// kErrorEncodeBufferOverflow when a row is longer than its place.
  int32_t Execute(CodecJob* job) override;

 private:
  static ResultWord WriteRows(const WriteParameters& parameters);
  static ResultWord WritePicture(WriteParameters& parameters);
};

}  // namespace zel::dnxhd
