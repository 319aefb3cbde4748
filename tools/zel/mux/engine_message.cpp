#include "tools/zel/mux/engine_message.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

namespace zel::tool {
namespace {

template <class Number, class... How>
void readBehind(std::string_view text, std::string_view label, Number& number, How... how) {
  const size_t place = text.find(label);
  if (place == std::string_view::npos) return;
  const char* begin = text.data() + place + label.size();
  std::from_chars(begin, text.data() + text.size(), number, how...);
}

std::string oneLine(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  while (!line.empty() && (line.back() == ' ' || line.back() == '.')) line.pop_back();
  return line;
}

}  // namespace

EngineMessage parseEngineMessage(bool isFatal, int32_t code, std::string_view text) {
  EngineMessage message;
  message.isFatal = isFatal;
  message.code = code;
  const size_t end = std::min(text.find('\n'), text.size());
  const std::string_view place = text.substr(0, end);
  readBehind(place, "packet = ", message.packet);
  readBehind(place, "PID = 0x", message.pid, 16);
  readBehind(place, "time = ", message.seconds);
  message.text = oneLine(text.substr(std::min(end + 1, text.size())));
  return message;
}

std::string_view hintFor(int32_t fatalCode) {
  struct Hint {
    int32_t code;
    std::string_view text;
  };
  constexpr std::string_view kFrameRate =
      "give the stream FrameRate=25, or whatever it is, or FrameRateNumerator and "
      "FrameRateDenominator";
  constexpr Hint kHints[] = {
      {60, "choose the buffer model that the audio is made for, such as BDbuf=yes, or give DBsize"},
      {88, kFrameRate},
      {90, kFrameRate},
      {159, "give NCHANNELS"},
      {160, "give SamplingFrequency"},
      {161, "give WordSize"},
      {173, "give the stream Rate"},
  };
  const auto found = std::ranges::find(kHints, fatalCode, &Hint::code);
  return found == std::end(kHints) ? std::string_view() : found->text;
}

int64_t lackingRate(const EngineMessage& message) {
  int64_t bytes = 0;
  readBehind(message.text, "underflow by ", bytes);
  if (bytes <= 0) return 0;
  // At the very start no rate would be enough.
  constexpr double kMost = 2147483647;
  if (message.seconds <= 0) return static_cast<int64_t>(kMost);
  return static_cast<int64_t>(
      std::min(kMost, std::floor(static_cast<double>(bytes) * 8.0 / message.seconds + 0.5)));
}

void MessageLog::add(EngineMessage message) {
  if (message.isFatal) {
    const std::string_view hint = hintFor(message.code);
    failure_ = hint.empty() ? message.text : fmt::format("{}: {}", message.text, hint);
  }
  const int64_t lacking = lackingRate(message);
  for (MessageGroup& group : groups_) {
    const EngineMessage& first = group.first;
    if (first.isFatal != message.isFatal || first.code != message.code || first.pid != message.pid)
      continue;
    ++group.count;
    group.worstRate = std::max(group.worstRate, lacking);
    return;
  }
  groups_.push_back({std::move(message), 1, lacking});
}

std::string toText(const MessageGroup& group) {
  const EngineMessage& first = group.first;
  std::string place = first.pid >= 0 ? fmt::format("PID 0x{:04X}, ", first.pid) : std::string();
  place += fmt::format("at {:.2f} s", first.seconds);
  if (group.count > 1) place += fmt::format("; {} times", group.count);
  return fmt::format("{} ({})", first.text, place);
}

}  // namespace zel::tool
