#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/platform/monitor.h"

namespace Morvalen::Zel {

/// A recursive lock with a monitor's wait: the lock of an object, and free-standing ones.
class ZEL_API CDependenciesLock {
 public:
  CDependenciesLock() = default;
  ~CDependenciesLock() = default;
  CDependenciesLock(CDependenciesLock const&) = delete;
  CDependenciesLock& operator=(CDependenciesLock const&) = delete;

  int Enter();
  bool TryEnter();
  bool Wait();
  bool Wait(int32_t milliseconds);
  int Notify();
  int NotifyAll();
  void Exit();

 private:
  zel::platform::Monitor monitor;
};

}  // namespace Morvalen::Zel
