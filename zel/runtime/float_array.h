#pragma once

#include <atomic>
#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

/// A block of floats that owns its memory or wraps memory of somebody else. Its length is fixed
/// when it is made. Threads: as for `CByteArray`.
class ZEL_API CFloatArray : public CDependenciesObjectVS2012 {
 public:
  /// An array without memory, which is made at the first `GetData()`. A negative length becomes 0.
  explicit CFloatArray(int32_t wanted);
  ~CFloatArray() override;

  /// Floats, not bytes.
  int32_t GetLength() const;
  /// The floats. Memory that is missing is made, uninitialised; null if there is none to be had.
  float* GetData();
  /// Points the array at `foreign` memory, which stays the caller's. Memory that the array owns is
  /// kept until it dies; null brings it back at the next `GetData()`.
  void SetData(float* foreign);

  /// Zeroes all, if there is data. @return 0.
  int Clear();
  /// Zeroes a range. @return 0, also without data; ZelErrorInvalidArgument for a range that is not
  /// within the array.
  int Clear(int32_t offset, int32_t count);

 private:
  // What this array owns. Set once, by the first thread that needed it.
  std::atomic<float*> storage;
  std::atomic<float*> data;
  int32_t length;
};

}  // namespace Morvalen::Zel
