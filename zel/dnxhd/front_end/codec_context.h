#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/encoder/encoder_core.h"
#include "zel/dnxhd/formatters/frame_format.h"
#include "zel/dnxhd/formatters/frame_formatter.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/front_end/uncomp_info.h"
#include "zel/dnxhd/result_words.h"

// What a codec object owns: the encoder, the decoder with its workers, and what was set.

namespace zel::dnxhd {

using Morvalen::Zel::CompInfo;
using Morvalen::Zel::UnCompInfo;

/// Whether the words of a record are ones that the codec knows; `decoding` allows other sizes than
/// the full one.
bool MakesSense(const UnCompInfo& record, bool decoding);

/// The same in the formatters' words.
FrameFormat FormatOf(const UnCompInfo& record);

class CodecContext {
 public:
  /// Null when memory is short.
  static std::unique_ptr<CodecContext> Create();

  ResultWord Configure(const UnCompInfo* record, const CompInfo* row, uint32_t direction);
  ResultWord EncodeFrame(const void* input, void* output);
  /// `offset` keeps the output's alignment, or the frame is refused.
  ResultWord DecodeFrame(const void* compressed, void* output, uint32_t offset);

  void SetEncodeRowBytes(uint32_t bytes);
  void SetDecodeRowBytes(uint32_t bytes);
  void SetEncodeFieldGap(uint32_t bytes);
  void SetDecodeFieldGap(uint32_t bytes);
  ResultWord SetEncodeThreads(int32_t count);
  ResultWord SetDecodeThreads(int32_t count);
  int32_t EncodeThreads() const { return encode_.threads; }
  int32_t DecodeThreads() const { return decode_.threads; }

  /// Holds from the next Configure on.
  void SetTentFilter(bool on) { tentFilter_ = on; }
  bool TentFilter() const { return tentFilter_; }

  ResultWord LastResult() const { return lastResult_; }
  /// Bytes of an encoded frame.
  uint32_t EncodedBytes() const;

 private:
  // What was set for one direction.
  struct Setup {
    // Of the last Configure that succeeded:
    std::optional<UnCompInfo> record;
    const VCIDEntry* entry = nullptr;
    bool tentFilter = false;

    bool ready = false;  // no Configure has failed since
    int32_t threads = 1;
    int32_t rowBytes = 0;
    int32_t fieldGap = 0;
    bool formatChanged = false;  // rowBytes or fieldGap, since the formatter was made

    FrameFormat Format(const UnCompInfo& described, bool tent) const;
  };

  CodecContext() = default;

  ResultWord Keep(ResultWord result) { return lastResult_ = result; }
  ResultWord SetUp(const UnCompInfo& record, const VCIDEntry& entry, uint32_t direction);
  ResultWord ConfigureEncoder(const FrameFormat& format, const VCIDEntry& entry);
  ResultWord ConfigureDecoder(const FrameFormat& format, const VCIDEntry& entry);
  ResultWord RefreshEncoder();
  ResultWord RefreshDecoder();
  ResultWord Encode(const void* input, void* output);
  ResultWord Decode(const void* compressed, void* output);

  Setup encode_;
  Setup decode_;
  bool tentFilter_ = false;
  ResultWord lastResult_ = kSuccessful;

  EncoderCore encoder_;

  std::unique_ptr<RowRunner> runner_;
  std::unique_ptr<FrameDecoder> decoder_;  // on the runner's workers
  std::unique_ptr<DecodeFormatter> decodeFormatter_;
};

}  // namespace zel::dnxhd
