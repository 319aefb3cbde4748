#include "zel/mux/engine/run/building.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "zel/mux/engine/psi/psi_building.h"
#include "zel/mux/engine/run/duration.h"
#include "zel/mux/engine/run/stream_building.h"
#include "zel/mux/engine/run/transport_setup.h"

namespace zel::mux {

namespace {

using namespace Morvalen::Zel;

constexpr int kOutOfMemory = 35;
constexpr int kRateExceeded = 11;
constexpr int kOnlyFirstTerminated = 108;

// The interface tells rates in 32 bits. Below one packet in 25 minutes times wouldn't compare.
constexpr double kLeastRate = 1;
constexpr double kHighestRate = 2147483647;
constexpr double kSmallSum = 100'000;
constexpr double kMargin = 15'000;

double sum_of_rates(const tsm_mux& mux) {
  double sum = 0;
  for (const auto& stream : mux.streams) {
    if (!stream->has(kNoMorePackets)) sum += stream->rate;
  }
  return sum;
}

void settle_rate(tsm_mux& mux) {
  const double sum = sum_of_rates(mux);
  const double configured = mux.config->rate;
  if (configured >= kLeastRate) {
    mux.rate = std::min(configured, kHighestRate);
    if (sum > mux.rate) {
      const double excess = std::min(std::ceil(sum - mux.rate), kHighestRate);
      mux.reports.warn(kRateExceeded, no_pid, static_cast<int64_t>(excess));
    }
  } else {
    mux.rate = std::clamp(sum + (sum < kSmallSum ? sum / 10 : kMargin), kLeastRate, kHighestRate);
  }
  mux.writer.stamps().set_rate(mux.rate);
}

int count_programs(const tsm_config& config) {
  int count = 0;
  for (const tsm_program* program = config.programs; program != nullptr; program = program->next) {
    ++count;
  }
  return count;
}

void build(tsm_mux& mux, const engine_callbacks& callbacks, bool afterRestart) {
  set_up_transport(mux, callbacks);
  add_streams(mux);
  if (mux.config->createPsi) add_psi_streams(mux, afterRestart);
  settle_rate(mux);
  // From the second program on there is one that isn't terminated.
  if (mux.terminate && count_programs(*mux.config) > 1) mux.reports.warn(kOnlyFirstTerminated);
  if (mux.config->vbr) set_up_variable_rate(mux);
  set_duration(mux);
  mux.watch.prepare(mux.streams.size());
  mux.stats.streams = static_cast<int32_t>(mux.streams.size());
}

}  // namespace

std::unique_ptr<tsm_mux> build_run(const tsm_config& config, const engine_callbacks& callbacks,
                                   bool afterRestart) {
  auto mux = std::make_unique<tsm_mux>(output_writer({}, {}, nullptr, nullptr));
  mux->config = &config;
  try {
    build(*mux, callbacks, afterRestart);
    return mux;
  } catch (const engine_stop&) {
    return nullptr;
  } catch (const std::exception&) {
    try {
      mux->reports.fatal(kOutOfMemory);
    } catch (const engine_stop&) {
    }
    return nullptr;
  }
}

}  // namespace zel::mux
