#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/dnxhd/jobs/job_list_mgr.h"
#include "zel/dnxhd/jobs/work_thread.h"

// Runs all jobs of a stage on a fixed set of workers. The foreman is the caller's own thread: it
// shares out and waits, and does no job itself.

namespace zel::dnxhd {

/// One thread at a time calls a foreman.
class ISyncThreadForeman {
 public:
  virtual ~ISyncThreadForeman() = default;
  /// Ends all threads. SetThreadCount makes them anew.
  /// @return 0, what a worker's Destroy gave, or -1 during a run.
  virtual int32_t DestroyWorkers() = 0;
  /// @return 0; -1 during a run, for a count outside of 0 to kMaximumWorkers, or when memory or
  /// threads ran out: runs then fail until a call succeeds.
  virtual int32_t SetThreadCount(int32_t count) = 0;
  virtual int32_t GetThreadCount() const = 0;
  /// The manager of the stage that runs next; it is borrowed. @return 0, or -1 during a run.
  virtual int32_t SetJobMgr(IJobMgr* manager) = 0;
  /// Runs the manager's jobs to the last, each on a worker of its own, in the order of the list.
  /// When it returns, its workers are at rest, but after a time limit.
  /// @param mode 2: a failed job doesn't end the run before its time.
  /// @param timeoutMilliseconds of each wait for workers; 0: no limit.
  /// @return 0 when every job is done; -1 when one failed, or a worker or a wait did.
  virtual int32_t RunJobs(int32_t mode, uint32_t timeoutMilliseconds) = 0;
  /// Prints what jobs and workers say of themselves to standard output.
  virtual void DumpErrors() = 0;
};

enum ForemanState : int32_t { kForemanIdle = 1, kForemanRunning = 2 };

class ThreadForeman : public IThreadCallback, public ISyncThreadForeman {
 public:
  static constexpr int32_t kFailed = -1;
  static constexpr int32_t kRunPastFailures = 2;  // the mode
  // As many as one wait can be for; worker numbers are kept in 8 bits.
  static constexpr int32_t kMaximumWorkers = platform::Event::kMaximumEvents;

  ThreadForeman() = default;
  ~ThreadForeman() override;
  ThreadForeman(const ThreadForeman&) = delete;
  ThreadForeman& operator=(const ThreadForeman&) = delete;

  int32_t Execute(ThreadJobSlot* slot) override;
  void Completed(ThreadJobSlot* slot) override;

  int32_t DestroyWorkers() override;
  int32_t SetThreadCount(int32_t count) override;
  int32_t GetThreadCount() const override { return static_cast<int32_t>(workers_.size()); }
  int32_t SetJobMgr(IJobMgr* manager) override;
  int32_t RunJobs(int32_t mode, uint32_t timeoutMilliseconds) override;
  void DumpErrors() override;

  int32_t GetState() const { return state_; }
  ICodecWorkThread& Worker(size_t index) { return *workers_[index]; }

 private:
  // How far a worker is with the last job that this run gave it.
  enum Given : uint8_t { kNothing, kInFlight, kFinished };

  void AddWorkers(size_t count);
  void BeginRun();
  bool RunUntilShared(int32_t mode, uint32_t timeoutMilliseconds);
  bool FinishJob(size_t worker, int32_t mode);
  bool StartJob(size_t worker, CodecJob* job, IJobHandler* handler);
  bool AwaitAll(uint32_t timeoutMilliseconds);
  void AwaitInFlight();
  bool StillBusy(size_t worker);

  std::vector<std::unique_ptr<ICodecWorkThread>> workers_;
  int32_t state_ = kForemanIdle;
  std::vector<std::unique_ptr<ThreadJobSlot>> slots_;
  std::vector<uint8_t> workerIndices_;
  IJobMgr* jobMgr_ = nullptr;
  std::vector<std::unique_ptr<platform::Event>> doneEvents_;  // manual-reset; set: the worker rests
  std::vector<platform::Event*> waitList_;                    // the same, for waits
  std::vector<Given> given_;                                  // to each worker, by this run
  bool timedOut_ = false;                                     // this run
};

}  // namespace zel::dnxhd
