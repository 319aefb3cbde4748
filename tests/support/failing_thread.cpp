// The linker's --wrap sends the library's calls here; what isn't to fail goes on to whatever is
// there, the C library's or a sanitizer's.

#include "tests/support/failing_thread.h"

#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>

namespace zel::test {
namespace {

constexpr int kAllAllowed = -1;
std::atomic<int> allowedThreads{kAllAllowed};
std::atomic<bool> priorityFails{false};

}  // namespace

FailingThread::FailingThread(int allowed) {
  allowedThreads = allowed;
}
FailingThread::~FailingThread() {
  allowedThreads = kAllAllowed;
}
FailingPriority::FailingPriority() {
  priorityFails = true;
}
FailingPriority::~FailingPriority() {
  priorityFails = false;
}

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __real_setpriority(__priority_which_t which, id_t who, int value);
int __wrap_setpriority(__priority_which_t which, id_t who, int value);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
  if (allowedThreads == 0) return EAGAIN;
  if (allowedThreads > 0) --allowedThreads;
  return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_setpriority(__priority_which_t which, id_t who, int value) {
  if (!priorityFails) return __real_setpriority(which, who, value);
  errno = EACCES;
  return -1;
}
}

}  // namespace zel::test
