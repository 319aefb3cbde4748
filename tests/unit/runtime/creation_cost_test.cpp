// Making strings and arrays takes no lock and calls no system. A child process forbids itself every
// system call but read, write and exit (the strict mode of seccomp), and then makes them: a call
// kills it. The heap is warmed before, since it is malloc's affair when it asks for pages. A mutex
// that nobody holds is taken without a system call, so these are counted apart.
#include <dlfcn.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>

#include "zel/runtime/byte_array.h"
#include "zel/runtime/encoding.h"
#include "zel/runtime/float_array.h"
#include "zel/runtime/string.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEL_SANITIZED 1
#endif
#endif
#ifndef ZEL_SANITIZED
#define ZEL_SANITIZED 0
#endif

namespace {
int mutexesTaken = 0;
}

#if !ZEL_SANITIZED
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  using Lock = int (*)(pthread_mutex_t*);
  static Lock const next = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  ++mutexesTaken;
  return next(mutex);
}
#endif

namespace Morvalen::Zel {
namespace {

constexpr char kText[] = "some text of more than a few bytes, \xC3\xA9 and \xF0\x9F\x98\x80";

void makeAll() {
  unsigned char foreign[64] = {};
  for (int i = 0; i < 100; ++i) {
    CString* narrow = new CString(kText);
    CString* wide = new CString(narrow->GetWChars());
    wide->GetChars();
    CString* joined = narrow->Append(wide);
    joined->Release();
    wide->Release();
    narrow->Release();
    CByteArray* lazy = new CByteArray(64);
    CByteArray* window = nullptr;
    lazy->GetData(8, 8, &window);
    CByteArray* wrapper = new CByteArray(64, foreign, lazy);
    wrapper->Release();
    window->Release();
    lazy->Release();
    CFloatArray* floats = new CFloatArray(16);
    floats->GetData();
    floats->Release();
    CByteArray* bytes = CEncoding::GetUtf8()->GetBytes(L"text");
    bytes->Release();
  }
}

// How a child ends that runs `body` without system calls: its wait status, or -1 if it can't.
int statusWithoutSystemCalls(void (*body)()) {
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    makeAll();
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) _exit(77);
    body();
    // The strict mode knows this exit only, not that of a group.
    syscall(SYS_exit, 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 77 ? -1 : status;
}

#define ZEL_SKIP_WHERE_SYSTEM_CALLS_CANNOT_BE_FORBIDDEN(status)                    \
  if (ZEL_SANITIZED) GTEST_SKIP() << "the sanitizer's allocator calls the system"; \
  if ((status) == -1) GTEST_SKIP() << "this system doesn't let a process forbid them"

TEST(CreationCost, MakingCallsNoSystem) {
  const int status = ZEL_SANITIZED ? -1 : statusWithoutSystemCalls(makeAll);
  ZEL_SKIP_WHERE_SYSTEM_CALLS_CANNOT_BE_FORBIDDEN(status);
  EXPECT_TRUE(WIFEXITED(status)) << "a system call was made";
}

TEST(CreationCost, TheTestSeesASystemCall) {
  const int status = ZEL_SANITIZED ? -1 : statusWithoutSystemCalls([] { getppid(); });
  ZEL_SKIP_WHERE_SYSTEM_CALLS_CANNOT_BE_FORBIDDEN(status);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST(CreationCost, MakingTakesNoMutex) {
  if (ZEL_SANITIZED) GTEST_SKIP() << "the sanitizer has mutexes of its own";
  makeAll();
  const int before = mutexesTaken;
  makeAll();
  EXPECT_EQ(mutexesTaken, before);
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_mutex_lock(&mutex);
  pthread_mutex_unlock(&mutex);
  EXPECT_EQ(mutexesTaken, before + 1) << "the test counts nothing";
}

}  // namespace
}  // namespace Morvalen::Zel
