#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/formatters/frame_format.h"
#include "zel/dnxhd/result_words.h"

// Between frames in the application's buffers and macroblock rows in samples: all that encoder and
// decoder call. The formatter of the samples, the resampler of a thin raster and the conversion of
// colours stand behind it.
//
// Objects are made once for a configuration and keep no state from row to row: any number of
// threads may call one at once, each for another row. No call allocates.
//
// Buffers need no alignment. Those whose lines start at multiples of 64 bytes are the fastest.

namespace zel::dnxhd {

class CDCTInputFormatter;
class CDCTOutputFormatter;
class CResampler;
class ColorConversionDCT;

/// Gets the macroblock rows of frames to encode.
class EncodeFormatter {
 public:
  /// @return 0; kErrorDecodeModeNotSupported for a pair of layout and sample type that the codec
  /// doesn't know; kErrorInMemoryAllocation for one that has no formatter, or for want of memory.
  /// `made` is then null.
  static ResultWord Make(const VCIDEntry& entry, const FrameFormat& format,
                         std::unique_ptr<EncodeFormatter>& made);
  ~EncodeFormatter();

  /// The samples of macroblock row `row` (from the top of its picture) of picture 0 or 1 of the
  /// frame. `blocks` gets mbCols macroblocks of 8 or 12 blocks in storage order (BlockOrder), 64
  /// samples each, row by row, centred on 0: -128 to 127, or -512 to 511 at 10 bits. They are what
  /// TransformKernels::forward takes. It is aligned to 16 bytes.
  ///
  /// 4:4:4 macroblocks are Y, Cb and Cr, for all of them: they are coded with `mbColorFlag` 0.
  ///
  /// Lines below the picture are filled so that they cost the fewest bits; columns right of it
  /// repeat its last one. A buffer that has one field only gives it for both.
  /// @return 0; kErrorNoInitialization, kErrorInMemoryAllocation for the formatter's own codes.
  ResultWord FetchRow(const void* frame, size_t picture, size_t row, int16_t* blocks) const;

 private:
  EncodeFormatter();

  struct State;
  std::unique_ptr<State> state_;
};

/// Puts decoded rows into frames.
class DecodeFormatter {
 public:
  /// As EncodeFormatter::Make. The frames come from a FrameDecoder of the same entry, resolution
  /// and WantedPictures.
  static ResultWord Make(const VCIDEntry& entry, const FrameFormat& format,
                         std::unique_ptr<DecodeFormatter>& made);
  ~DecodeFormatter();

  /// Writes the lines of one row, those inside the picture only, and no byte of a line beyond the
  /// width (V210: beyond its last whole group). The row's samples are used up.
  ResultWord WriteRow(const DecodedRow& row, void* frame) const;

 private:
  DecodeFormatter();

  struct State;
  std::unique_ptr<State> state_;
};

/// Takes the rows of one frame: what goes to FrameDecoder::Decode.
class FrameTaker : public RowTaker {
 public:
  FrameTaker(const DecodeFormatter& formatter, void* frame)
      : formatter_(formatter), frame_(frame) {}
  ResultWord TakeRow(const DecodedRow& row) override { return formatter_.WriteRow(row, frame_); }

 private:
  const DecodeFormatter& formatter_;
  void* const frame_;
};

}  // namespace zel::dnxhd
