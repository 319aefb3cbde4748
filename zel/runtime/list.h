#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "zel/base/export.h"
#include "zel/runtime/enumerator.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/object.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

class CString;
class CByteArray;

// When a list's IndexOf takes two items for equal. Null equals null. Declared here for the types
// that compare by contents, so that no list of them can be compiled without seeing it.

/// Strings are equal when their wide forms are, exactly.
ZEL_API bool ItemsEqual(CString const* a, CString const* b);
/// Byte arrays are equal when they are one object or hold the same bytes.
ZEL_API bool ItemsEqual(CByteArray const* a, CByteArray const* b);
/// Everything else has its identity only.
template <class T>
bool ItemsEqual(T const* a, T const* b) {
  return a == b;
}

/// An item in its place in a list.
template <class T>
struct CDependenciesListNode {
  T* item;  // one reference; may be null
  CDependenciesListNode* next;
};

/// Where a walk over a list stands. Both null: before the first item. `current` null and `last`
/// set: behind the end, for good. `last` is tested but never followed, so its node may be gone.
template <class T>
struct CDependenciesListCursor {
  CDependenciesListNode<T>* current = nullptr;
  CDependenciesListNode<T>* last = nullptr;

  /// Steps to the next item, or from before the first to `head`; whether there is one.
  bool MoveNext(CDependenciesListNode<T>* head) {
    if (current != nullptr) {
      last = current;
      current = current->next;
    } else if (last == nullptr) {
      current = head;
    }
    return current != nullptr;
  }
  /// The item here, with a reference for the caller.
  /// @return 0, or ZelErrorNotReady when the walk stands at no item.
  int GetCurrent(RObject<T>& holder) const {
    if (current == nullptr) return ZelErrorNotReady;
    holder.SafeAcquire(current->item);
    return 0;
  }
  /// The same into a pointer, which stays as it is on failure.
  int GetCurrent(T*& item) const {
    if (current == nullptr) return ZelErrorNotReady;
    item = GetCurrent();
    return 0;
  }
  /// The same, null when the walk stands at no item.
  T* GetCurrent() const {
    if (current == nullptr) return nullptr;
    if (current->item != nullptr) current->item->Acquire();
    return current->item;
  }
};

template <class T>
class CDependenciesListEnumerator;

/// A singly linked list of references with a built-in cursor for one walk at a time. Items may be
/// null. Positions are found by walking. Not locked.
///
/// Adding during a walk appends. Don't remove the node at which a walk stands: the built-in cursor
/// survives it, stepping back by one, but an enumerator of its own doesn't.
template <class T>
class CDependenciesList : public CDependenciesObjectVS2012 {
 public:
  static constexpr uint32_t Type = FourCharacterCode("li<>");

  CDependenciesList();
  ~CDependenciesList() override;

  /// Items stored, nulls included.
  int32_t GetCount() const { return count; }
  /// Appends `item` and adds a reference. @return 0, or ZelErrorOutOfMemory
  int Add(T* item);
  /// Position of the first item that equals `item` (see ItemsEqual), or -1.
  int32_t IndexOf(T* item) const;
  /// The item with a reference for the caller; null for a null item or an index out of range.
  T* GetAt(int32_t index) const;
  /// Puts `item` in the place of the one at `index`, adding a reference and releasing the old one.
  /// @return 0; ZelErrorInvalidArgument for an index out of range; ZelErrorNotReady when a node is
  /// missing on the way.
  int SetAt(int32_t index, T* item);
  /// Unlinks the node and releases its item. @return 0, or ZelErrorInvalidArgument for an index out
  /// of range.
  int RemoveAt(int32_t index);
  /// Releases all items.
  void Clear();

  /// A walk that borrows the items and leaves the cursor alone, so that any number of threads may
  /// read at once: `for (T* item : list)`.
  class Iterator {
   public:
    using value_type = T*;              ///< an item, borrowed
    using difference_type = ptrdiff_t;  ///< as iterators have it

    /// The end.
    Iterator() = default;
    /// At a node; null is the end.
    explicit Iterator(CDependenciesListNode<T> const* start) : node(start) {}
    /// The item, borrowed; not at the end.
    T* operator*() const { return node->item; }
    /// Steps to the next item; not at the end.
    Iterator& operator++() {
      node = node->next;
      return *this;
    }
    Iterator operator++(int) {
      Iterator const before = *this;
      ++*this;
      return before;
    }
    /// Whether both stand at the same node.
    bool operator==(Iterator const&) const = default;

   private:
    CDependenciesListNode<T> const* node = nullptr;
  };
  /// The bounds of the walk.
  Iterator begin() const { return Iterator(head); }
  Iterator end() const { return Iterator(); }

  /// The built-in cursor; results as of CEnumerator. A list that had no memory for its cursor has
  /// nothing to walk with: Reset and GetCurrent report ZelErrorNotReady, MoveNext is false.
  int Reset();
  bool MoveNext();
  int GetCurrent(RObject<T>& holder);
  int GetCurrent(T*& item);
  T* GetCurrent();

 private:
  friend class CDependenciesListEnumerator<T>;
  using Node = CDependenciesListNode<T>;

  Node* NodeAt(int32_t index) const;

  int32_t count;
  Node* head;
  Node* tail;
  CDependenciesListEnumerator<T>* enumerator;  // one reference; null when it could not be made
};

/// A walk of its own over a list, which it keeps alive.
template <class T>
class CDependenciesListEnumerator : public CEnumerator<T> {
 public:
  /// Null makes a list's built-in enumerator, which has no reference to the list, since that would
  /// keep both alive for ever: the list moves its cursor itself.
  explicit CDependenciesListEnumerator(CDependenciesList<T>* walked) { list.SafeAcquire(walked); }

  int Reset() override {
    cursor = {};
    return 0;
  }
  bool MoveNext() override {
    CDependenciesList<T>* const walked = list;
    return cursor.MoveNext(walked != nullptr ? walked->head : nullptr);
  }
  int GetCurrent(RObject<T>& holder) override { return cursor.GetCurrent(holder); }
  int GetCurrent(T*& item) override { return cursor.GetCurrent(item); }
  T* GetCurrent() override { return cursor.GetCurrent(); }

 private:
  friend class CDependenciesList<T>;

  RObject<CDependenciesList<T>> list;
  CDependenciesListCursor<T> cursor;
};

template <class T>
CDependenciesList<T>::CDependenciesList()
    : CDependenciesObjectVS2012(Type, nullptr),
      count(0),
      head(nullptr),
      tail(nullptr),
      enumerator(new CDependenciesListEnumerator<T>(nullptr)) {}

template <class T>
CDependenciesList<T>::~CDependenciesList() {
  Clear();
  if (enumerator != nullptr) enumerator->Release();
}

template <class T>
int CDependenciesList<T>::Add(T* item) {
  Node* const node = new (std::nothrow) Node{item, nullptr};
  if (node == nullptr) return ZelErrorOutOfMemory;
  if (item != nullptr) item->Acquire();
  if (tail != nullptr) {
    tail->next = node;
  } else {
    head = node;
  }
  tail = node;
  ++count;
  return 0;
}

template <class T>
int32_t CDependenciesList<T>::IndexOf(T* item) const {
  int32_t index = 0;
  for (Node const* node = head; node != nullptr; node = node->next, ++index) {
    if (ItemsEqual(node->item, item)) return index;
  }
  return -1;
}

template <class T>
CDependenciesListNode<T>* CDependenciesList<T>::NodeAt(int32_t index) const {
  if (index < 0 || index >= count) return nullptr;
  Node* node = head;
  while (index-- > 0 && node != nullptr) node = node->next;
  return node;
}

template <class T>
T* CDependenciesList<T>::GetAt(int32_t index) const {
  Node const* const node = NodeAt(index);
  if (node == nullptr) return nullptr;
  if (node->item != nullptr) node->item->Acquire();
  return node->item;
}

template <class T>
int CDependenciesList<T>::SetAt(int32_t index, T* item) {
  if (index < 0 || index >= count) return ZelErrorInvalidArgument;
  Node* const node = NodeAt(index);
  if (node == nullptr) return ZelErrorNotReady;
  if (item != nullptr) item->Acquire();
  T* const old = node->item;
  node->item = item;
  if (old != nullptr) old->Release();
  return 0;
}

template <class T>
int CDependenciesList<T>::RemoveAt(int32_t index) {
  if (index < 0 || index >= count) return ZelErrorInvalidArgument;
  Node* const before = index > 0 ? NodeAt(index - 1) : nullptr;
  Node* const node = before != nullptr ? before->next : head;
  if (before != nullptr) {
    before->next = node->next;
  } else {
    head = node->next;
  }
  if (tail == node) tail = before;
  --count;
  if (enumerator != nullptr && enumerator->cursor.current == node) {
    // Back by one, so that the next step reaches the removed node's successor.
    enumerator->cursor = {};
    enumerator->cursor.current = before;
  }
  // Released last: that may run code which looks at this list.
  T* const item = node->item;
  delete node;
  if (item != nullptr) item->Release();
  return 0;
}

template <class T>
void CDependenciesList<T>::Clear() {
  Node* node = head;
  head = nullptr;
  tail = nullptr;
  count = 0;
  if (enumerator != nullptr && enumerator->cursor.current != nullptr) enumerator->cursor = {};
  while (node != nullptr) {
    Node* const next = node->next;
    T* const item = node->item;
    delete node;
    if (item != nullptr) item->Release();
    node = next;
  }
}

template <class T>
int CDependenciesList<T>::Reset() {
  return enumerator != nullptr ? enumerator->Reset() : ZelErrorNotReady;
}

template <class T>
bool CDependenciesList<T>::MoveNext() {
  return enumerator != nullptr && enumerator->cursor.MoveNext(head);
}

template <class T>
int CDependenciesList<T>::GetCurrent(RObject<T>& holder) {
  return enumerator != nullptr ? enumerator->GetCurrent(holder) : ZelErrorNotReady;
}

template <class T>
int CDependenciesList<T>::GetCurrent(T*& item) {
  return enumerator != nullptr ? enumerator->GetCurrent(item) : ZelErrorNotReady;
}

template <class T>
T* CDependenciesList<T>::GetCurrent() {
  return enumerator != nullptr ? enumerator->GetCurrent() : nullptr;
}

// The library holds these.
extern template class ZEL_API CEnumerator<CString>;
extern template class ZEL_API CEnumerator<CByteArray>;
extern template class ZEL_API CDependenciesListEnumerator<CString>;
extern template class ZEL_API CDependenciesListEnumerator<CByteArray>;
extern template class ZEL_API CDependenciesList<CString>;
extern template class ZEL_API CDependenciesList<CByteArray>;

}  // namespace Morvalen::Zel
