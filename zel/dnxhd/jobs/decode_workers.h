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

namespace zel::dnxhd {

/// Decodes rows on threads of its own; the thread that calls Run waits and does no row itself.
class DecodeWorkers : public RowRunner {
 public:
  static constexpr size_t kMaximumWorkers = platform::Event::kMaximumEvents;

  /// Workers for `count` threads, 1 to kMaximumWorkers; null when memory or threads ran out.
  static std::unique_ptr<DecodeWorkers> Create(size_t count);
  ~DecodeWorkers() override;

  size_t WorkerCount() const override { return workers_.size(); }

  /// @return also kErrorFatalException when a wait fails. It is the result of the topmost row that
  /// failed, as it would be without workers.
  ResultWord Run(size_t rows, const Task& task) override;

 private:
  // Rows that nobody has begun, of a run: taken one by one from either end.
  class OpenRows {
   public:
    void Set(size_t first, size_t end) { rows_ = first | uint64_t{end} << 32; }
    std::optional<size_t> TakeFirst();
    std::optional<size_t> TakeLast();

   private:
    std::atomic<uint64_t> rows_{0};  // the first, and above it the end
  };

  struct Worker {
    platform::Event start{platform::Event::Kind::autoReset};
    platform::Event done{platform::Event::Kind::manualReset};
    platform::Event exit{platform::Event::Kind::autoReset};
    uint16_t number = 0;
    OpenRows rows;
    platform::Thread thread;
  };

  DecodeWorkers() = default;
  bool Deal(size_t rows);
  void Work(Worker& self);
  void DecodeShare(Worker& self);
  void Decode(size_t worker, size_t row);

  // Of a run, and the workers' between `start` and `done`.
  const Task* task_ = nullptr;
  // The topmost row that failed, and below it its word; none is above all rows. Rows above it are
  // decoded all the same: one of them may fail, too.
  std::atomic<uint64_t> failure_{kNoFailure};
  static constexpr uint64_t kNoFailure = ~uint64_t{0};

  // They end before what they work on does.
  std::vector<std::unique_ptr<Worker>> workers_;
  std::vector<platform::Event*> doneEvents_;
};

/// The rows that worker `worker` of `workers` gets out of `rows`: as many as there are rows whose
/// number modulo `workers` is workers - 1 - worker. All shares add up to `rows`.
size_t RowShare(size_t rows, size_t workers, size_t worker);

/// What runs the rows for a count of threads: the caller's own thread for one, else workers. Null
/// when memory or threads ran out, or there are to be too many.
std::unique_ptr<RowRunner> MakeRowRunner(size_t threads);

}  // namespace zel::dnxhd
