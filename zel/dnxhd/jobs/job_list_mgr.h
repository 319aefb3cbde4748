#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "zel/dnxhd/jobs/codec_job.h"

// The jobs of one stage, and the handlers that can carry them out. Nothing here owns any of them.

namespace zel::dnxhd {

/// Texts of the two rows of errors, tabs and all, take up to this many bytes with their zero.
inline constexpr size_t kErrorTextBytes = 60;

/// One thread at a time calls a manager: the one that runs the stage.
class IJobMgr {
 public:
  virtual ~IJobMgr() = default;
  virtual int32_t Unused1() { return 0; }
  /// The two appenders return 0, or kErrorInMemoryAllocation, and then add nothing.
  virtual int32_t AddJobs(CodecJob* const* jobs, size_t count) = 0;
  virtual int32_t AddHandlers(IJobHandler* const* handlers, size_t count) = 0;
  virtual int32_t Unused2() { return 0; }
  virtual int32_t Unused3() { return 0; }
  virtual int32_t Unused4() { return 0; }
  virtual void RemoveJobs(uint32_t id) = 0;
  virtual void RemoveHandlers(uint32_t id) = 0;
  virtual void ClearJobs() = 0;
  virtual void ClearHandlers() = 0;
  virtual void ClearAll() = 0;
  /// For a new frame: all jobs ready and without error, all handlers free.
  virtual void ResetJobs() = 0;
  /// The first ready job, which counts as running from here on, and the first free handler.
  /// @return 1 when no job is ready. 0 otherwise, also when there is no handler: `handler` is null
  /// then, and the job, if there was one, stays marked as running. A stage has as many handlers as
  /// it can have jobs in flight, so that this can't happen to it.
  virtual int32_t GetNextJob(CodecJob*& job, IJobHandler*& handler) = 0;
  /// The handler is free again; one that is not busy is ignored. `job` is not used.
  virtual void ReleaseHandler(CodecJob* job, IJobHandler* handler) = 0;
  virtual void SetError(int32_t index) = 0;
  /// Copies the text of the last error, kErrorTextBytes in all.
  virtual void GetErrorText(char* buffer) const = 0;
};

/// The errors of a manager. kNoHandler is also where it starts.
enum JobListError : int32_t { kNoHandler = 0, kNoJob = 1 };

class JobListMgr : public IJobMgr {
 public:
  int32_t AddJobs(CodecJob* const* jobs, size_t count) override;
  int32_t AddHandlers(IJobHandler* const* handlers, size_t count) override;
  void RemoveJobs(uint32_t id) override;
  void RemoveHandlers(uint32_t id) override;
  void ClearJobs() override;
  void ClearHandlers() override;
  void ClearAll() override;
  void ResetJobs() override;
  int32_t GetNextJob(CodecJob*& job, IJobHandler*& handler) override;
  void ReleaseHandler(CodecJob* job, IJobHandler* handler) override;
  void SetError(int32_t index) override { lastError_ = index; }
  void GetErrorText(char* buffer) const override;

  int32_t LastError() const { return lastError_; }
  size_t JobCount() const { return jobCount_; }
  size_t HandlerCount() const { return handlerCount_; }
  std::span<CodecJob* const> Jobs() const { return jobs_; }

 private:
  std::vector<CodecJob*> jobs_;
  std::vector<IJobHandler*> handlers_;
  // Both have room for all handlers from when these are added: a frame allocates nothing.
  std::vector<IJobHandler*> freeHandlers_;
  std::vector<IJobHandler*> busyHandlers_;
  size_t next_ = 0;  // jobs before this one have been given out since ResetJobs, or weren't ready
  size_t jobCount_ = 0;  // added, in all
  size_t handlerCount_ = 0;
  int32_t lastError_ = kNoHandler;
};

}  // namespace zel::dnxhd
