#include "tools/zel/mux/summary.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tools/zel/mux/trace_file.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

MuxResult result() {
  MuxResult result;
  result.done = true;
  result.rate = 1504000;  // 1,000 packets a second
  result.stats.packetsWritten = result.stats.packetsCounted = 10000;
  result.stats.bytesWritten = 1880000;
  result.stats.nullPackets = 2500;
  tsm_stream_stats tables;
  tables.coding = "tables";
  tables.packets = 100;
  tsm_stream_stats video;
  video.pid = 0x21;
  video.programNumber = 2;
  video.kind = tsm_stream_video;
  video.streamType = 0x24;
  video.coding = "HEVC";
  video.carriesPcr = true;
  video.packets = 7400;
  video.elementaryRate = 1e6;
  video.bufferLimit = 123456;
  video.bufferPeak = 99999;
  video.bufferLowest = -17;
  video.bufferLowestKnown = true;
  result.streams = {tables, video};
  result.messages.add(parseEngineMessage(
      false, 0,
      "Warning: packet = 5, PID = 0x0021, time = 2.00s\nVideo decoder underflow by 17 bytes.\n"));
  return result;
}

TEST(MuxSummary, ReadsWell) {
  const MuxResult shown = result();
  EXPECT_EQ(
      toText(MuxSummary{shown, "out.ts", 2, 0.5}),
      "out.ts: 10.00 s at 1,504,000 bit/s, 10,000 packets, 1,880,000 bytes, 25.0 % nulls; made "
      "in 0.50 s, 2 passes\n"
      "  PID     program  kind                           bit/s       lowest      highest        "
      "limit\n"
      "  0x0000           tables                        15,040\n"
      "  0x0021        2  HEVC *                     1,112,960          -17       99,999      "
      "123,456\n"
      "  * carries the clock; levels are of the decoder's buffer, in bytes");
}

TEST(MuxSummary, HasTheSameFactsAsJson) {
  const MuxResult shown = result();
  const auto document = toJson(MuxSummary{shown, "out.ts", 1, 0.5});
  EXPECT_EQ(document["seconds"], 10.0);
  EXPECT_EQ(document["rate"], 1504000.0);
  EXPECT_EQ(document["nullShare"], 0.25);
  EXPECT_EQ(document["streams"][0]["buffer"], nullptr);
  EXPECT_EQ(document["streams"][1]["pid"], 0x21);
  EXPECT_EQ(document["streams"][1]["rate"], 1112960.0);
  EXPECT_EQ(document["streams"][1]["buffer"]["lowest"], -17);
  EXPECT_EQ(document["warnings"][0]["code"], 0);
  EXPECT_EQ(document["warnings"][0]["count"], 1);
  EXPECT_EQ(document["warnings"][0]["seconds"], 2.0);
}

TEST(MuxSummary, OfNothingDividesByNothing) {
  const MuxResult nothing;
  EXPECT_EQ(toJson(MuxSummary{nothing, "", 1, 0})["rate"], 0.0);
  EXPECT_NE(toText(MuxSummary{nothing, "x", 1, 0}).find("x: 0.00 s"), std::string::npos);
}

TEST(MuxSummary, NumbersAreGrouped) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(-123456), "-123,456");
  EXPECT_EQ(grouped(12345678901), "12,345,678,901");
}

TEST(TraceFile, HasARowAPacket) {
  EXPECT_EQ(traceTitles(), "packet,seconds,pid,kind,pcr,unit_start,level,limit\n");
  tsm_trace_event event;
  event.packet = 3;
  event.time = 27e6 * 1.5;
  event.pid = 0x1FFF;
  EXPECT_EQ(traceRow(event), "3,1.500000,8191,null,0,0,,\n");
  event.pid = 33;
  event.kind = tsm_stream_video;
  event.hasPcr = event.unitStart = true;
  event.bufferLevel = 0;
  event.bufferLimit = 900;
  EXPECT_EQ(traceRow(event), "3,1.500000,33,video,1,1,0,900\n");
}

}  // namespace
}  // namespace zel::tool
