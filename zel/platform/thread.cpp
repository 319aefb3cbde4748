#include "zel/platform/thread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <utility>

namespace zel::platform {

namespace {

// Linux gives each thread a niceness of its own, by its number; that of its maker to start with.
int nicenessAtStart() {
  thread_local int const niceness = getpriority(PRIO_PROCESS, 0);
  return niceness;
}

bool setPriorityOf(int id, int niceness, int steps) {
  return setpriority(PRIO_PROCESS, static_cast<id_t>(id), niceness - steps) == 0;
}

}  // namespace

bool Thread::start(std::function<void()> body) {
  if (exists_) return false;
  body_ = std::move(body);
  known_.reset();
  ended_.reset();
  exists_ = pthread_create(&thread_, nullptr, run, this) == 0;
  return exists_;
}

void* Thread::run(void* self) {
  Thread& thread = *static_cast<Thread*>(self);
  thread.id_.store(gettid(), std::memory_order_relaxed);
  thread.niceness_.store(nicenessAtStart(), std::memory_order_relaxed);
  thread.known_.set();
  thread.body_();
  thread.ended_.set();
  return nullptr;
}

bool Thread::joinWithin(uint32_t milliseconds) {
  if (!exists_) return true;
  if (!ended_.wait(milliseconds)) return false;
  pthread_join(thread_, nullptr);
  exists_ = false;
  return true;
}

bool Thread::setPriority(int steps) {
  if (!exists_) return false;
  known_.wait();
  return setPriorityOf(id_.load(std::memory_order_relaxed),
                       niceness_.load(std::memory_order_relaxed), steps);
}

bool Thread::setOwnPriority(int steps) {
  return setPriorityOf(gettid(), nicenessAtStart(), steps);
}

}  // namespace zel::platform
