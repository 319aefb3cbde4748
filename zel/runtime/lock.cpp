#include "zel/runtime/lock.h"

#include <thread>

namespace Morvalen::Zel {

using zel::platform::Event;

CDependenciesLock::CDependenciesLock()
    : waiters(0), events{Event(Event::Kind::autoReset), Event(Event::Kind::manualReset)} {}

CDependenciesLock::~CDependenciesLock() = default;

int CDependenciesLock::Enter() {
  section.enter();
  return 0;
}

bool CDependenciesLock::TryEnter() {
  return section.tryEnter();
}

void CDependenciesLock::Exit() {
  section.leave();
}

bool CDependenciesLock::IsHeldByCaller() const {
  return section.heldByCaller();
}

// -1 is no limit, and other negative limits are as long as their bits say: 25 days and more.
bool CDependenciesLock::Wait(int32_t milliseconds) {
  return WaitUpTo(static_cast<uint32_t>(milliseconds));
}

bool CDependenciesLock::Wait() {
  return WaitUpTo(Event::kInfinite);
}

bool CDependenciesLock::WaitUpTo(uint32_t milliseconds) {
  if (!section.heldByCaller()) return false;
  Event* const either[] = {&events[0], &events[1]};
  ++waiters;
  section.leave();
  int fired = Event::waitAny(either, 0);
  if (fired == 1) {
    // The gate stands open for waiters that are still on their way out. They need the lock, and a
    // caller that finds its condition unmet comes straight back here: without a pause he would take
    // it from them again and again.
    std::this_thread::yield();
  } else if (fired == Event::kTimedOut && milliseconds != 0) {
    fired = Event::waitAny(either, milliseconds);
  }
  section.enter();
  --waiters;
  if (fired == 0) return true;
  if (fired != 1) return false;
  // The last waiter out closes the gate. Until then it stands open for waits that begin meanwhile.
  if (waiters == 0) events[1].reset();
  return true;
}

// Deliberate: Notify wakes every waiter, as NotifyAll does. Pinned by lock_test.cpp,
// NotifyWakesEveryWaiter.
int CDependenciesLock::Notify() {
  return NotifyAll();
}

int CDependenciesLock::NotifyAll() {
  // The caller should hold the lock already; one who doesn't must not read a torn count of waiters.
  // Setting an event can't fail on this system.
  if (section.heldByCaller()) {
    if (waiters > 0) events[1].set();
    return 0;
  }
  section.enter();
  if (waiters > 0) events[1].set();
  section.leave();
  return 0;
}

}  // namespace Morvalen::Zel
