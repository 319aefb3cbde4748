// The queue beside std::deque of shared pointers, and its synchronized form beside a deque under a
// mutex with a condition variable that wakes everybody, which is what the synchronized form
// promises.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "zel/runtime/holder.h"
#include "zel/runtime/queue.h"

namespace Morvalen::Zel {
namespace {

struct Plain {
  virtual ~Plain() = default;
};

// Some items are always inside, as in a queue between two stages.
constexpr int kInside = 8;

void queuePassThrough(benchmark::State& state) {
  RObject<CDependenciesQueue> const queue(new CDependenciesQueue(6));
  RObject<CDependenciesObjectVS2012> const item(new CDependenciesObjectVS2012);
  for (int i = 0; i < kInside; ++i) queue->Enqueue(item);
  for (auto _ : state) {
    queue->Enqueue(item);
    queue->Dequeue()->Release();
  }
}
BENCHMARK(queuePassThrough)->Name("queue/pass_through/queue");

void dequePassThrough(benchmark::State& state) {
  std::deque<std::shared_ptr<Plain>> queue;
  auto const item = std::make_shared<Plain>();
  for (int i = 0; i < kInside; ++i) queue.push_back(item);
  for (auto _ : state) {
    queue.push_back(item);
    auto const out = std::move(queue.front());
    queue.pop_front();
    benchmark::DoNotOptimize(out.get());
  }
}
BENCHMARK(dequePassThrough)->Name("queue/pass_through/std_deque");

struct LockedDeque {
  void put(std::shared_ptr<Plain> item) {
    std::lock_guard const lock(mutex);
    items.push_back(std::move(item));
    changed.notify_all();
  }
  std::shared_ptr<Plain> take() {
    std::lock_guard const lock(mutex);
    if (items.empty()) return nullptr;
    auto out = std::move(items.front());
    items.pop_front();
    changed.notify_all();
    return out;
  }
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::shared_ptr<Plain>> items;
};

void synchronizedPassThrough(benchmark::State& state) {
  RObject<CDependenciesQueue> const plain(new CDependenciesQueue(6));
  RObject<CDependenciesQueue> const queue(CDependenciesQueue::Synchronized(plain));
  RObject<CDependenciesObjectVS2012> const item(new CDependenciesObjectVS2012);
  for (int i = 0; i < kInside; ++i) queue->Enqueue(item);
  for (auto _ : state) {
    queue->Enqueue(item);
    queue->Dequeue()->Release();
  }
}
BENCHMARK(synchronizedPassThrough)->Name("queue/pass_through/synchronized");

void lockedDequePassThrough(benchmark::State& state) {
  LockedDeque queue;
  auto const item = std::make_shared<Plain>();
  for (int i = 0; i < kInside; ++i) queue.put(item);
  for (auto _ : state) {
    queue.put(item);
    auto const out = queue.take();
    benchmark::DoNotOptimize(out.get());
  }
}
BENCHMARK(lockedDequePassThrough)->Name("queue/pass_through/std_deque_mutex");

// From one thread to another, at most 64 on the way; both look and wait under the lock.
constexpr int kBatch = 20000;

void synchronizedBetweenThreads(benchmark::State& state) {
  RObject<CDependenciesQueue> const plain(new CDependenciesQueue(6));
  RObject<CDependenciesQueue> const queue(CDependenciesQueue::Synchronized(plain));
  RObject<CDependenciesObjectVS2012> const item(new CDependenciesObjectVS2012);
  for (auto _ : state) {
    std::thread producer([&] {
      for (int i = 0; i < kBatch; ++i) {
        CDependenciesObjectVS2012::CAutoLock const lock(queue);
        while (queue->IsFull()) queue->Wait();
        queue->Enqueue(item);
      }
    });
    for (int i = 0; i < kBatch; ++i) {
      CDependenciesObjectVS2012* out;
      {
        CDependenciesObjectVS2012::CAutoLock const lock(queue);
        while (queue->IsEmpty()) queue->Wait();
        out = queue->Dequeue();
      }
      out->Release();
    }
    producer.join();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(synchronizedBetweenThreads)->Name("queue/two_threads/synchronized")->UseRealTime();

void dequeBetweenThreads(benchmark::State& state) {
  auto const item = std::make_shared<Plain>();
  for (auto _ : state) {
    LockedDeque queue;
    std::thread producer([&] {
      for (int i = 0; i < kBatch; ++i) {
        std::unique_lock lock(queue.mutex);
        queue.changed.wait(lock, [&] { return queue.items.size() < 64; });
        queue.items.push_back(item);
        queue.changed.notify_all();
      }
    });
    for (int i = 0; i < kBatch; ++i) {
      std::shared_ptr<Plain> out;
      {
        std::unique_lock lock(queue.mutex);
        queue.changed.wait(lock, [&] { return !queue.items.empty(); });
        out = std::move(queue.items.front());
        queue.items.pop_front();
        queue.changed.notify_all();
      }
      benchmark::DoNotOptimize(out.get());
    }
    producer.join();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(dequeBetweenThreads)->Name("queue/two_threads/std_deque_mutex")->UseRealTime();

}  // namespace
}  // namespace Morvalen::Zel
