#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/platform/event.h"
#include "zel/platform/thread.h"

// The decoder's workers. A picture has one stage of work, so they need no lists of jobs: each gets
// a run of neighbouring rows. Rows with detail take longer than those of a sky, and a worker that
// is done with its own run takes rows from the end of another's: in half a picture there may be 60
// % of its bits, and one of two workers would wait for a third of the time.
//
// The caller's thread is one of the workers. It would have nothing to do but wait, on a processor
// that a worker has to leave for it: waking workers and being woken cost 3 to 5 % of a frame on two
// processors. So the caller decodes while the others wake up, and what they are late by is made up
// by the rows that it takes from them. One that has not come before all rows are begun is not
// waited for: on a busy machine that may be longer than the frame takes.

namespace zel::dnxhd {

/// Decodes rows on the thread that calls Run, and on threads of its own.
class DecodeWorkers : public RowRunner {
 public:
  static constexpr size_t kMaximumWorkers = platform::Event::kMaximumEvents;

  /// `count` workers, 1 to kMaximumWorkers, the caller of Run being the first; null when memory or
  /// threads ran out.
  static std::unique_ptr<DecodeWorkers> Create(size_t count);
  ~DecodeWorkers() override;

  size_t WorkerCount() const override { return shares_.size(); }

  /// @return also kErrorFatalException when a wait fails, and kErrorInMemoryAllocation for a row
  /// that memory ran out for. It is the result of the topmost row that failed, as it would be
  /// without workers.
  ResultWord Run(size_t rows, const Task& task) override;

 private:
  // Rows that nobody has begun, of a run: taken one by one from either end. Each has a line of the
  // cache for itself.
  class alignas(64) OpenRows {
   public:
    void Set(size_t first, size_t end) { rows_ = first | uint64_t{end} << 32; }
    std::optional<size_t> TakeFirst();
    std::optional<size_t> TakeLast();

   private:
    std::atomic<uint64_t> rows_{0};  // the first, and above it the end
  };

  // A worker with a thread of its own.
  struct Worker {
    platform::Event start{platform::Event::Kind::autoReset};
    platform::Event done{platform::Event::Kind::manualReset};
    platform::Event exit{platform::Event::Kind::autoReset};
    std::atomic<bool> wanted{false};  // from `start` until it begins, or is no longer needed
    uint16_t number = 0;              // from 1
    platform::Thread thread;
  };

  explicit DecodeWorkers(size_t count) : shares_(count) {}
  void Deal(size_t rows);
  bool AwaitOthers();
  void Work(Worker& self);
  void DecodeShare(size_t worker);
  void Decode(size_t worker, size_t row);

  // Of a run, and the workers' between `start` and `done`.
  const Task* task_ = nullptr;
  std::vector<OpenRows> shares_;  // one a worker
  // The topmost row that failed, and below it its word; none is above all rows. Rows above it are
  // decoded all the same: one of them may fail, too.
  std::atomic<uint64_t> failure_{kNoFailure};
  static constexpr uint64_t kNoFailure = ~uint64_t{0};

  // All but the first; they end before what they work on does.
  std::vector<std::unique_ptr<Worker>> others_;
};

/// The rows that worker `worker` of `workers` gets out of `rows`: as many as there are rows whose
/// number modulo `workers` is workers - 1 - worker. All shares add up to `rows`.
size_t RowShare(size_t rows, size_t workers, size_t worker);

/// What runs the rows for a count of threads: the caller's own thread for one, else workers. Null
/// when memory or threads ran out, or there are to be too many.
std::unique_ptr<RowRunner> MakeRowRunner(size_t threads);

}  // namespace zel::dnxhd
