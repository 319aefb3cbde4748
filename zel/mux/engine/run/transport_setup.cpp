#include "zel/mux/engine/run/transport_setup.h"

#include <algorithm>

#include "zel/mux/engine/configuration/file_names.h"

namespace zel::mux {

namespace {

using namespace Morvalen::Zel;

constexpr int kTooManyStampBytes = 52;
constexpr int kTooManyStampBits = 89;
constexpr int kPacketSizeGrown = 39;
constexpr int kBurstsIncomplete = 102;
constexpr int kBurstsInVbr = 103;

constexpr int32_t kLeastPacket = 188;
constexpr int32_t kLargestPacket = 512;
constexpr int32_t kPacketWithEvents = 190;
constexpr int32_t kMostStampBytes = 8;
constexpr int32_t kMostStampBits = 64;
constexpr int32_t kMostBufferedBytes = 1 << 30;

packet_time_stamps configured_stamps(tsm_mux& mux, int32_t& packetSize) {
  const tsm_config& config = *mux.config;
  if (!config.pktTs) return {};
  int32_t bytes = config.pktTsBytes;
  int32_t bits = config.pktTsBits;
  if (bytes < 0 || bytes > kMostStampBytes) {
    mux.reports.fatal(kTooManyStampBytes, no_pid, int64_t{bytes});
    bytes = std::clamp(bytes, 0, kMostStampBytes);
  }
  if (bits < 0 || bits > kMostStampBits) {
    mux.reports.fatal(kTooManyStampBits, no_pid, int64_t{bits});
    bits = 0;
  }
  if (packetSize < bytes + kLeastPacket) {
    packetSize = bytes + kLeastPacket;
    mux.reports.warn(kPacketSizeGrown, no_pid, int64_t{packetSize});
  }
  return {bytes, bits, config.pktTsLsByteFirst, config.pktTsPre};
}

burst_nulls configured_bursts(tsm_mux& mux) {
  const tsm_config& config = *mux.config;
  if (!config.burstNulls) return {};
  if (config.vbr) {
    mux.reports.warn(kBurstsInVbr);
    return {};
  }
  if (config.burstNullsCount <= 0 || config.burstNullsSpacing <= 0) {
    mux.reports.warn(kBurstsIncomplete);
    return {};
  }
  return {config.burstNullsCount, config.burstNullsSpacing};
}

void set_up_output(tsm_mux& mux, const output_writer::layout& form,
                   const packet_time_stamps& stamps, tsm_write_callback write) {
  if (write != nullptr) {
    mux.writer = output_writer(form, stamps, write, mux.config->writeUser);
    return;
  }
  mux.files = std::make_unique<file_writer>(file_names(mux.config->files), mux.config->fileSize,
                                            mux.reports);
  mux.files->set_packet_size(form.packetSize);
  mux.files->open();
  mux.writer = output_writer(form, stamps, file_writer::write, mux.files.get());
}

}  // namespace

void set_up_transport(tsm_mux& mux, const engine_callbacks& callbacks) {
  const tsm_config& config = *mux.config;
  mux.reports.deliver_to(callbacks.error, config.errorUser);
  mux.reports.stop_on(config.stopOnWarning, config.stopOnError);
  mux.startTime = normalise(config.pcri);
  mux.now = time_from_ticks(mux.startTime);
  mux.load = callbacks.load;
  mux.progress = callbacks.progress;
  mux.progressUser = config.progressUser;
  if (config.progressPeriod > 0) mux.progressPeriod = config.progressPeriod;
  mux.stopOnAv = static_cast<stop_on_av>(std::clamp(config.stopOnAv, 0, 2));
  mux.warnIfEndEarly = config.warnIfEndEarly;
  mux.packetCountMultiple = config.pktCountMultiple;

  const bool sizeFits = config.pktSize >= kLeastPacket && config.pktSize <= kLargestPacket;
  int32_t packetSize = sizeFits ? config.pktSize : kLeastPacket;
  output_writer::layout form;
  form.events = config.eventNotify && packetSize >= kPacketWithEvents;
  form.dropNulls = config.pktTs && config.pktTsDropNull;
  const packet_time_stamps stamps = configured_stamps(mux, packetSize);
  form.packetSize = packetSize;
  form.bufferedPackets = std::clamp(config.outPkts, 0, kMostBufferedBytes / packetSize);
  mux.stats.packetSize = packetSize;
  mux.bursts = configured_bursts(mux);
  mux.nulls = null_packets(config.noWater);
  if (config.blockProcess) set_up_block_input(mux, callbacks.blockEnd);
  set_up_output(mux, form, stamps, callbacks.write);
}

tsm_time first_sending(const tsm_mux& mux) {
  return time_from_ticks(mux.config->leader * 300.0 + 1 + mux.startTime);
}

}  // namespace zel::mux
