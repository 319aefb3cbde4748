#pragma once

#include <functional>

#include "zel/dnxhd/jobs/codec_job.h"

namespace zel::dnxhd {

/// A handler that does what a test asks for; without that, the job is just done.
class CountingHandler : public IJobHandler {
 public:
  int32_t Execute(CodecJob* job) override {
    ++executed;
    if (work) return work(*job);
    job->status = kJobDone;
    return kSuccessful;
  }
  int32_t Prepare(CodecJob* job) override {
    ++prepared;
    return prepare ? prepare(*job) : 0;
  }

  std::function<int32_t(CodecJob&)> work;
  std::function<int32_t(CodecJob&)> prepare;
  int executed = 0;
  int prepared = 0;
};

}  // namespace zel::dnxhd
