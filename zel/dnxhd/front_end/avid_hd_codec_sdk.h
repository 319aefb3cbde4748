#pragma once

#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

class IAvidCodecInterface;
struct UnCompInfo;

/// The codec by compression ids: which one comes next is stored, and applied with the description
/// of the uncompressed side. Results are 0 or a negative result word; threads are as
/// `IAvidCodecInterface` has them.
class ZEL_API AvidHDCodecSDK {
 public:
  // The order of the virtual operations is part of the interface.

  virtual ~AvidHDCodecSDK() = default;

  /// Writes 1, 4, 2, 0, 64 and "b"; nothing at all if a pointer is null.
  virtual void GetVersion(uint32_t* major, uint32_t* minor, uint32_t* fix, uint32_t* build,
                          uint32_t* bits, char* letter) = 0;
  /// Bytes of a compressed frame, by a fixed list of ids. 0 means unknown: 1254 and 1257, whose
  /// size `CompInfo` has, are not in the list.
  virtual int32_t GetCompressedBufferSize() = 0;
  /// `IAvidCodecInterface::EncodeFrame`, and so on for what follows.
  virtual int EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                          uint32_t* compressedBytes) = 0;
  virtual int DecodeFrame(void const* compressed, void* output, uint32_t a, uint32_t b) = 0;
  /// Stores the id; the next `SetInputOutputDataTypes` looks at it. @return 0
  virtual int SetCompressionId(uint16_t id) = 0;
  /// Applies the stored id and a description of the uncompressed side, which is copied.
  /// @param record the uncompressed side. @param direction 1: encoding; 2: decoding.
  /// @return 0; -9999 for an id that has no row in `CompInfo`; -8888 for a 4:4:4 compression whose
  ///   samples aren't RGB; -43 for a null record; else as `IAvidCodecInterface::Configure`.
  virtual int SetInputOutputDataTypes(UnCompInfo const* record, uint32_t direction) = 0;
  /// `IAvidCodecInterface::GetLastResult`.
  virtual int GetLastResult() = 0;
  /// `IAvidCodecInterface::GetResultText`.
  virtual int GetResultText(int code, char* text, uint32_t length) = 0;
  /// `IAvidCodecInterface::SetRowBytesForDecode`.
  virtual int SetRowBytesForDecode(uint32_t bytes) = 0;
  /// `IAvidCodecInterface::SetRowBytesForEncode`.
  virtual int SetRowBytesForEncode(uint32_t bytes) = 0;
  /// `IAvidCodecInterface::SetFieldGapForDecode`.
  virtual int SetFieldGapForDecode(uint32_t bytes) = 0;
  /// `IAvidCodecInterface::SetFieldGapForEncode`.
  virtual int SetFieldGapForEncode(uint32_t bytes) = 0;
  /// More than 16 is as 16.
  virtual int SetDecodeThreads(int32_t count) = 0;
  /// More than 8 is as 8.
  virtual int SetEncodeThreads(int32_t count) = 0;
  virtual int32_t GetDecodeThreads() = 0;
  virtual int32_t GetEncodeThreads() = 0;
};

/// The implementation, over a codec object of its own. Without one (the library's initialised flag
/// was clear, or memory was short) what needs it gives -8.
class ZEL_API AvidHDCodecSDKImpl final : public AvidHDCodecSDK {
 public:
  AvidHDCodecSDKImpl();
  /// Over a codec object of the caller's, which it owns from here on.
  explicit AvidHDCodecSDKImpl(IAvidCodecInterface* own);
  AvidHDCodecSDKImpl(AvidHDCodecSDKImpl const&) = delete;
  AvidHDCodecSDKImpl& operator=(AvidHDCodecSDKImpl const&) = delete;
  ~AvidHDCodecSDKImpl() override;

  void GetVersion(uint32_t* major, uint32_t* minor, uint32_t* fix, uint32_t* build, uint32_t* bits,
                  char* letter) override;
  int32_t GetCompressedBufferSize() override;
  int EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                  uint32_t* compressedBytes) override;
  int DecodeFrame(void const* compressed, void* output, uint32_t a, uint32_t b) override;
  int SetCompressionId(uint16_t id) override;
  int SetInputOutputDataTypes(UnCompInfo const* record, uint32_t direction) override;
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

  /// The codec object, borrowed; null without one.
  IAvidCodecInterface* GetCodec() const { return codec; }

 private:
  uint16_t compressionId;
  IAvidCodecInterface* codec;  // owned
};

}  // namespace Morvalen::Zel
