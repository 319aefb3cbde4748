#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/object.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

/// A track of ETV data: a PID of a source transport stream whose sections become a table stream of
/// the multiplex. One thread uses it.
class ZEL_API CEtvTrack final : public CDependenciesObjectVS2012 {
 public:
  CEtvTrack() = default;
  ~CEtvTrack() override = default;

  /// Stores the PID, the source path and a copy of the descriptor bytes, and forms the path of the
  /// table file: "BASE.PID.table". Texts are UTF-8.
  /// @return 0; ZelErrorNullArgument without a path; ZelErrorInvalidArgument for a negative length;
  ///   ZelErrorOutOfMemory.
  int Init(char const* sourcePath, char const* tablePathBase, int32_t pid,
           unsigned char const* descriptors, int32_t descriptorsLength);

  /// Path of the source transport stream, borrowed; null before Init.
  CString* GetSrcPath() const { return sourcePath; }
  /// Path of the table file, borrowed; null before Init.
  CString* GetTablePath() const { return tablePath; }
  /// The descriptor bytes, borrowed; null without descriptors.
  unsigned char const* GetDescriptors() const;
  /// How many descriptor bytes there are.
  int32_t GetDescriptorsLength() const;

  /// The track's PID in the source.
  int32_t GetPid() const { return pid; }
  /// Bits a second; 0 until the demultiplexer has measured it.
  int32_t GetBitRate() const { return bitRate; }
  void SetBitRate(int32_t bitsPerSecond) { bitRate = bitsPerSecond; }

 private:
  RObject<CString> sourcePath;
  RObject<CString> tablePath;
  RObject<CByteArray> descriptorBytes;
  int32_t pid = 0;
  int32_t bitRate = 0;
};

}  // namespace Morvalen::Zel
