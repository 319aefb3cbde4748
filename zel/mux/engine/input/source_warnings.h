#pragma once

#include <functional>

namespace zel::mux {

/// Warnings of sources that take a stream out of a transport or program stream.
enum source_warning : int {
  kStartCodeMissing = 22,
  kPackHeaderWrong = 23,
  kUnexpectedStreamId = 24,
  kSyncLost = 61,
  kPacketHeaderWrong = 62,
  kMpeg1HeaderWrong = 63,
  kPesHeaderWrong = 64,
};

/// Told what was wrong; reading goes on behind it.
using source_fault_function = std::function<void(source_warning warning)>;

}  // namespace zel::mux
