#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/jobs/codec_job.h"
#include "zel/platform/event.h"
#include "zel/platform/thread.h"

// Workers that carry out one job after the other, each on a thread of its own.

namespace zel::dnxhd {

/// What a worker is given: it belongs to the worker from StartJob until `doneEvent` is set.
struct ThreadJobSlot {
  CodecJob* job = nullptr;
  IJobHandler* handler = nullptr;
  platform::Event* doneEvent = nullptr;
  int32_t index = 0;  // the worker's number
};
static_assert(sizeof(ThreadJobSlot) == 32);

/// What a worker calls, on its own thread.
class IThreadCallback {
 public:
  virtual ~IThreadCallback() = default;
  /// Has the slot's handler carry out its job. The result becomes the worker's last error.
  virtual int32_t Execute(ThreadJobSlot* slot) = 0;
  /// The worker is free again. Sets the slot's event.
  virtual void Completed(ThreadJobSlot* slot) = 0;
};

/// The errors of a worker.
enum WorkThreadError : int32_t {
  kWorkerSuccessful = 0,
  kWorkerNoMemory = -1,
  kWorkerNoEvent = -2,
  kWorkerNoThread = -3,
  kWorkerNotFreeToCreate = -4,
  kWorkerNotFreeToDelete = -5,
  kWorkerNotFreeToStart = -6,
  kWorkerPriorityRefused = -8,  // has no text
};

enum WorkThreadState : int32_t { kWorkerNotCreated = 0, kWorkerFree = 1, kWorkerBusy = 2 };

/// All operations are the owner's: one thread calls them.
class ICodecWorkThread {
 public:
  virtual ~ICodecWorkThread() = default;
  /// Makes the thread, which then waits for jobs.
  /// @return 0; kWorkerNotFreeToCreate when there is one; kWorkerNoThread.
  virtual int32_t Create(int32_t index) = 0;
  /// Ends the thread, behind the job that it may be at.
  /// @return 0, or kWorkerNotFreeToDelete when there is none.
  virtual int32_t Destroy() = 0;
  virtual void SetCallback(IThreadCallback* callback) = 0;
  /// Gives a job to the worker. The slot stays where it is until the job is done.
  /// @return 0, or kWorkerNotFreeToStart, which is also the answer to a null slot; nothing has
  /// changed then but the last error.
  virtual int32_t StartJob(ThreadJobSlot* slot) = 0;
  virtual int32_t Unused() { return 0; }
  virtual int32_t GetState() const = 0;
  virtual int32_t GetPriorityClass() const = 0;
  /// Copies the text of the last error, 60 bytes in all: zeros when it is a code without a text.
  virtual void GetErrorText(char* buffer) const = 0;
  /// @return 0, or kWorkerPriorityRefused by the system.
  virtual int32_t SetPriority(int32_t value) = 0;
};

/// What all workers have, whatever makes their threads.
class WorkThread : public ICodecWorkThread {
 public:
  void SetCallback(IThreadCallback* callback) override { callback_ = callback; }
  int32_t GetState() const override { return state_.load(std::memory_order_acquire); }
  int32_t GetPriorityClass() const override { return 3; }
  void GetErrorText(char* buffer) const override;

 protected:
  int32_t Keep(int32_t error) {
    lastError_.store(error, std::memory_order_relaxed);
    return error;
  }

  // Set while the worker is free, and handed over by the start event.
  IThreadCallback* callback_ = nullptr;
  ThreadJobSlot* workParameter_ = nullptr;
  // Written by the owner and by the worker.
  std::atomic<int32_t> state_{kWorkerNotCreated};
  std::atomic<int32_t> lastError_{kWorkerSuccessful};
  int32_t workerIndex_ = 0;
};

/// The worker over this system's threads and events.
class WorkThread_Win : public WorkThread {
 public:
  /// How long Destroy waits before it reports that the worker doesn't end. It goes on waiting then:
  /// a thread that is forced to end would take its locks and its buffers with it.
  static constexpr uint32_t kEndLimitMilliseconds = 1000;

  WorkThread_Win() = default;
  ~WorkThread_Win() override;

  int32_t Create(int32_t index) override;
  int32_t Destroy() override;
  int32_t StartJob(ThreadJobSlot* slot) override;
  int32_t SetPriority(int32_t value) override;

 private:
  void Run();
  void End();

  platform::Event startEvent_{platform::Event::Kind::autoReset};
  platform::Event exitEvent_{platform::Event::Kind::autoReset};
  platform::Event spareEvent_{platform::Event::Kind::autoReset};  // nobody waits for it
  platform::Thread threadHandle_;
};

}  // namespace zel::dnxhd
