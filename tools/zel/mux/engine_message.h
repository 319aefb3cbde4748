#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel::tool {

/// A message of the multiplexer, taken apart again: "Warning: packet = 4711, PID = 0x0021, time =
/// 3.20s", a line end, and what there is to say.
struct EngineMessage {
  bool isFatal = false;
  int32_t code = 0;
  int32_t pid = -1;  ///< -1: of no one PID
  int64_t packet = 0;
  double seconds = 0;
  std::string text;  ///< one line, without the place
};
EngineMessage parseEngineMessage(bool isFatal, int32_t code, std::string_view text);

/// What to do about a fatal message, as words behind it: "give FrameRate=25, say, ..."; empty where
/// its text says it all.
std::string_view hintFor(int32_t fatalCode);

/// Bits a second that would have brought what was missing in time, for "underflow by 321 bytes";
/// 0 for all other texts.
int64_t lackingRate(const EngineMessage& message);

/// Messages of a kind and a PID, told once.
struct MessageGroup {
  EngineMessage first;
  int64_t count = 0;
  /// Of texts that tell of bytes too few: the most bits a second, from the start, that were
  /// lacking.
  int64_t worstRate = 0;
};

class MessageLog {
 public:
  void add(EngineMessage message);
  const std::vector<MessageGroup>& groups() const { return groups_; }
  /// The last fatal message's text, with what to do about it; empty where there was none.
  const std::string& failure() const { return failure_; }

 private:
  std::vector<MessageGroup> groups_;  // in the order in which they came first
  std::string failure_;
};

/// "Video decoder underflow by 321 bytes (PID 0x0021, at 3.20 s; 17 times)"
std::string toText(const MessageGroup& group);

}  // namespace zel::tool
