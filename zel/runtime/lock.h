#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/platform/critical_section.h"
#include "zel/platform/event.h"

namespace Morvalen::Zel {

/// A recursive lock with a monitor's wait. Every object has one as soon as it is locked; one can
/// also stand alone, as a global.
class ZEL_API CDependenciesLock {
 public:
  CDependenciesLock();
  ~CDependenciesLock();  // NOLINT(performance-trivially-destructible): callers link it
  CDependenciesLock(CDependenciesLock const&) = delete;
  CDependenciesLock& operator=(CDependenciesLock const&) = delete;

  /// Enters; the same thread may enter again, and then owes as many `Exit`s. @return 0
  int Enter();
  /// Enters if no other thread is in; whether it did.
  bool TryEnter();
  /// Called with the lock held: leaves it once, waits for a notification or for the time to pass,
  /// and enters again. A limit of 0 comes back at once, a limit of -1 never by itself.
  ///
  /// A notification wakes every waiter, and a wait that begins while those are still on their way
  /// out comes back at once, so test the condition again.
  /// @return true when notified, false when the time ran out or the caller doesn't hold the lock.
  bool Wait(int32_t milliseconds);
  bool Wait();
  /// Called with the lock held: wakes every waiter. Without a waiter it has no effect.
  /// @return 0, or ZelErrorFailed if the system refused.
  int Notify();
  int NotifyAll();
  /// Leaves once. Does nothing when the calling thread isn't in.
  void Exit();

  /// Whether the calling thread is in.
  bool IsHeldByCaller() const;

 private:
  bool WaitUpTo(uint32_t milliseconds);

  zel::platform::CriticalSection section;
  int32_t waiters;  // threads inside Wait; guarded by the section
  // The first is auto-reset and nothing ever sets it; the second is the gate for all waiters.
  zel::platform::Event events[2];
};

}  // namespace Morvalen::Zel
