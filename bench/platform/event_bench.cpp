// Events beside the usual flag under a mutex with a condition variable.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "zel/platform/event.h"

namespace zel::platform {
namespace {

// An auto-reset event as one writes it in the standard library's terms.
class FlagEvent {
 public:
  void set() {
    {
      std::lock_guard const lock(mutex_);
      set_ = true;
    }
    changed_.notify_one();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return set_; });
    set_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

struct AutoResetEvent : Event {
  AutoResetEvent() : Event(Kind::autoReset) {}
};

template <class Any>
void setAndWait(benchmark::State& state) {
  Any event;
  for (auto _ : state) {
    event.set();
    event.wait();
  }
}
BENCHMARK(setAndWait<AutoResetEvent>)->Name("event/set_wait/event");
BENCHMARK(setAndWait<FlagEvent>)->Name("event/set_wait/flag_condition");

void waitForAny(benchmark::State& state) {
  AutoResetEvent a, b;
  Event* const both[] = {&a, &b};
  for (auto _ : state) {
    b.set();
    benchmark::DoNotOptimize(Event::waitAny(both));
  }
}
BENCHMARK(waitForAny)->Name("event/set_wait_any_of_two/event");

void waitForAll(benchmark::State& state) {
  AutoResetEvent a, b;
  Event* const both[] = {&a, &b};
  for (auto _ : state) {
    a.set();
    b.set();
    benchmark::DoNotOptimize(Event::waitAll(both));
  }
}
BENCHMARK(waitForAll)->Name("event/set_wait_all_of_two/event");

// A turn to another thread and back, each time with a thread that sleeps.
constexpr int kTurns = 2000;

template <class Any>
void roundTrip(benchmark::State& state) {
  for (auto _ : state) {
    Any there, back;
    std::thread other([&] {
      for (int i = 0; i < kTurns; ++i) {
        there.wait();
        back.set();
      }
    });
    for (int i = 0; i < kTurns; ++i) {
      there.set();
      back.wait();
    }
    other.join();
  }
  state.SetItemsProcessed(state.iterations() * kTurns);
}
BENCHMARK(roundTrip<AutoResetEvent>)->Name("event/round_trip/event")->UseRealTime();
BENCHMARK(roundTrip<FlagEvent>)->Name("event/round_trip/flag_condition")->UseRealTime();

}  // namespace
}  // namespace zel::platform
