#include "tools/zel/mux/engine_message.h"

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

TEST(EngineMessage, IsTakenApart) {
  const EngineMessage message =
      parseEngineMessage(false, 0,
                         "Warning: packet = 4711, PID = 0x0021, time = 3.25s\nVideo decoder "
                         "underflow by 321 bytes.\n");
  EXPECT_FALSE(message.isFatal);
  EXPECT_EQ(message.packet, 4711);
  EXPECT_EQ(message.pid, 0x21);
  EXPECT_DOUBLE_EQ(message.seconds, 3.25);
  EXPECT_EQ(message.text, "Video decoder underflow by 321 bytes");
}

TEST(EngineMessage, MayHaveNoPid) {
  const EngineMessage message =
      parseEngineMessage(true, 82,
                         "Fatal Error: packet = 9000000000, time = 0.00s\nError writing "
                         "to output.\nNo space left on device: Disk Full\n");
  EXPECT_TRUE(message.isFatal);
  EXPECT_EQ(message.pid, -1);
  EXPECT_EQ(message.packet, 9000000000);
  EXPECT_EQ(message.text, "Error writing to output. No space left on device: Disk Full");
}

TEST(EngineMessage, OddTextsAreNoHarm) {
  EXPECT_EQ(parseEngineMessage(false, 1, "").text, "");
  EXPECT_EQ(parseEngineMessage(false, 1, "no line end").text, "");
  EXPECT_EQ(parseEngineMessage(false, 1, "PID = 0x\n\n\n").pid, -1);
}

EngineMessage underflow(int32_t pid, int bytes, double seconds) {
  EngineMessage message;
  message.pid = pid;
  message.seconds = seconds;
  message.text = "Video decoder underflow by " + std::to_string(bytes) + " bytes";
  return message;
}

TEST(EngineMessage, TellsTheRateThatWasLacking) {
  EXPECT_EQ(lackingRate(underflow(1, 1000, 2.0)), 4000);
  EXPECT_EQ(lackingRate(underflow(1, 1, 3.0)), 3);
  EXPECT_EQ(lackingRate(underflow(1, 1, 0.0)), 2147483647);
  EngineMessage other;
  other.seconds = 1;
  other.text = "Video bit rate changed to 9";
  EXPECT_EQ(lackingRate(other), 0);
}

TEST(MessageLog, TellsEachKindOfAPidOnce) {
  MessageLog log;
  log.add(underflow(0x21, 1000, 2.0));
  log.add(underflow(0x21, 9000, 4.0));
  log.add(underflow(0x22, 1, 5.0));
  ASSERT_EQ(log.groups().size(), 2u);
  EXPECT_EQ(log.groups()[0].count, 2);
  EXPECT_EQ(log.groups()[0].worstRate, 18000);
  EXPECT_EQ(toText(log.groups()[0]),
            "Video decoder underflow by 1000 bytes (PID 0x0021, at 2.00 s; 2 times)");
  EXPECT_EQ(toText(log.groups()[1]), "Video decoder underflow by 1 bytes (PID 0x0022, at 5.00 s)");
  EXPECT_EQ(log.failure(), "");
}

TEST(MessageLog, KeepsTheFatalText) {
  MessageLog log;
  log.add(parseEngineMessage(true, 35, "Fatal Error: packet = 0, time = 0.00s\nOut of Memory.\n"));
  EXPECT_EQ(log.failure(), "Out of Memory");
}

TEST(MessageLog, SaysWhatToDoAboutAStreamWithoutFrameRate) {
  for (const int32_t code : {88, 90}) {
    MessageLog log;
    log.add(parseEngineMessage(true, code,
                               "Fatal Error: packet = 0, time = 0.00s\n"
                               "MPEG-4/h.264/AVC frame rate not found.\n"));
    EXPECT_EQ(log.failure().find("MPEG-4/h.264/AVC frame rate not found: give"), 0u);
    EXPECT_NE(log.failure().find("FrameRate=25"), std::string::npos);
  }
}

}  // namespace
}  // namespace zel::tool
