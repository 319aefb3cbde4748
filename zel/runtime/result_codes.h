#pragma once

namespace Morvalen::Zel {

/// Results of operations that can fail: 0 is success, these are the failures. Every front end, and
/// every object of the runtime, reports by this one family.
enum : int {
  ZelErrorFailed = -19000,           ///< general failure: a system call failed, an engine refused
  ZelErrorNotReady = -19001,         ///< the thing is not there yet
  ZelErrorOutOfMemory = -19002,      ///< allocation failed
  ZelErrorInvalidArgument = -19003,  ///< bad value or range, buffer too small, index out of range
  ZelErrorNullArgument = -19004,     ///< a required pointer was null
  ZelErrorNotSupported = -19006,     ///< the format or mode is not one that is handled
  ZelErrorOutOfBounds = -19007,      ///< an offset and length don't fit inside a byte array
  ZelErrorQueueFull = -19008,        ///< a queue is at capacity and may not grow
  ZelErrorCannotOpen = -19015,       ///< a file or device could not be opened
  ZelErrorDeviceSetup = -19017,      ///< a capture source type is not one that the device has
  ZelErrorOverrun = -19018,          ///< frames were dropped, or an engine run ended abnormally
  ZelErrorCancelled = -19019,        ///< the caller asked for the end
};

}  // namespace Morvalen::Zel
