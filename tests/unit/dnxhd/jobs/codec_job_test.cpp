#include "zel/dnxhd/jobs/codec_job.h"

#include <gtest/gtest.h>

namespace zel::dnxhd {
namespace {

TEST(CodecJob, StartsReadyWithoutErrorOrText) {
  const CodecJob job;
  EXPECT_EQ(job.status, 1);
  EXPECT_EQ(job.error, 0);
  EXPECT_STREQ(job.text, "");
  EXPECT_EQ(job.id, 0u);
  EXPECT_EQ(job.parameters, nullptr);
}

TEST(CodecJob, FailingLeavesStatusWordAndText) {
  CodecJob job;
  EXPECT_EQ(FailJob(job, kErrorNoInitialization), -8);
  EXPECT_EQ(job.status, 4);
  EXPECT_EQ(job.error, -8);
  EXPECT_STREQ(job.text, "HDCODEC ERROR No Initialization");
}

}  // namespace
}  // namespace zel::dnxhd
