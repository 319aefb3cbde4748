#pragma once

#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

struct CompInfo;
struct UnCompInfo;

/// What a codec object does: one compression at a time, both directions, and what can be told and
/// changed about compressed frames. `AvidHDCodecLibrary::CreateCodec` makes one.
///
/// Results are 0 or a negative result word; `AvidHDCodecLibrary::GetResultText` has their texts.
/// One thread at a time uses an object, and is in it until the work is done, be it by the object's
/// own workers. Any number of objects may work at the same time.
class ZEL_API IAvidCodecInterface {
 public:
  // The order of the virtual operations is part of the interface.

  virtual ~IAvidCodecInterface() = default;

  /// Encodes one frame. Nothing of it is kept.
  /// @param input the frame, laid out as `Configure` was told, borrowed for the call.
  /// @param output room for the row's `frameBytes`, which every frame takes up in full; on failure
  ///   its contents are of no use.
  /// @param a, b not looked at.
  /// @param compressedBytes gets the row's `frameBytes`, or 0 on failure. May be null.
  /// @return 0; -8 without a successful `Configure` for encoding, or with the library's initialised
  ///   flag clear; -17 when the frame doesn't fit; -21 for row bytes shorter than a line; -43 for a
  ///   null pointer; a worker's word.
  virtual int EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                          uint32_t* compressedBytes) = 0;

  /// Decodes one frame.
  /// @param compressed as many bytes as `Configure`'s row has `frameBytes`, borrowed for the call.
  /// @param output the frame's buffer, on a 16-byte boundary, as is the buffer's offset `b`. On
  ///   failure some of its lines may be written.
  /// @param a not looked at. @param b 0, or what the caller knows of `output`; it must be a
  /// multiple
  ///   of 16 as well, and is used for nothing else.
  /// @return 0; -3 for a header of another size than 640; -4 for an id that is unknown or not the
  ///   configured one, or a field code (byte 5) that doesn't fit it; -5 for codes that lead out of
  ///   their block; -8 as `EncodeFrame`; -20 for an unaligned output; -21 for row bytes shorter
  ///   than a line; -27 for a row table that leads out of the frame; -43 for a null pointer.
  virtual int DecodeFrame(void const* compressed, void* output, uint32_t a, uint32_t b) = 0;

  /// Applies a compression: `row` and a description of the uncompressed side, for encoding
  /// (`direction` 1) or decoding (2). Both directions can be set up at the same time. With a null
  /// `record`, what was set up before is built anew: the encoder (4) or the decoder's workers (8);
  /// `row` isn't used then.
  /// A failure leaves what was set up before in memory, but no frame of that direction is coded
  /// until a call succeeds.
  /// @return 0; -7 for samples that have no formatter, a raster that has no share of rows, or want
  ///   of memory or threads; -8 with nothing to build anew; -16 for samples that the codec doesn't
  ///   know; -35 for a row that the codec doesn't know; -36 for a word of the record that makes no
  ///   sense; -37 for another direction.
  virtual int Configure(UnCompInfo const* record, CompInfo const* row, uint32_t direction) = 0;

  /// The result of the last operation that gave one, or of a setter's refusal.
  virtual int GetLastResult() = 0;
  /// Copies at most `length` bytes of a result's text, which ends with a zero where there is room.
  /// A code without a text gives an empty one. @return 0, or -43 for a null pointer.
  virtual int GetResultText(int code, char* text, uint32_t length) = 0;

  /// Bytes from one line of the decoder's output to the next, from the next frame on. 0: as follows
  /// from the width. A signed number, negative for pictures that stand on their head. A value that
  /// is no multiple of 16 changes nothing and leaves -23 as the last result. @return 0
  virtual int SetRowBytesForDecode(uint32_t bytes) = 0;
  /// The same of the encoder's input; -22 for no multiple of 16. @return 0
  virtual int SetRowBytesForEncode(uint32_t bytes) = 0;
  /// Bytes between stacked fields of the decoder's output, from the next frame on. A value that is
  /// no multiple of 16 is taken, and leaves -25 as the last result. @return 0
  virtual int SetFieldGapForDecode(uint32_t bytes) = 0;
  /// The same of the encoder's input; -24 for no multiple of 16. @return 0
  virtual int SetFieldGapForEncode(uint32_t bytes) = 0;

  /// Threads that decode, of which one is the caller's. Below 1, or the present count: nothing
  /// happens. @return 0; -7 when workers can't be made; -8.
  virtual int SetDecodeThreads(int32_t count) = 0;
  /// Builds the encoder's jobs anew, for this count of workers. @return 0; -7; -8.
  virtual int SetEncodeThreads(int32_t count) = 0;
  virtual int32_t GetDecodeThreads() = 0;
  virtual int32_t GetEncodeThreads() = 0;

  /// Writes the library's two words, where there is a pointer, and returns the first.
  virtual uint32_t GetLibraryInfo(uint32_t* first, uint32_t* second) = 0;

  /// Parameter 3 is the tent filter for chroma, 0 or 1; it holds from the next `Configure` on.
  /// @return 0; -42 for another parameter; -38 for another value; -43 for a null pointer.
  virtual int GetParameter(uint32_t parameter, uint32_t* value) = 0;
  virtual int SetParameter(uint32_t parameter, uint32_t value) = 0;

  /// Reads every macroblock row of a frame without reconstructing it.
  /// @param compressionId the id that the frame is to be of.
  /// @param frame on a 16-byte boundary, whole: as many bytes as the id's `frameBytes`.
  /// @return 0; -26 for an id that the codec doesn't know; -8 with the initialised flag clear; -19
  ///   for an unaligned frame; -3, -4, -5 and -27 for what is wrong with the frame.
  virtual int CheckFrame(uint32_t compressionId, void const* frame) = 0;

  /// Puts packets of side data into the frame's header, or into those of its two fields. A packet
  /// is a marker of 255, two bytes of line number, two of data identifier, a count c, c data bytes
  /// and one more.
  /// @param frame a whole frame. @param packets packets, and behind them a byte other than 255.
  /// @return 0; -39 for no packet, or one that doesn't fit, or has no valid line in a frame of two
  ///   fields: nothing is changed then; -3 and -4 for a frame that is none; -8.
  virtual int InsertMetadata(void* frame, unsigned char const* packets) = 0;
  /// Writes 256 bytes: the frame's packets, and zeros behind them. @return 0, also when there is
  /// none; -3 and -4 for a frame that is none; -8.
  virtual int ExtractMetadata(void const* frame, unsigned char* packets) = 0;
};

/// The codec library as a whole: a flag that it is in use, and the codec objects.
///
/// `CAvidDNxHDApi` sets and clears the flag by itself. Callers that work with codec objects alone
/// call `Initialize` before, and `Terminate` behind. Any thread may call anything.
class ZEL_API AvidHDCodecLibrary {
 public:
  AvidHDCodecLibrary() = delete;

  /// Sets the flag. @return 0, or -8 when it is set already.
  static int Initialize();
  /// Clears the flag. Codec objects that are still there refuse to code from here on.
  static void Terminate();
  static bool IsInitialized();

  /// A new codec object, the caller's to delete. Null when the flag is clear, or memory is short.
  static IAvidCodecInterface* CreateCodec();

  /// The text of a result word, which lives as long as the library; empty for a code without one.
  static char const* GetResultText(int code);
};

}  // namespace Morvalen::Zel
