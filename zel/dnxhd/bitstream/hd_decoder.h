#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/row_reader.h"
#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/result_words.h"

// From a frame to rows of macroblocks in samples. What becomes of the samples, pixels of the
// application's layout, is the affair of the row's taker.

namespace zel::dnxhd {

/// A row of macroblocks as the inverse transform leaves it.
struct DecodedRow {
  /// mbCols macroblocks of 8 or 12 blocks (RowOutput tells their order), 64 values apart, each with
  /// `blockSize` squared samples at its start, row by row. Samples are centred on 0: those of the
  /// picture are 2^(depth-1) higher, and limited to the depth. Borrowed, and free to be written on.
  int16_t* samples;
  const MacroblockFlags* flags;  // mbCols
  size_t mbCols;
  size_t blocks;     // a macroblock
  size_t blockSize;  // 8, or 4 or 2 at half or quarter size
  int depth;
  size_t picture;           // 0, or 1 for the second field picture of the frame
  size_t row;               // from the top of the picture
  bool lastRowWithPadding;  // its last `bottomPad` lines, at full size, are below the picture
  uint32_t bottomPad;
};

/// Takes the rows of a frame. Calls come from all workers at once, each for another row.
class RowTaker {
 public:
  virtual ~RowTaker() = default;
  virtual ResultWord TakeRow(const DecodedRow& row) = 0;
};

/// Decodes macroblock rows, one at a time; a frame that is shared out has one decoder a worker. It
/// keeps no state from row to row.
class HDDecoder {
 public:
  /// `resolution` is 1, 2 or 4: full, half or quarter size. Interlaced thin rasters (1260) are
  /// transformed at full size whatever it is.
  HDDecoder(const VCIDEntry& entry, uint32_t resolution,
            Reconstruction reconstruction = Reconstruction::kHalfway);
  virtual ~HDDecoder() = default;

  ResultWord DecodeRow(std::span<const uint8_t> data, const FrameHeader& header, size_t picture,
                       size_t row, RowTaker& taker);

 protected:
  HDDecoder(const VCIDEntry& entry, uint32_t resolution, Reconstruction reconstruction,
            const TransformKernels& kernels);

 private:
  void InterleaveFields(int16_t* macroblock) const;

  struct AlignedDelete {
    void operator()(int16_t* memory) const;
  };

  const PictureGeometry geometry_;
  const TransformKernels& kernels_;
  const size_t blocks_;
  const int depth_;
  const size_t blockSize_;
  RowReader reader_;
  std::unique_ptr<int16_t[], AlignedDelete> coefficients_;
  std::vector<MacroblockFlags> flags_;
};

/// The same with the kernels for vectors: what runs.
class HDDecoder_IntelSSE2 : public HDDecoder {
 public:
  HDDecoder_IntelSSE2(const VCIDEntry& entry, uint32_t resolution,
                      Reconstruction reconstruction = Reconstruction::kHalfway);
};

/// Shares the rows of a picture out. `task(worker, row)` decodes one row; a runner calls it for
/// every row from 0 to `rows` - 1, from as many threads at once as it has workers, no worker's
/// twice at once. It gives the first result that is not 0, after which it may leave rows out.
class RowRunner {
 public:
  using Task = std::function<ResultWord(size_t worker, size_t row)>;
  virtual ~RowRunner() = default;
  virtual size_t WorkerCount() const = 0;
  virtual ResultWord Run(size_t rows, const Task& task) = 0;
};

/// One after the other, on the caller's thread.
class SerialRowRunner : public RowRunner {
 public:
  size_t WorkerCount() const override { return 1; }
  ResultWord Run(size_t rows, const Task& task) override;
};

/// Which of a frame's pictures to decode.
enum class Pictures { kAll, kFirstOnly, kSecondOnly };

/// Decodes a frame of one id.
class FrameDecoder {
 public:
  FrameDecoder(const VCIDEntry& entry, uint32_t resolution, RowRunner& runner,
               Reconstruction reconstruction = Reconstruction::kHalfway);

  /// @return 0 or: kErrorNonHdFormat for an unknown id, one other than the decoder's, or a byte 5
  /// that is not 1, 2 or 3; kErrorInBitStream for a header of another size than 640 or fewer bytes
  /// than the frame has; kErrorInHuffmanDecode for codes that lead past a block or the picture;
  /// kErrorInMacroblockIndices for a row without a place in the picture; what the taker gives.
  ResultWord Decode(std::span<const uint8_t> frame, Pictures pictures, RowTaker& taker);

 private:
  ResultWord DecodePicture(std::span<const uint8_t> frame, size_t picture, RowTaker& taker);

  const VCIDEntry& entry_;
  RowRunner& runner_;
  std::vector<std::unique_ptr<HDDecoder>> decoders_;  // one a worker
};

}  // namespace zel::dnxhd
