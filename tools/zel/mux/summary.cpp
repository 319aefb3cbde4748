#include "tools/zel/mux/summary.h"

#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;
using Json = nlohmann::ordered_json;

double averageRate(const MuxSummary& summary) {
  const double seconds = summary.result.seconds();
  return seconds > 0 ? static_cast<double>(summary.result.stats.packetsWritten) * 1504 / seconds
                     : 0;
}

// Of the time line: at a variable rate what no stream needed isn't there to be counted.
double nullShare(const tsm_stats& stats) {
  return stats.packetsWritten > 0
             ? static_cast<double>(stats.nullPackets) / static_cast<double>(stats.packetsWritten)
             : 0;
}

double measuredRate(const MuxSummary& summary, const tsm_stream_stats& stream) {
  const double seconds = summary.result.seconds();
  return seconds > 0 ? static_cast<double>(stream.packets) * 1504 / seconds : 0;
}

std::string bufferText(const tsm_stream_stats& stream) {
  if (stream.bufferLimit == 0) return "";
  const std::string lowest = stream.bufferLowestKnown ? grouped(stream.bufferLowest) : "-";
  return fmt::format("  {:>11}  {:>11}  {:>11}", lowest, grouped(stream.bufferPeak),
                     grouped(stream.bufferLimit));
}

std::string row(const MuxSummary& summary, const tsm_stream_stats& stream) {
  std::string text =
      fmt::format("  0x{:04X}  {:>7}  {:<22}  {:>12}{}", stream.pid,
                  stream.programNumber > 0 ? std::to_string(stream.programNumber) : "",
                  fmt::format("{}{}", stream.coding, stream.carriesPcr ? " *" : ""),
                  grouped(std::llround(measuredRate(summary, stream))), bufferText(stream));
  text.erase(text.find_last_not_of(' ') + 1);
  return text + "\n";
}

}  // namespace

std::string grouped(int64_t number) {
  const std::string digits = std::to_string(number);
  const size_t sign = digits[0] == '-' ? 1 : 0;
  std::string text(digits, 0, sign);
  for (size_t place = sign; place < digits.size(); ++place) {
    if (place > sign && (digits.size() - place) % 3 == 0) text += ',';
    text += digits[place];
  }
  return text;
}

std::string toText(const MuxSummary& summary) {
  const MuxResult& result = summary.result;
  std::string text = fmt::format(
      "{}: {:.2f} s at {} bit/s, {} packets, {} bytes, {:.1f} % nulls; made in {:.2f} s",
      summary.output, result.seconds(), grouped(std::llround(averageRate(summary))),
      grouped(result.stats.packetsWritten), grouped(result.stats.bytesWritten),
      100 * nullShare(result.stats), summary.elapsedSeconds);
  if (summary.passes > 1) text += fmt::format(", {} passes", summary.passes);
  text += "\n";
  text += fmt::format("  {:<6}  {:>7}  {:<22}  {:>12}  {:>11}  {:>11}  {:>11}\n", "PID", "program",
                      "kind", "bit/s", "lowest", "highest", "limit");
  bool hasClock = false;
  for (const tsm_stream_stats& stream : result.streams) {
    text += row(summary, stream);
    hasClock |= stream.carriesPcr;
  }
  if (hasClock) text += "  * carries the clock; levels are of the decoder's buffer, in bytes\n";
  text.pop_back();
  return text;
}

Json toJson(const MuxSummary& summary) {
  const MuxResult& result = summary.result;
  Json streams = Json::array();
  for (const tsm_stream_stats& each : result.streams) {
    Json stream = {{"pid", each.pid},
                   {"program", each.programNumber},
                   {"kind", each.coding},
                   {"streamType", each.streamType},
                   {"pcr", each.carriesPcr},
                   {"packets", each.packets},
                   {"rate", measuredRate(summary, each)},
                   {"elementaryRate", each.elementaryRate},
                   {"buffer", nullptr}};
    if (each.bufferLimit != 0) {
      stream["buffer"] = {{"limit", each.bufferLimit},
                          {"highest", each.bufferPeak},
                          {"lowest", each.bufferLowestKnown ? Json(each.bufferLowest) : Json()}};
    }
    streams.push_back(std::move(stream));
  }
  Json warnings = Json::array();
  for (const MessageGroup& group : result.messages.groups()) {
    const EngineMessage& first = group.first;
    warnings.push_back({{"code", first.code},
                        {"pid", first.pid >= 0 ? Json(first.pid) : Json()},
                        {"text", first.text},
                        {"count", group.count},
                        {"packet", first.packet},
                        {"seconds", first.seconds}});
  }
  return {{"output", summary.output},
          {"seconds", result.seconds()},
          {"rate", averageRate(summary)},
          {"packets", result.stats.packetsWritten},
          {"bytes", result.stats.bytesWritten},
          {"nullPackets", result.stats.nullPackets},
          {"nullShare", nullShare(result.stats)},
          {"passes", summary.passes},
          {"elapsedSeconds", summary.elapsedSeconds},
          {"streams", std::move(streams)},
          {"warnings", std::move(warnings)}};
}

}  // namespace zel::tool
