#pragma once

#include <cstdint>
#include <new>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

/// An array of references whose capacity is fixed when it is made. Not locked.
template <class T>
class CArray : public virtual CDependenciesObjectVS2012 {
 public:
  /// A negative capacity becomes 0. When there is no memory for the items the capacity is 0 too, so
  /// that the array is empty and stays so.
  explicit CArray(int32_t wanted)
      : count(0),
        capacity(wanted > 0 ? wanted : 0),
        items(new (std::nothrow) T* [static_cast<size_t>(capacity)] {}) {
    if (items == nullptr) capacity = 0;
  }
  ~CArray() override {
    for (int32_t index = 0; index < count; ++index) {
      if (items[index] != nullptr) items[index]->Release();
    }
    delete[] items;
  }

  /// Items stored, nulls included.
  int32_t GetCount() const { return count; }
  /// Items that there is room for.
  int32_t GetCapacity() const { return capacity; }

  /// Stores `item`, which may be null, behind the last one and adds a reference. A full array
  /// ignores it: no error, and no reference added.
  void Add(T* item) {
    if (count >= capacity) return;
    if (item != nullptr) item->Acquire();
    items[count++] = item;
  }

  /// The item with a reference for the caller; null for a null item or an index out of range.
  T* GetAt(int32_t index) const {
    if (index < 0 || index >= count) return nullptr;
    if (items[index] != nullptr) items[index]->Acquire();
    return items[index];
  }

 private:
  int32_t count;
  int32_t capacity;
  T** items;
};

class CString;
extern template class ZEL_API CArray<CString>;

}  // namespace Morvalen::Zel
