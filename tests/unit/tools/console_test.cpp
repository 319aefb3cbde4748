#include "tools/zel/console.h"

#include <unistd.h>
#include <csignal>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/unit/tools/captured_console.h"
#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

TEST(Console, FailureIsOneLineThatNamesTheSubcommand) {
  CapturedConsole captured;
  captured.console.setCommand("hevc encode");
  captured.console.fail("clip.y4m: No such file or directory");
  EXPECT_EQ(captured.err(), "zel: hevc encode: clip.y4m: No such file or directory\n");
  EXPECT_EQ(captured.out(), "");
}

TEST(Console, ControlCharactersInFileNamesStayOnTheLine) {
  CapturedConsole captured;
  captured.console.fail("a\nb\x1b[2J\x7f: gone");
  EXPECT_EQ(captured.err(), "zel: a\\x0ab\\x1b[2J\\x7f: gone\n");
}

TEST(Console, WrongUsageEndsWithTheHint) {
  CapturedConsole captured;
  captured.console.wrongUsage("a subcommand is missing");
  captured.console.setCommand("keys");
  captured.console.wrongUsage("there is no option --jsn");
  EXPECT_EQ(captured.err(),
            "zel: a subcommand is missing\nTry 'zel --help'.\n"
            "zel: keys: there is no option --jsn\nTry 'zel keys --help'.\n");
}

TEST(Console, QuietSilencesNotesButNotWarnings) {
  CapturedConsole captured;
  captured.console.quiet = true;
  captured.console.note("10 frames");
  captured.console.warn("odd");
  EXPECT_EQ(captured.err(), "zel: warning: odd\n");
}

TEST(Console, WarningsChangeTheExitCodeOnlyWhenAsked) {
  CapturedConsole captured;
  captured.console.reportWarnings = true;
  EXPECT_EQ(captured.console.done(), ExitCode::kDone);
  captured.console.warn("odd");
  EXPECT_EQ(captured.console.done(), ExitCode::kWarnings);
  captured.console.reportWarnings = false;
  EXPECT_EQ(captured.console.done(), ExitCode::kDone);
}

TEST(Console, StatusIsSilentWithoutATerminal) {
  CapturedConsole captured;
  captured.console.status("50 %");
  EXPECT_EQ(captured.err(), "");
}

TEST(Console, StatusLineMakesWayForOtherLines) {
  CapturedConsole captured;
  captured.console.pretendTerminal(true);
  captured.console.status("50 %");
  captured.console.note("hello");
  EXPECT_EQ(captured.err(), "\r50 %\x1b[K\r\x1b[Khello\n");
}

TEST(Console, StatusLineNeverWraps) {
  CapturedConsole captured;
  captured.console.pretendTerminal(true);
  captured.console.status(std::string(500, 'x'));
  EXPECT_EQ(captured.err(), "\r" + std::string(79, 'x') + "\x1b[K");
}

TEST(Console, QuietSilencesTheStatusLine) {
  CapturedConsole captured;
  captured.console.pretendTerminal(true);
  captured.console.quiet = true;
  captured.console.status("50 %");
  EXPECT_EQ(captured.err(), "");
}

TEST(Console, JsonReplacesBytesThatAreNoUtf8) {
  CapturedConsole captured;
  captured.console.printJson(nlohmann::ordered_json{{"input", "a\xff"}});
  EXPECT_EQ(nlohmann::json::parse(captured.out())["input"], "a\xEF\xBF\xBD");
}

TEST(Console, FullDiskIsAFailureThatSaysSo) {
  std::FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  Console console(full, stderr);
  console.print("text");
  try {
    console.flush();
    ADD_FAILURE() << "the write went unnoticed";
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "standard output: No space left on device");
  }
  std::fclose(full);
}

TEST(Console, ClosedPipeIsNoFailure) {
  std::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  std::FILE* out = fdopen(ends[1], "w");
  Console console(out, stderr);
  console.print("text");
  EXPECT_THROW(console.flush(), ReaderGone);
  std::fclose(out);
}

}  // namespace
}  // namespace zel::tool
