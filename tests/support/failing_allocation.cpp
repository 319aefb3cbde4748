// The linker's --wrap sends calls here, and what isn't to fail goes on to whatever allocator is
// there: the C library's, or that of a sanitizer, which sees matching pairs of new and delete all
// the same.

#include "tests/support/failing_allocation.h"

#include <cstddef>
#include <new>

namespace zel::test {
namespace {

thread_local bool armed = false;
thread_local int remaining = 0;
thread_local int failed = 0;

bool fails() {
  if (!armed) return false;
  if (remaining > 0) {
    --remaining;
    return false;
  }
  ++failed;
  return true;
}

}  // namespace

FailingAllocation::FailingAllocation(int skip) {
  remaining = skip;
  failed = 0;
  armed = true;
}

FailingAllocation::~FailingAllocation() {
  armed = false;
}

int FailingAllocation::failures() {
  return failed;
}

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real__ZnwmRKSt9nothrow_t(size_t size, std::nothrow_t const& tag);
void* __real__ZnamRKSt9nothrow_t(size_t size, std::nothrow_t const& tag);

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, std::nothrow_t const& tag);
void* __wrap__ZnamRKSt9nothrow_t(size_t size, std::nothrow_t const& tag);

void* __wrap_malloc(size_t size) {
  return fails() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return fails() ? nullptr : __real_calloc(count, size);
}
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, std::nothrow_t const& tag) {
  return fails() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
void* __wrap__ZnamRKSt9nothrow_t(size_t size, std::nothrow_t const& tag) {
  return fails() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}

}  // namespace zel::test
