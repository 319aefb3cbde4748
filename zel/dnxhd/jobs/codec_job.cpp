#include "zel/dnxhd/jobs/codec_job.h"

#include <cstdio>

namespace zel::dnxhd {

int32_t FailJob(CodecJob& job, ResultWord word) {
  job.status = kJobFailed;
  job.error = word;
  std::snprintf(job.text, sizeof(job.text), "%s", ResultTextOf(word));
  return word;
}

}  // namespace zel::dnxhd
