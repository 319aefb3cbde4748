#pragma once

#include <memory>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/codec_context.h"

namespace Morvalen::Zel {

/// The codec object: lets operations through to its context while the library's flag is set.
class AvidHDCodec final : public IAvidCodecInterface {
 public:
  explicit AvidHDCodec(std::unique_ptr<zel::dnxhd::CodecContext> context);

  int EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                  uint32_t* compressedBytes) override;
  int DecodeFrame(void const* compressed, void* output, uint32_t a, uint32_t b) override;
  int Configure(UnCompInfo const* record, CompInfo const* row, uint32_t direction) override;
  int GetLastResult() override;
  int GetResultText(int code, char* text, uint32_t length) override;
  int SetRowBytesForDecode(uint32_t bytes) override;
  int SetRowBytesForEncode(uint32_t bytes) override;
  int SetFieldGapForDecode(uint32_t bytes) override;
  int SetFieldGapForEncode(uint32_t bytes) override;
  int SetDecodeThreads(int32_t count) override;
  int SetEncodeThreads(int32_t count) override;
  int32_t GetDecodeThreads() override;
  int32_t GetEncodeThreads() override;
  uint32_t GetLibraryInfo(uint32_t* first, uint32_t* second) override;
  int GetParameter(uint32_t parameter, uint32_t* value) override;
  int SetParameter(uint32_t parameter, uint32_t value) override;
  int CheckFrame(uint32_t compressionId, void const* frame) override;
  int InsertMetadata(void* frame, unsigned char const* packets) override;
  int ExtractMetadata(void const* frame, unsigned char* packets) override;

 private:
  std::unique_ptr<zel::dnxhd::CodecContext> context_;
};

}  // namespace Morvalen::Zel
