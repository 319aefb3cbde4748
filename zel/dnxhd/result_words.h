#pragma once

#include <array>
#include <cstdint>

// The result words of the codec: what every operation returns, 0 or negative, and what they say.

namespace zel::dnxhd {

enum ResultWord : int32_t {
  kSuccessful = 0,
  kErrorInFile = -1,
  kErrorInSequence = -2,
  kErrorInBitStream = -3,
  kErrorNonHdFormat = -4,
  kErrorInHuffmanDecode = -5,
  kErrorInMbAddressIncrement = -6,
  kErrorInMemoryAllocation = -7,
  kErrorNoInitialization = -8,
  kErrorUnsupportedBitRate = -9,
  kErrorMisalignment = -10,
  kErrorSetEventFailed = -11,
  kErrorWaitForEvent = -12,
  kErrorNotifyQueue = -13,
  kErrorSetEvent = -14,
  kErrorFatalException = -15,
  kErrorDecodeModeNotSupported = -16,
  kErrorEncodeBufferOverflow = -17,
  kErrorEncodeModeNotSupported = -18,
  kErrorInputUnaligned = -19,
  kErrorOutputUnaligned = -20,
  kErrorRowBytesUnaligned = -21,
  kErrorRowBytesForEncodeUnaligned = -22,
  kErrorRowBytesForDecodeUnaligned = -23,
  kErrorFieldGapForEncodeUnaligned = -24,
  kErrorFieldGapForDecodeUnaligned = -25,
  kErrorIdNotInList = -26,
  kErrorInMacroblockIndices = -27,
  kErrorCrc = -28,
  kErrorInvalidQuantLevel = -29,
  kErrorInvalidMbStride = -30,
  kErrorDistortionTypeNotSupported = -31,
  kErrorInitializationFailed = -32,
  kErrorInBitCost = -33,
  kErrorInResetEvent = -34,
  kErrorInCompInfo = -35,
  kErrorInUnCompInfo = -36,
  kErrorOperationNotSupported = -37,
  kErrorInTentFilter = -38,
  kErrorInMetadataInsertion = -39,
  kErrorInMetadataExtraction = -40,
  kNoMetadata = -41,
  kErrorInvalidParameterCode = -42,
  kErrorLockAndGetBuffer = -43,

  // Two more stand outside the table of texts.
  kErrorUnCompInfoDoesNotFit = -8888,
  kErrorIdNotInCompInfo = -9999,
};

struct ResultText {
  int32_t code;
  char text[56];  // ends with a zero
};
static_assert(sizeof(ResultText) == 60);

// Row N tells about code -N.
extern const std::array<ResultText, 44> kResultTexts;

// The text of a code; empty when it has no row.
const char* ResultTextOf(int32_t code);

}  // namespace zel::dnxhd
