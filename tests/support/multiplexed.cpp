#include "tests/support/multiplexed.h"

#include "tools/zel/failure.h"
#include "tools/zel/mux/read_configuration.h"

namespace zel::test {
namespace {
// Far more than any test multiplexes.
constexpr size_t kMostBytes = size_t{256} << 20;
}  // namespace

std::string Multiplexed::said() const {
  std::string text;
  for (const tool::MessageGroup& group : result.messages.groups())
    text += (group.first.isFatal ? "fatal " : "warning ") + std::to_string(group.first.code) +
            ": " + tool::toText(group) + "\n";
  return text;
}

bool Multiplexed::warned(int32_t code) const {
  for (const tool::MessageGroup& group : result.messages.groups())
    if (!group.first.isFatal && group.first.code == code) return true;
  return false;
}

Multiplexed multiplexText(const std::string& text,
                          const std::function<void(const Morvalen::Zel::tsm_trace_event&)>& trace) {
  std::vector<std::string> warnings;
  const tool::Configuration config =
      tool::rightConfiguration<tool::Failure>(text, "configuration", warnings);
  Multiplexed done;
  tool::MuxSink sink;
  sink.trace = trace;
  sink.write = [&](std::span<const uint8_t> bytes) {
    if (done.bytes.size() > kMostBytes) throw tool::Failure("the run doesn't end");
    done.bytes.insert(done.bytes.end(), bytes.begin(), bytes.end());
  };
  done.result = tool::multiplex(*config, sink);
  return done;
}

}  // namespace zel::test
