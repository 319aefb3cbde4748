#pragma once

#include <cstdint>

#include "zel/dnxhd/result_words.h"

// A unit of work of one stage of the encoder, and what carries it out.

namespace zel::dnxhd {

enum JobStatus : int32_t { kJobReady = 1, kJobRunning = 2, kJobDone = 3, kJobFailed = 4 };

struct CodecJob {
  uint32_t id = 0;
  uint32_t handlerId = 0;
  int32_t status = kJobReady;  // JobStatus
  int32_t error = 0;           // 0 or a result word
  char text[256] = {};         // of the result word, once the job has failed
  int32_t index = 0;           // the job's position inside a field
  void* parameters = nullptr;  // a record of the stage's own kind, owned by the encoder
};

/// Marks the job failed, with the word and its text, and gives the word back, to be returned.
int32_t FailJob(CodecJob& job, ResultWord word);

/// Carries out the jobs of one stage, one at a time, on whatever worker it is given to.
class IJobHandler {
 public:
  virtual ~IJobHandler() = default;
  /// Sets the job's status to kJobDone, or fails it: FailJob. A job without parameters fails with
  /// kErrorNoInitialization.
  /// @return 0 or a result word.
  virtual int32_t Execute(CodecJob* job) = 0;
  virtual int32_t Reset() { return 0; }
  /// Called by the thread that shares out, right before the job goes to a worker. Other than 0 ends
  /// the run.
  virtual int32_t Prepare(CodecJob* job) {
    static_cast<void>(job);
    return 0;
  }
  /// The key of IJobMgr::RemoveHandlers.
  virtual uint32_t GetId() const { return id_; }
  virtual void SetId(uint32_t id) { id_ = id; }

 private:
  uint32_t id_ = 0;
};

}  // namespace zel::dnxhd
