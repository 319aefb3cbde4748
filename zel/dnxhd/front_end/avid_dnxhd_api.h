#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

class AvidHDCodecSDK;
class CDependenciesLock;

/// Codes and decodes DNxHD (VC-3, SMPTE ST 2019-1) frames in the formats of this library's
/// vocabulary.
///
/// `SetCompressionId`, then `SetInputOutputDataTypesForEncode` or `...ForDecode`, then any number
/// of frames. One object may be set up for both directions. Each frame is coded on its own and
/// nothing of it is kept.
///
/// Results are 0, a negative `ZelError...` code, or a negative result word of the codec:
/// `AvidHDCodecLibrary::GetResultText` has their texts. Every operation gives ZelErrorNotReady
/// (-19001) when the codec object could not be made.
///
/// Threads: one thread at a time uses an object, and waits while its workers do the work. Objects
/// don't share anything but the count of them, so several may code at once.
///
/// The result of encoding doesn't depend on the machine or the time, and decoding not on the thread
/// count either. What encoding has to do with the thread count, docs/dnxhd.md tells.
class ZEL_API CAvidDNxHDApi : public CDependenciesObjectVS2012 {
 public:
  /// @param threads workers of an encoder (at most 8) or decoder (at most 16). For decoding, 0 and
  ///   less are as 1.
  /// @return an object with one reference for the caller, or null when memory ran out.
  static CAvidDNxHDApi* Create(int32_t threads);
  /// The same over a codec object of the caller's, which the new object owns.
  static CAvidDNxHDApi* Create(int32_t threads, AvidHDCodecSDK* own);

  /// The compression of the next `SetInputOutputDataTypes...`: any number is stored. @return 0
  int SetCompressionId(int32_t id);

  /// Sets the encoder up for frames of the format. Row bytes follow from the width.
  /// @param format a code of `VideoFormat`: `Packed422UYVY_10` and `PackedARGB_64`; anything else
  /// is
  ///   taken as `Packed422UYVY`. 4:4:4 compressions take `PackedARGB_64` only.
  /// @param width of a line in pixels. 1440 says that lines have the width of a thin raster;
  ///   otherwise they have the full width.
  /// @param fieldMode 2 or 3: frames of two fields, line by line.
  /// @return 0; -9999 for an id that can't be coded; -8888 for a format that doesn't suit a 4:4:4
  ///   compression; ZelErrorInvalidArgument for a width below 1 or above 65535; else as
  ///   `IAvidCodecInterface::Configure` and `SetEncodeThreads`.
  int SetInputOutputDataTypesForEncode(uint32_t format, int32_t width, int32_t fieldMode);

  /// Sets the decoder up. `Packed422UYVY`, `Packed422UYVY_10` (lines of a multiple of 48 pixels),
  /// `PackedBGRA` and `PackedARGB_64`.
  /// @return as for encoding, and ZelErrorNotSupported for another format.
  int SetInputOutputDataTypesForDecode(uint32_t format, int32_t width, int32_t fieldMode);

  /// From one line of the input to the next, in bytes: a multiple of 16; another value changes
  /// nothing. 0: as follows from the width. @return 0
  int SetRowBytesForEncode(uint32_t rowBytes);

  /// Encodes one frame.
  /// @param input the frame, laid out as `SetInputOutputDataTypesForEncode` was told.
  /// @param output room for `GetCompressedBufferSize` bytes.
  /// @param a, b not used.
  /// @param compressedBytes gets the size of the frame when the result isn't negative. May be null.
  /// @return as `IAvidCodecInterface::EncodeFrame`
  int EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                  uint32_t* compressedBytes);

  /// Decodes one frame. `output` must be on a 16-byte boundary.
  /// @return as `IAvidCodecInterface::DecodeFrame`
  int DecodeFrame(void const* input, void* output, uint32_t a, uint32_t b);

  /// Bytes of a compressed frame of the id, or 0 for unknown: for ids that can't be coded, and for
  /// 1254 and 1257 too.
  int32_t GetCompressedBufferSize();

 protected:
  /// @param threadCount threads that each direction is set up with.
  /// @param own what codes, the object's from here on; null for the library's own.
  CAvidDNxHDApi(int32_t threadCount, AvidHDCodecSDK* own);
  ~CAvidDNxHDApi() override;

 private:
  AvidHDCodecSDK* sdk;  // owned
  int32_t threads;
  uint8_t firstDecodeSetup;  // 1 until RGB decoding has been set up with several threads

  // Guard one another: the lock is held around changes of the count and of the library's flag, and
  // around making and deleting codec objects.
  static CDependenciesLock* lock;
  static int32_t consumers;  // live objects
};

}  // namespace Morvalen::Zel
