// The linker's --wrap sends the calls here.

#include "tests/support/lock_calls.h"

#include <pthread.h>

namespace zel::test {

namespace {
thread_local int calls = 0;
}

int lockCalls() {
  return calls;
}

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
int __real_pthread_rwlock_rdlock(pthread_rwlock_t* lock);
int __real_pthread_rwlock_wrlock(pthread_rwlock_t* lock);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex);
int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock);
int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  ++calls;
  return __real_pthread_mutex_lock(mutex);
}
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  ++calls;
  return __real_pthread_mutex_trylock(mutex);
}
int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
  ++calls;
  return __real_pthread_rwlock_rdlock(lock);
}
int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
  ++calls;
  return __real_pthread_rwlock_wrlock(lock);
}
}

}  // namespace zel::test
