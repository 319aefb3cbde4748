#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

// The three holders share these rules. A constructor or assignment that takes a raw pointer adopts
// it: no reference is added, and the holder gives back the one that it was handed. `FromObject`,
// `SafeAcquire(raw)` and assignment from another holder add a reference. `ToObject()` and
// `SafeAcquire() const` hand the caller one; the conversion to a raw pointer and `operator->` lend
// it. A holder has no lock: one thread at a time uses one holder, though many holders on many
// threads may hold the same object.

/// A pointer type whose object can be held.
template <class P>
concept PointsToObject =
    std::is_pointer_v<P> && std::convertible_to<P, CDependenciesObjectVS2012 const*>;

/// Holds one reference to any object of the runtime.
class ZEL_API BaseObject {
 public:
  BaseObject();
  /// Adopts: the holder releases what the caller had a reference to.
  BaseObject(CDependenciesObjectVS2012* adopted);
  BaseObject(BaseObject const& other);
  virtual ~BaseObject();

  /// Releases the held object and adopts the other one. When both are the same nothing happens, and
  /// no reference changes.
  BaseObject& operator=(CDependenciesObjectVS2012* adopted);
  /// Releases the held object and adds a reference to the other's, unless they are the same.
  BaseObject& operator=(BaseObject const& other);

  /// A holder with a reference of its own; the caller keeps his.
  static BaseObject FromObject(CDependenciesObjectVS2012* object);
  /// The held object with a reference for the caller, or null.
  CDependenciesObjectVS2012* ToObject() const;

  operator CDependenciesObjectVS2012*() const { return held; }
  CDependenciesObjectVS2012* operator->() const { return held; }

  /// Adds a reference to the held object, for somebody who will release it; the holder is otherwise
  /// unchanged. It is not an increment of anything else.
  BaseObject& operator++(int);

  // The compiler derives != and the forms with the raw pointer on the left from these.
  bool operator==(BaseObject const& other) const { return held == other.held; }
  bool operator==(std::nullptr_t) const { return held == nullptr; }
  template <PointsToObject P>
  bool operator==(P other) const {
    return held == static_cast<CDependenciesObjectVS2012 const*>(other);
  }

  /// The held object's type tag. An empty holder answers 0 and false.
  uint32_t GetType() const;
  bool IsType(uint32_t type) const;

 protected:
  CDependenciesObjectVS2012* held;
};

template <class T, class = void, class = void>
class Object;

/// The typed part of a value holder such as String: a `T*` next to the virtual base's pointer.
///
/// Meant to be derived from. The most derived class constructs the virtual base, so a derived class
/// names BaseObject in each constructor's initialisers and gives it the object; the default
/// constructor of this class then takes its typed pointer from there.
///
/// Deliberate: an Object<T> that stands alone leaves the base's pointer null in all its
/// constructors and sets the typed pointer only, so it holds nothing and releases nothing. A
/// derived `FromObject` relies on it: it takes the typed pointer, whose reference nobody owns yet,
/// out of the result of this class's `FromObject` and adopts it. Pinned by holder_test.cpp,
/// StandAloneObjectHoldsNothing.
template <class T>
class Object<T, void, void> : public virtual BaseObject {
 public:
  Object() : BaseObject(), typed(static_cast<T*>(held)) {}
  /// Adopts as the base of a holder that hands BaseObject the same pointer; see above when it
  /// stands alone.
  Object(T* adopted) : BaseObject(), typed(adopted) {}
  Object(Object const& other) : BaseObject(), typed(other.typed) {}
  ~Object() override { typed = nullptr; }

  /// As BaseObject's; the typed pointer is stored even when the object stays the same.
  Object& operator=(T* adopted) {
    typed = adopted;
    BaseObject::operator=(adopted);
    return *this;
  }
  /// As BaseObject's. The typed pointer follows the base's pointer, so what a stand-alone Object
  /// merely points at isn't taken over, and the result is empty.
  Object& operator=(Object const& other) {
    typed = static_cast<T*>(other.held);
    BaseObject::operator=(other);
    return *this;
  }

  /// Adds a reference and returns a stand-alone Object that points at it without owning it.
  static Object FromObject(T* object) {
    if (object != nullptr) object->Acquire();
    return Object(object);
  }
  /// The object with a reference for the caller, or null.
  T* ToObject() const {
    if (typed != nullptr) typed->Acquire();
    return typed;
  }

  operator T*() const { return typed; }
  T* operator->() const { return typed; }

 protected:
  T* typed;
};

/// The light holder: one typed pointer, no virtual base.
template <class T>
class RObject {
 public:
  /// Adopts.
  RObject(T* adopted = nullptr) : held(adopted) {}
  RObject(RObject const&) = delete;
  virtual ~RObject() { Take(nullptr); }

  /// Releases the held object, even when it is the same one, and adopts the other.
  RObject& operator=(T* adopted) {
    Take(adopted);
    return *this;
  }
  /// Releases the held object and adds a reference to the other's, unless they are the same.
  RObject& operator=(RObject const& other) {
    SafeAcquire(other.held);
    return *this;
  }

  /// Releases the held object and adds a reference to `object`, unless they are the same.
  void SafeAcquire(T* object) {
    if (held == object) return;
    if (object != nullptr) object->Acquire();
    Take(object);
  }
  /// The held object with a reference for the caller, or null.
  T* SafeAcquire() const {
    if (held != nullptr) held->Acquire();
    return held;
  }

  /// The pointer's slot, for use as an out parameter: the held object is released first, whether or
  /// not the callee then writes something.
  T*& operator&() {
    Take(nullptr);
    return held;
  }

  operator T*() const { return held; }
  T* operator->() const { return held; }

  template <PointsToObject P>
  bool operator==(P other) const {
    return held == other;
  }

 private:
  // Stores before it releases: the release may run code that looks at this holder again.
  void Take(T* object) {
    T* const old = held;
    held = object;
    if (old != nullptr) old->Release();
  }

  T* held;
};

// The library holds these.
class CString;
class CByteArray;
extern template class ZEL_API Object<CString, void, void>;
extern template class ZEL_API Object<CByteArray, void, void>;
extern template class ZEL_API RObject<CString>;
extern template class ZEL_API RObject<CByteArray>;

}  // namespace Morvalen::Zel
