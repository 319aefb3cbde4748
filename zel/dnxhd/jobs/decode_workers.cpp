#include "zel/dnxhd/jobs/decode_workers.h"

#include <new>

namespace zel::dnxhd {

using platform::Event;

namespace {

// One step below what the process runs with: what shows a picture goes before what decodes the
// next.
constexpr int kWorkerPriority = -1;

}  // namespace

size_t RowShare(size_t rows, size_t workers, size_t worker) {
  const size_t remainder = workers - 1 - worker;
  return rows / workers + (remainder < rows % workers ? 1 : 0);
}

std::unique_ptr<DecodeWorkers> DecodeWorkers::Create(size_t count) {
  if (count == 0 || count > kMaximumWorkers) return nullptr;
  try {
    std::unique_ptr<DecodeWorkers> all(new DecodeWorkers);
    all->workers_.reserve(count);
    all->doneEvents_.reserve(count);
    while (all->workers_.size() < count) {
      auto& worker = all->workers_.emplace_back(std::make_unique<Worker>());
      worker->number = static_cast<uint16_t>(all->workers_.size() - 1);
      all->doneEvents_.push_back(&worker->done);
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
  for (const auto& worker : workers_) worker->exit.set();
  for (const auto& worker : workers_) worker->thread.join();
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
  for (const auto& worker : workers_) {
    worker->rows.Set(0, 0);
    worker->done.reset();
    worker->done.set();
  }
  const bool dealt = Deal(rows);
  if (Event::waitAll(doneEvents_) != 0 || !dealt) return kErrorFatalException;
  const uint64_t failure = failure_;
  return failure == kNoFailure ? kSuccessful
                               : static_cast<ResultWord>(static_cast<int32_t>(failure));
}

// Gives each share to whichever worker is free, from the top, until a row has failed: what is not
// dealt then is below it. False when a wait fails.
bool DecodeWorkers::Deal(size_t rows) {
  size_t firstRow = 0;
  for (size_t share = 0; share < workers_.size(); ++share) {
    const int freeWorker = Event::waitAny(doneEvents_);
    if (freeWorker < 0) return false;
    if (failure_ != kNoFailure) return true;
    Worker& worker = *workers_[static_cast<size_t>(freeWorker)];
    const size_t end = firstRow + RowShare(rows, workers_.size(), share);
    worker.rows.Set(firstRow, end);
    firstRow = end;
    worker.done.reset();
    worker.start.set();
  }
  return true;
}

void DecodeWorkers::Work(Worker& self) {
  // A system that refuses lets the worker run as it is.
  platform::Thread::setOwnPriority(kWorkerPriority);
  Event* const events[] = {&self.start, &self.exit};
  while (Event::waitAny(events) == 0) {
    DecodeShare(self);
    self.done.set();
  }
}

// Its own rows from the top, and then the last ones of the others.
void DecodeWorkers::DecodeShare(Worker& self) {
  while (const auto row = self.rows.TakeFirst()) Decode(self.number, *row);
  for (const auto& other : workers_) {
    while (const auto row = other->rows.TakeLast()) Decode(self.number, *row);
  }
}

// Below a row that has failed there is nothing to do.
void DecodeWorkers::Decode(size_t worker, size_t row) {
  if (row > failure_.load(std::memory_order_relaxed) >> 32) return;
  const ResultWord result = (*task_)(worker, row);
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
