#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/four_character_code.h"

namespace Morvalen::Zel {

class CDependenciesLock;

/// Root of everything that crosses the library's boundary as an object: a type tag, an atomic
/// reference count that starts at 1 for the creator, a lock that comes into being when somebody
/// first locks the object, and a hook that can intercept destruction.
///
/// Reference rules: an operation that returns an object hands the caller one reference, to be given
/// back by `Release`; a pointer passed in is borrowed, and whoever keeps it calls `Acquire`.
/// `Acquire` and `Release` may be called on any thread, with no lock held.
class ZEL_API CDependenciesObjectVS2012 {
 public:
  /// Holds the lock of an object for a scope. Null is allowed, and then nothing happens.
  class ZEL_API CAutoLock {
   public:
    /// Enters the lock of `object`, which must outlive the scope.
    explicit CAutoLock(CDependenciesObjectVS2012* const object);
    ~CAutoLock();
    CAutoLock(CAutoLock const&) = delete;
    CAutoLock& operator=(CAutoLock const&) = delete;

   private:
    CDependenciesObjectVS2012* object;
  };

  CDependenciesObjectVS2012();
  CDependenciesObjectVS2012(CDependenciesObjectVS2012 const&) = delete;
  CDependenciesObjectVS2012& operator=(CDependenciesObjectVS2012 const&) = delete;

  // The order of the virtual operations is part of the interface.
  virtual ~CDependenciesObjectVS2012();
  /// Whether the type tag is `type`.
  virtual bool IsType(uint32_t type) const;
  /// The object's address folded to 32 bits, unless a class gives its contents' hash.
  virtual uint32_t GetHashCode();
  /// Makes the object's lock. Called by the lock operations at first use.
  virtual void Synchronize();

 protected:
  // An object's lock is its own business and its class's; others reach it through CAutoLock. Each
  // of these calls `Synchronize` first when there is no lock yet. Should there be no memory for
  // one, nothing is locked, and they report that.

  /// Enters the lock; the same thread may enter again. @return 0, or ZelErrorOutOfMemory
  virtual int Enter();
  /// Enters the lock if no other thread holds it; whether it did.
  virtual bool TryEnter();
  /// Called with the lock held: leaves it once, waits for a notification or for `milliseconds` to
  /// pass, and takes it again. Every waiter wakes at a notification, so test the condition again.
  /// @return true when notified, false when the time ran out or the caller doesn't hold the lock.
  virtual bool Wait(int32_t milliseconds);
  virtual bool Wait();
  /// Called with the lock held: wakes every waiter, both of them. Without a waiter it has no
  /// effect.
  /// @return 0, or ZelErrorFailed if the system refused.
  virtual int Notify();
  virtual int NotifyAll();
  /// Leaves the lock once. Does nothing when the calling thread doesn't hold it.
  virtual void Exit();

 public:
  /// The type tag.
  uint32_t GetType() const { return type; }
  /// The references held at this moment: for tests and diagnosis, since another thread may be
  /// changing it.
  int32_t GetReferenceCount() const { return references.load(std::memory_order_relaxed); }

  /// Adds a reference.
  void Acquire() const;
  /// Gives a reference back; the last one destroys the object, unless its destroy callback finds it
  /// another owner.
  void Release() const;

  /// A bare object whose lock exists already, with one reference for the caller; null when there is
  /// no memory for it.
  static CDependenciesObjectVS2012* CreateForLock();

  /// The storage is plain malloc and free; a failed allocation gives null.
  static void* operator new(size_t size) noexcept;
  static void operator delete(void* memory) noexcept;

 protected:
  using DestroyCallback = void (*)(CDependenciesObjectVS2012*);

  /// `destroy` runs when the last reference goes, with the object's lock held and one reference
  /// still counted; if it adds references the object lives on.
  CDependenciesObjectVS2012(uint32_t type, DestroyCallback destroy);

  /// For a class's constructor, where the tag isn't passed up.
  void SetType(uint32_t value);

  /// Whether the calling thread is inside the lock.
  bool HoldsLock() const;

 private:
  friend class ProcessStart;

  uint32_t type;
  mutable std::atomic<int32_t> references;
  std::atomic<CDependenciesLock*> lock;  // set once, under the lock that guards lock creation
  DestroyCallback destroyCallback;

  CDependenciesLock* EnsureLock();

  // Set when the process starts, by Initialize, which also seeds the C library's random numbers.
  static bool initialized;
  static void Initialize();
};

}  // namespace Morvalen::Zel
