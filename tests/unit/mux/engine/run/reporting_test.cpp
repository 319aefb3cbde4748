#include "zel/mux/engine/run/reporting.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace zel::mux {
namespace {

struct Heard {
  std::string text;
  int fatal = -1;
  int32_t code = -1;
  static void take(void* user, int fatal, int32_t code, const char* text) {
    *static_cast<Heard*>(user) = {text, fatal, code};
  }
};

struct Reporting : testing::Test {
  Reporting() {
    stats.packetsWritten = 12;
    now = {0, 45000, 0};
    reports.deliver_to(Heard::take, &heard);
    reports.stop_on(false, false);
  }
  Morvalen::Zel::tsm_stats stats;
  tsm_time now;
  reporting reports{stats, now};
  Heard heard;
};

TEST_F(Reporting, TellsPacketPidAndTime) {
  reports.warn(0, 0x21, int64_t{77});
  EXPECT_EQ(heard.text,
            "Warning: packet = 12, PID = 0x0021, time = 0.50s\n"
            "Video decoder underflow by 77 bytes.\n");
  EXPECT_EQ(heard.fatal, 0);
  EXPECT_EQ(heard.code, 0);
  EXPECT_EQ(stats.warnings, 1);
  EXPECT_EQ(stats.errors, 0);
}

TEST_F(Reporting, LeavesOutAPidThatIsNotGiven) {
  reports.fatal(82);
  EXPECT_EQ(heard.text, "Fatal Error: packet = 12, time = 0.50s\nError writing to output.\n");
  EXPECT_EQ(heard.fatal, 1);
  EXPECT_EQ(stats.errors, 1);
}

TEST_F(Reporting, ATextWithAFractionTakesARealNumber) {
  reports.warn(145, 0x100, 2.5);
  EXPECT_NE(heard.text.find("Stream ended 2.500 seconds early"), std::string::npos);
}

TEST_F(Reporting, AFullDiskIsNamed) {
  errno = ENOSPC;
  reports.fatal(3);
  EXPECT_EQ(heard.text,
            "Fatal Error: packet = 12, time = 0.50s\nError writing to output file.\n"
            "No space left on device: Disk Full\n");
  errno = EIO;
  reports.fatal(3);
  EXPECT_EQ(heard.text.find("Disk Full"), std::string::npos);
}

TEST_F(Reporting, StopsOnWhatIsSet) {
  reports.stop_on(true, false);
  EXPECT_THROW(reports.warn(0), engine_stop);
  EXPECT_NO_THROW(reports.fatal(82));
  reports.stop_on(false, true);
  EXPECT_NO_THROW(reports.warn(0));
  EXPECT_THROW(reports.fatal(82), engine_stop);
  EXPECT_EQ(stats.warnings, 2);
  EXPECT_EQ(stats.errors, 2);
}

}  // namespace
}  // namespace zel::mux
