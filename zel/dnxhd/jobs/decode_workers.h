#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/platform/event.h"
#include "zel/platform/thread.h"

// The decoder's workers. A picture has one stage of work and rows of much the same cost, so they
// need no lists of jobs: each gets a run of neighbouring rows.

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
  struct Worker {
    platform::Event start{platform::Event::Kind::autoReset};
    platform::Event done{platform::Event::Kind::manualReset};
    platform::Event exit{platform::Event::Kind::autoReset};
    uint16_t number = 0;
    // The run of rows, and what came of it: the worker's between `start` and `done`.
    const Task* task = nullptr;
    size_t firstRow = 0;
    size_t rowCount = 0;
    ResultWord failure = kSuccessful;
    platform::Thread thread;

    void Work();
    void DecodeShare();
  };

  DecodeWorkers() = default;
  bool Deal(size_t rows);

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
