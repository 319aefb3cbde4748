#include "zel/dnxhd/jobs/decode_workers.h"

#include <hwy/cache_control.h>

#include <chrono>
#include <new>

namespace zel::dnxhd {

using platform::Event;

namespace {

// One step below what the process runs with: what shows a picture goes before what decodes the
// next.
constexpr int kWorkerPriority = -1;

// How long a thread looks before it sleeps. The caller: about what a row of many bits takes, since
// no other waits for more. A worker that is done: what is likely to pass until the next picture of
// a caller that has no other business, and little beside what others have between two frames.
constexpr std::chrono::microseconds kCallersPatience{100};
constexpr std::chrono::microseconds kWorkersPatience{50};

using Clock = std::chrono::steady_clock;

// Looks until it is so, or until the limit.
template <typename Condition>
bool SoonHolds(Condition condition, Clock::time_point limit) {
  while (!condition()) {
    if (Clock::now() > limit) return false;
    hwy::Pause();
  }
  return true;
}

// An exception has nowhere to go on a worker's thread, and on the caller's it would leave the
// others behind with rows of a frame that is gone.
ResultWord ResultOf(const RowRunner::Task& task, size_t worker, size_t row) {
  try {
    return task(worker, row);
  } catch (const std::bad_alloc&) {
    return kErrorInMemoryAllocation;
  } catch (...) {
    return kErrorFatalException;
  }
}

}  // namespace

size_t RowShare(size_t rows, size_t workers, size_t worker) {
  const size_t remainder = workers - 1 - worker;
  return rows / workers + (remainder < rows % workers ? 1 : 0);
}

std::unique_ptr<DecodeWorkers> DecodeWorkers::Create(size_t count) {
  if (count == 0 || count > kMaximumWorkers) return nullptr;
  try {
    std::unique_ptr<DecodeWorkers> all(new DecodeWorkers(count));
    all->others_.reserve(count - 1);
    for (size_t number = 1; number < count; ++number) {
      auto& worker = all->others_.emplace_back(std::make_unique<Worker>());
      worker->number = static_cast<uint16_t>(number);
      if (!worker->thread.start([pool = all.get(), self = worker.get()] { pool->Work(*self); })) {
        return nullptr;
      }
    }
    return all;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

DecodeWorkers::~DecodeWorkers() {
  for (const auto& worker : others_) worker->exit.set();
  for (const auto& worker : others_) worker->thread.join();
}

std::optional<size_t> DecodeWorkers::OpenRows::TakeFirst() {
  uint64_t rows = rows_.load(std::memory_order_relaxed);
  while (static_cast<uint32_t>(rows) < rows >> 32) {
    if (rows_.compare_exchange_weak(rows, rows + 1)) return static_cast<uint32_t>(rows);
  }
  return std::nullopt;
}

std::optional<size_t> DecodeWorkers::OpenRows::TakeLast() {
  uint64_t rows = rows_.load(std::memory_order_relaxed);
  while (static_cast<uint32_t>(rows) < rows >> 32) {
    const uint64_t less = rows - (uint64_t{1} << 32);
    if (rows_.compare_exchange_weak(rows, less)) return less >> 32;
  }
  return std::nullopt;
}

ResultWord DecodeWorkers::Run(size_t rows, const Task& task) {
  task_ = &task;
  failure_ = kNoFailure;
  Deal(rows);
  DecodeShare(0);
  if (!AwaitOthers()) return kErrorFatalException;
  const uint64_t failure = failure_;
  return failure == kNoFailure ? kSuccessful
                               : static_cast<ResultWord>(static_cast<int32_t>(failure));
}

// From the top. Whoever begins may help at once, so that all shares stand before one does.
void DecodeWorkers::Deal(size_t rows) {
  size_t first = 0;
  for (size_t worker = 0; worker < shares_.size(); ++worker) {
    const size_t end = first + RowShare(rows, shares_.size(), worker);
    shares_[worker].Set(first, end);
    first = end;
  }
  for (const auto& worker : others_) {
    worker->done.reset();
    worker->wanted = true;
    worker->start.set();
  }
}

// All rows are begun: what is left of those that others are at is shorter than going to sleep and
// being woken, if nothing keeps them from it. False when a wait fails.
bool DecodeWorkers::AwaitOthers() {
  const auto limit = Clock::now() + kCallersPatience;
  for (const auto& worker : others_) {
    if (worker->wanted.exchange(false)) continue;  // it will find that there is nothing to do
    if (SoonHolds([&] { return worker->done.wait(0); }, limit)) continue;
    if (!worker->done.wait()) return false;
  }
  return true;
}

void DecodeWorkers::Work(Worker& self) {
  // A system that refuses lets the worker run as it is.
  platform::Thread::setOwnPriority(kWorkerPriority);
  Event* const events[] = {&self.start, &self.exit};
  const auto wanted = [&self] { return self.wanted.load(); };
  while (SoonHolds(wanted, Clock::now() + kWorkersPatience) || Event::waitAny(events) == 0) {
    if (!self.wanted.exchange(false)) continue;
    DecodeShare(self.number);
    self.done.set();
  }
}

// Its own rows from the top, and then the last ones of the others.
void DecodeWorkers::DecodeShare(size_t worker) {
  while (const auto row = shares_[worker].TakeFirst()) Decode(worker, *row);
  for (OpenRows& share : shares_) {
    while (const auto row = share.TakeLast()) Decode(worker, *row);
  }
}

// Below a row that has failed there is nothing to do.
void DecodeWorkers::Decode(size_t worker, size_t row) {
  if (row > failure_.load(std::memory_order_relaxed) >> 32) return;
  const ResultWord result = ResultOf(*task_, worker, row);
  if (result == kSuccessful) return;
  const uint64_t mine = uint64_t{row} << 32 | static_cast<uint32_t>(result);
  uint64_t topmost = failure_;
  while (mine < topmost && !failure_.compare_exchange_weak(topmost, mine)) {
  }
}

std::unique_ptr<RowRunner> MakeRowRunner(size_t threads) {
  if (threads != 1) return DecodeWorkers::Create(threads);
  return std::unique_ptr<RowRunner>(new (std::nothrow) SerialRowRunner);
}

}  // namespace zel::dnxhd
