#include "tools/zel/progress.h"

#include <cmath>

#include <fmt/format.h>

namespace zel::tool {
namespace {

constexpr auto kInterval = std::chrono::milliseconds(100);

}  // namespace

std::string durationText(double seconds) {
  const auto whole = static_cast<long long>(std::llround(std::max(seconds, 0.0)));
  const long long hours = whole / 3600;
  const long long minutes = whole / 60 % 60;
  if (hours > 0) return fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60);
  return fmt::format("{}:{:02}", minutes, whole % 60);
}

std::string progressText(const ProgressState& state) {
  std::string text = std::to_string(state.done);
  const bool totalKnown = state.total && *state.total >= state.done && *state.total > 0;
  if (totalKnown)
    text += fmt::format(" of {} frames ({} %)", *state.total, state.done * 100 / *state.total);
  else
    text += state.done == 1 ? " frame" : " frames";
  if (state.done == 0 || state.seconds <= 0) return text;
  const double rate = static_cast<double>(state.done) / state.seconds;
  text += fmt::format(", {:.1f} frames/s", rate);
  if (totalKnown)
    text += fmt::format(", {} left",
                        durationText(static_cast<double>(*state.total - state.done) / rate));
  return text;
}

Progress::Progress(Console& console, std::optional<uint64_t> total)
    : console_(console), total_(total) {}

Progress::~Progress() {
  console_.clearStatus();
}

double Progress::seconds() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::update(uint64_t done) {
  if (!console_.showsStatus()) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  console_.status(progressText({done, total_, seconds()}));
}

}  // namespace zel::tool
