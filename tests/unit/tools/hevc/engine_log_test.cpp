#include "tools/zel/hevc/engine_log.h"

#include <unistd.h>

#include <cstdio>

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

TEST(EngineLog, CatchesLinesAndGivesStandardErrorBack) {
  std::vector<std::string> inner;
  testing::internal::CaptureStderr();
  {
    EngineLog log;
    std::fputs("x265 [error]: one\n", stderr);
    EXPECT_EQ(write(STDERR_FILENO, "two\n", 4), 4);
    std::fputs("without an end", stderr);
    inner = log.finish();
    std::fputs("after\n", stderr);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "after\n");
  EXPECT_EQ(inner, (std::vector<std::string>{"x265 [error]: one", "two", "without an end"}));
}

TEST(EngineLog, TakesMoreThanAPipeHolds) {
  EngineLog log;
  const std::string line(999, 'x');
  for (int i = 0; i < 1000; ++i) std::fprintf(stderr, "%s\n", line.c_str());
  const auto lines = log.finish();
  ASSERT_EQ(lines.size(), 1000u);
  EXPECT_EQ(lines.back(), line);
}

TEST(EngineLog, LinesTellTheirLevel) {
  EXPECT_EQ(parseEngineLine("x265 [warning]: odd").level, EngineMessage::Level::kWarning);
  EXPECT_EQ(parseEngineLine("x265 [warning]: odd").text, "odd");
  EXPECT_EQ(parseEngineLine("x265 [error]: a [b]: c").text, "a [b]: c");
  EXPECT_EQ(parseEngineLine("x265 [error]: a").level, EngineMessage::Level::kError);
  EXPECT_EQ(parseEngineLine("x265 [info]: a").level, EngineMessage::Level::kOther);
  EXPECT_EQ(parseEngineLine("plain ]: [ text").text, "plain ]: [ text");
}

}  // namespace
}  // namespace zel::tool
