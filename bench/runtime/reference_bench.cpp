// References beside std::shared_ptr, object locks beside std::recursive_mutex.
//
// The standard library's shared pointers count without atomic instructions until a program has made
// its first thread. A media framework has made many, so these rows make one first.

#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>
#include <thread>

#include "zel/runtime/holder.h"
#include "zel/runtime/lock.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {
namespace {

[[maybe_unused]] bool const threaded = [] {
  std::thread([] {}).join();
  return true;
}();

// What an object of the runtime with no contents would be in the standard library's terms.
struct Plain {
  virtual ~Plain() = default;
};

void referenceUpAndDown(benchmark::State& state) {
  static CDependenciesObjectVS2012 object;
  for (auto _ : state) {
    object.Acquire();
    object.Release();
  }
}
BENCHMARK(referenceUpAndDown)->Name("reference/up_down/object")->ThreadRange(1, 2)->UseRealTime();

void sharedUpAndDown(benchmark::State& state) {
  static auto const shared = std::make_shared<Plain>();
  for (auto _ : state) {
    std::shared_ptr<Plain> copy(shared);
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(sharedUpAndDown)->Name("reference/up_down/shared_ptr")->ThreadRange(1, 2)->UseRealTime();

void holderCopy(benchmark::State& state) {
  static BaseObject const holder(new CDependenciesObjectVS2012);
  for (auto _ : state) {
    BaseObject copy(holder);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(holderCopy)->Name("reference/holder_copy/object");

void makeObject(benchmark::State& state) {
  for (auto _ : state) {
    auto* const object = new CDependenciesObjectVS2012;
    benchmark::DoNotOptimize(object);
    object->Release();
  }
}
BENCHMARK(makeObject)->Name("make_release/object");

void makeShared(benchmark::State& state) {
  for (auto _ : state) {
    auto shared = std::make_shared<Plain>();
    benchmark::DoNotOptimize(shared.get());
  }
}
BENCHMARK(makeShared)->Name("make_release/make_shared");

void lockAndLeave(benchmark::State& state) {
  CDependenciesObjectVS2012 object;
  for (auto _ : state) CDependenciesObjectVS2012::CAutoLock const lock(&object);
}
BENCHMARK(lockAndLeave)->Name("lock/uncontended/object");

void standardLockAndLeave(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) std::lock_guard const lock(mutex);
}
BENCHMARK(standardLockAndLeave)->Name("lock/uncontended/recursive_mutex");

void firstLock(benchmark::State& state) {
  for (auto _ : state) {
    auto* const object = new CDependenciesObjectVS2012;
    { CDependenciesObjectVS2012::CAutoLock const lock(object); }
    object->Release();
  }
}
BENCHMARK(firstLock)->Name("lock/make_object_and_first_lock/object");

}  // namespace
}  // namespace Morvalen::Zel
