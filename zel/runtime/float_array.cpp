#include "zel/runtime/float_array.h"

#include <algorithm>
#include <cstdlib>

#include "zel/runtime/lazy_storage.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

CFloatArray::CFloatArray(int32_t wanted)
    : storage(nullptr), data(nullptr), length(std::max(wanted, 0)) {}

CFloatArray::~CFloatArray() {
  std::free(storage.load(std::memory_order_relaxed));
}

int32_t CFloatArray::GetLength() const {
  return length;
}

float* CFloatArray::GetData() {
  return LazyData(data, storage, static_cast<size_t>(length));
}

void CFloatArray::SetData(float* foreign) {
  data.store(foreign, std::memory_order_release);
}

int CFloatArray::Clear() {
  return Clear(0, length);
}

int CFloatArray::Clear(int32_t offset, int32_t count) {
  float* floats = data.load(std::memory_order_acquire);
  // Deliberate: success without data, unlike a byte array. Pinned by float_array_test.cpp,
  // ClearWithoutDataSucceeds.
  if (floats == nullptr) return 0;
  if (offset < 0 || count < 0 || count > length || offset > length - count) {
    return ZelErrorInvalidArgument;
  }
  std::fill_n(floats + offset, count, 0.0f);
  return 0;
}

}  // namespace Morvalen::Zel
