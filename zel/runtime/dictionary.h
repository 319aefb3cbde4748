#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/list.h"
#include "zel/runtime/object.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

/// Keys and values in two parallel lists, in the order in which the keys were first set. Lookups
/// walk, which suits some tens of keys. Not locked.
template <class K, class V>
class CDictionary : public virtual CDependenciesObjectVS2012 {
 public:
  CDictionary() : keys(new CDependenciesList<K>), values(new CDependenciesList<V>) {}

  /// Keys stored.
  int32_t GetCount() const { return keys != nullptr ? keys->GetCount() : 0; }

  /// Stores `value`, which may be null, under `key`, adding a reference to what is kept. A key that
  /// is there already keeps its position and its key object.
  /// @return 0; ZelErrorOutOfMemory; ZelErrorInvalidArgument when the key has no place in the value
  /// list; ZelErrorNotReady when a node is missing on the way to it.
  int Set(K* key, V* value) {
    int32_t const index = IndexOf(key);
    return index >= 0 ? SetValueAt(index, value) : Append(key, value);
  }

  /// Replaces the value at a position. Results as of `Set`.
  int SetValueAt(int32_t index, V* value) {
    return values != nullptr ? values->SetAt(index, value) : ZelErrorOutOfMemory;
  }

  /// Appends a pair whose key the caller knows to be new. @return 0, or ZelErrorOutOfMemory.
  int Append(K* key, V* value) {
    if (keys == nullptr || values == nullptr) return ZelErrorOutOfMemory;
    // A key whose value could not be appended is still there without one. It gets a null now, so
    // that the lists stay parallel.
    while (values->GetCount() < keys->GetCount()) {
      if (int const result = values->Add(nullptr); result < 0) return result;
    }
    if (int const result = keys->Add(key); result < 0) return result;
    return values->Add(value);
  }

  /// Position of the key, or -1.
  int32_t IndexOf(K* key) const { return keys != nullptr ? keys->IndexOf(key) : -1; }

  /// Position of the first key for which `matches(K*)` is true, or -1.
  template <class Matches>
  int32_t IndexWhere(Matches const& matches) const {
    if (keys == nullptr) return -1;
    int32_t index = 0;
    for (K* key : *keys) {
      if (matches(key)) return index;
      ++index;
    }
    return -1;
  }

  /// The value of the first key for which `matches(K*)` is true, borrowed; null for none.
  template <class Matches>
  V* FindValue(Matches const& matches) const {
    if (keys == nullptr || values == nullptr) return nullptr;
    auto value = values->begin();
    for (K* key : *keys) {
      if (value == values->end()) return nullptr;
      if (matches(key)) return *value;
      ++value;
    }
    return nullptr;
  }

  /// Calls `visit(K*, V*)` for each pair in order, with borrowed objects, until it returns a
  /// negative result. @return that, or 0.
  template <class Visit>
  int ForEach(Visit visit) const {
    if (keys == nullptr || values == nullptr) return 0;
    auto value = values->begin();
    for (K* key : *keys) {
      V* const one = value == values->end() ? nullptr : *value++;
      if (int const result = visit(key, one); result < 0) return result;
    }
    return 0;
  }

  /// The key or value at a position with a reference for the caller; null out of range.
  K* GetKeyAt(int32_t index) const { return keys != nullptr ? keys->GetAt(index) : nullptr; }
  V* GetValueAt(int32_t index) const { return values != nullptr ? values->GetAt(index) : nullptr; }

  /// Removes the pair at a position. @return 0, or ZelErrorInvalidArgument out of range.
  int RemoveAt(int32_t index) {
    if (index < 0 || index >= GetCount()) return ZelErrorInvalidArgument;
    if (values != nullptr) values->RemoveAt(index);
    return keys->RemoveAt(index);
  }
  /// Removes all pairs.
  void Clear() {
    if (keys != nullptr) keys->Clear();
    if (values != nullptr) values->Clear();
  }

  /// The lists, for reading, each with a reference for the caller.
  CDependenciesList<K>* GetKeys() const { return keys.SafeAcquire(); }
  CDependenciesList<V>* GetValues() const { return values.SafeAcquire(); }

 private:
  RObject<CDependenciesList<K>> keys;
  RObject<CDependenciesList<V>> values;
};

// The library holds this.
extern template class ZEL_API CDictionary<CString, CByteArray>;

}  // namespace Morvalen::Zel
