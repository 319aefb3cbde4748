#pragma once

/// Codes of what the video analysers report; the texts stand in the message tables.

namespace zel::mux {

enum video_fatal : int {
  kVideoNeverAcquired = 23,
  kVideoNoInputFile = 27,
  kVideoOpenFailed = 33,
  kUnitExceedsVbv = 55,
  kMpeg1BecameMpeg2 = 57,
  kIllegalFrameType = 58,
  kIllegalFrameRateCode = 59,
  kBufferBelowVbv = 61,
  kTwoSources = 65,
  kLengthAndAlign = 75,
  kLengthTooSmall = 76,
  kReservedProfile = 77,
  kAvcLevelUnknown = 87,
  kAvcNoFrameRate = 88,
  kMpeg4NoFrameRate = 90,
  kMvcNoViewId = 139,
  kLayersNeedPcrPid = 150,
  kOnlySpatialSvc = 151,
  kHevcLevelWithoutRate = 173,
};

enum video_warning : int {
  kBInLowDelay = 20,
  kVbvAboveLevel = 29,
  kBitRateChanged = 35,
  kVbvSizeChanged = 36,
  kAvcNoBitRate = 46,
  kAvcSeiAlignment = 47,
  kAvcNoFixedRate = 48,
  kMpeg4NoBitRate = 49,
  kMpeg4ReservedCode = 50,
  kMpeg4ProfileUnknown = 51,
  kBNeedsNotLowDelay = 57,
  kOutputDelayTooLong = 67,
  kAvcDepthChanged = 74,
  kAvcPocIncorrect = 75,
  kAvcOddFrameRate = 76,
  kEndNotSeen = 86,
  kStartNotSeen = 87,
  kLooksLikeTransport = 88,
  kTerminatesNoAvc = 109,
  kRatePairIncomplete = 113,
  kRatePairAndCode = 114,
  kMvcNotPresent = 133,
  kSvcNotPresent = 134,
  kFewUnits = 137,
  kLooksLikePes = 144,
  kHevcDepthChanged = 149,
  kHevcLevelDefault = 156,
  kHevcRateTooHigh = 157,
  kHevcSeiAlignment = 158,
  kHevcNoBitRate = 159,
  kHevcOddFrameRate = 160,
};

}  // namespace zel::mux
