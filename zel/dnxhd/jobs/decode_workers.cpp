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
      if (!worker->thread.start([self = worker.get()] { self->Work(); })) return nullptr;
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

ResultWord DecodeWorkers::Run(size_t rows, const Task& task) {
  for (const auto& worker : workers_) {
    worker->task = &task;
    worker->rowCount = 0;
    worker->failure = kSuccessful;
    worker->done.reset();
    worker->done.set();
  }
  const bool dealt = Deal(rows);
  if (Event::waitAll(doneEvents_) != 0 || !dealt) return kErrorFatalException;

  // Shares are dealt from the top, and what was dealt is decoded whole or up to its failure.
  const Worker* topmost = nullptr;
  for (const auto& worker : workers_) {
    if (worker->failure == kSuccessful) continue;
    if (topmost == nullptr || worker->firstRow < topmost->firstRow) topmost = worker.get();
  }
  return topmost == nullptr ? kSuccessful : topmost->failure;
}

// Gives each share to whichever worker is free, until one has failed. False when a wait fails.
bool DecodeWorkers::Deal(size_t rows) {
  size_t firstRow = 0;
  for (size_t share = 0; share < workers_.size(); ++share) {
    const int freeWorker = Event::waitAny(doneEvents_);
    if (freeWorker < 0) return false;
    Worker& worker = *workers_[static_cast<size_t>(freeWorker)];
    if (worker.failure != kSuccessful) return true;
    worker.firstRow = firstRow;
    worker.rowCount = RowShare(rows, workers_.size(), share);
    firstRow += worker.rowCount;
    worker.done.reset();
    worker.start.set();
  }
  return true;
}

void DecodeWorkers::Worker::Work() {
  // A system that refuses lets the worker run as it is.
  platform::Thread::setOwnPriority(kWorkerPriority);
  Event* const events[] = {&start, &exit};
  while (Event::waitAny(events) == 0) {
    DecodeShare();
    done.set();
  }
}

void DecodeWorkers::Worker::DecodeShare() {
  for (size_t row = firstRow; row < firstRow + rowCount; ++row) {
    failure = (*task)(number, row);
    if (failure != kSuccessful) return;
  }
}

std::unique_ptr<RowRunner> MakeRowRunner(size_t threads) {
  if (threads != 1) return DecodeWorkers::Create(threads);
  return std::unique_ptr<RowRunner>(new (std::nothrow) SerialRowRunner);
}

}  // namespace zel::dnxhd
