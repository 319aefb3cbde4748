#include "zel/runtime/lock.h"

#include <chrono>

namespace Morvalen::Zel {

int CDependenciesLock::Enter() {
  monitor.mutex.lock();
  return 0;
}
bool CDependenciesLock::TryEnter() {
  return monitor.mutex.try_lock();
}
bool CDependenciesLock::Wait() {
  monitor.condition.wait(monitor.mutex);
  return true;
}
bool CDependenciesLock::Wait(int32_t milliseconds) {
  return monitor.condition.wait_for(monitor.mutex, std::chrono::milliseconds(milliseconds)) ==
         std::cv_status::no_timeout;
}
int CDependenciesLock::Notify() {
  return NotifyAll();
}
int CDependenciesLock::NotifyAll() {
  monitor.condition.notify_all();
  return 0;
}
void CDependenciesLock::Exit() {
  monitor.mutex.unlock();
}

}  // namespace Morvalen::Zel
