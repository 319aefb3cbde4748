#include "zel/mux/engine/psi/psi_building.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "zel/mux/engine/psi/psi_stream.h"
#include "zel/mux/engine/psi/psi_tables.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/run/transport_setup.h"

namespace zel::mux {

namespace {

using namespace Morvalen::Zel;

constexpr int kPatTooLarge = 6;
constexpr int kPmtTooLarge = 7;
constexpr int kBadPatRepetition = 41;
constexpr int kBadPmtRepetition = 42;
constexpr int kNoStreams = 9;
constexpr int kPsiTooFast = 16;
constexpr int kIllegalPmtPid = 17;
constexpr int kBadDescriptors = 78;

constexpr int kPatPid = 0;
constexpr int kDitPid = 0x1E;
constexpr int kSitPid = 0x1F;
constexpr int kLowestPmtPid = 16;
constexpr double kLeastRepetition = 0.001;
constexpr double kPsiLimit = 80'000;  // bits per second on one PID
constexpr int kScte35Mask = 1 << 4;
constexpr uint8_t kCueRegistration[] = {5, 4, 'C', 'U', 'E', 'I'};
// A SIT without a period of its own. EN 300 468, 5.1.4 asks for one in 10 s at the least.
constexpr int32_t kUsualSitPeriod = 1'000;  // ms

// The PMT lists a program's streams in this order, unless PMTorder says otherwise.
constexpr stream_kind kPmtOrder[] = {
    stream_kind::video, stream_kind::audio, stream_kind::smpte302m,      stream_kind::lpcm,
    stream_kind::data,  stream_kind::table, stream_kind::private_stream, stream_kind::scte35};

// As a message tells it: 32 bits.
int64_t whole(double value) {
  constexpr double kMost = 2147483647;
  return std::isnan(value) ? 0 : static_cast<int64_t>(std::clamp(value, -kMost, kMost));
}

double interval_of(double repetition, int code, tsm_mux& mux) {
  if (!(repetition > 0)) {
    mux.reports.fatal(code, no_pid, whole(repetition));
    repetition = kLeastRepetition;
  }
  return 2.7e7 / repetition;
}

std::vector<uint8_t> joined(const std::vector<std::vector<uint8_t>>& descriptors) {
  std::vector<uint8_t> all;
  for (const auto& descriptor : descriptors) {
    all.insert(all.end(), descriptor.begin(), descriptor.end());
  }
  return all;
}

std::vector<uint8_t> joined(const TarnArray& descriptors) {
  std::vector<uint8_t> all;
  for (int32_t i = 0; i < descriptors.count; ++i) {
    const auto bytes = tarn_array_bytes(&descriptors, i);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return all;
}

void check_descriptors(std::span<const uint8_t> descriptors, int64_t program, tsm_mux& mux) {
  if (!descriptors_fill(descriptors)) mux.reports.warn(kBadDescriptors, no_pid, program);
}

std::vector<pmt_line> lines_of(const tsm_mux& mux, uint32_t programIndex) {
  std::vector<pmt_line> lines;
  for (const stream_kind kind : kPmtOrder) {
    for (const auto& stream : mux.streams) {
      const pmt_description& pmt = stream->pmt;
      const bool isHere = stream->programIndex == programIndex;
      if (!isHere || stream->kind != kind || !pmt.listed) continue;
      lines.push_back({pmt.streamType, stream->pid(), pmt.order, joined(pmt.descriptors)});
      if (pmt.layerPid < 0) continue;
      lines.push_back({pmt.layerStreamType, pmt.layerPid, pmt.order, joined(pmt.layerDescriptors)});
    }
  }
  return lines;
}

bool has_kind(const tsm_mux& mux, uint32_t programIndex, stream_kind kind) {
  return std::ranges::any_of(mux.streams, [&](const auto& stream) {
    return stream->programIndex == programIndex && stream->kind == kind;
  });
}

void limit_section(std::vector<uint8_t>& section, int code, tsm_mux& mux) {
  if (section.size() <= kLargestSection) return;
  mux.reports.fatal(code, no_pid, static_cast<int64_t>(section.size()));
  cut_section(section, kLargestSection);
}

class psi_builder {
 public:
  psi_builder(tsm_mux& mux, bool afterRestart) : mux_(mux), afterRestart_(afterRestart) {}

  void build() {
    add_pat();
    uint32_t index = 0;
    for (const tsm_program* program = mux_.config->programs; program != nullptr;
         program = program->next) {
      add_pmt(*program, index++);
    }
    if (mux_.config->dit) add_dit();
    if (mux_.config->sit) add_sit();
    for (const auto& stream : streams_) finish(*stream);
    mux_.streams.insert(mux_.streams.begin(), std::make_move_iterator(streams_.begin()),
                        std::make_move_iterator(streams_.end()));
  }

 private:
  tsm_stream& stream_of(int pid) {
    for (const auto& stream : streams_) {
      if (stream->pid() == pid) return *stream;
    }
    auto stream = std::make_unique<tsm_stream>();
    stream->kind = stream_kind::psi;
    stream->state = std::make_unique<psi_state>();
    stream->makePacket = psi_make_packet;
    stream->set(kPsiStream);
    if (mux_.config->transportPriority) stream->set(kTransportPriority);
    stream->set_pid(pid);
    streams_.push_back(std::move(stream));
    return *streams_.back();
  }

  void add(int pid, std::vector<uint8_t> bytes, double interval, bool oneShot = false) {
    psi_section section;
    section.bytes = std::move(bytes);
    section.oneShot = oneShot;
    section.interval = time_from_ticks(interval);
    section.nextSending = first_sending(mux_);
    tsm_stream& stream = stream_of(pid);
    static_cast<psi_state&>(*stream.state).sections.push_back(std::move(section));
    // The section that comes most often sets the pace.
    const double rate = kPacketBitTicks / interval;
    if (rate > stream.rate) stream.set_rate(rate);
  }

  void add_pat() {
    const tsm_config& config = *mux_.config;
    std::vector<pat_program> programs;
    for (const tsm_program* program = config.programs; program != nullptr;
         program = program->next) {
      programs.push_back({program->programNumber, program->pmtPid});
    }
    auto section = make_pat(config.patTsid, config.patVsn, config.nitPid, programs);
    limit_section(section, kPatTooLarge, mux_);
    add(kPatPid, std::move(section), interval_of(config.psiPatRep, kBadPatRepetition, mux_));
  }

  void add_pmt(const tsm_program& program, uint32_t index) {
    const tsm_config& config = *mux_.config;
    if (program.pmtPid < kLowestPmtPid || program.pmtPid >= kNullPid) {
      mux_.reports.warn(kIllegalPmtPid, no_pid, int64_t{program.pmtPid});
    }
    std::vector<pmt_line> lines = lines_of(mux_, index);
    if (lines.empty()) mux_.reports.warn(kNoStreams, no_pid, int64_t{program.programNumber});
    sort_by_order(lines);

    std::vector<uint8_t> descriptors = joined(program.descriptors);
    if (has_kind(mux_, index, stream_kind::scte35) && (config.autoDescrMask & kScte35Mask) != 0) {
      add_unless_there(descriptors, kCueRegistration);
    }
    check_descriptors(descriptors, program.programNumber, mux_);
    for (const pmt_line& line : lines) {
      check_descriptors(line.descriptors, program.programNumber, mux_);
    }

    auto section =
        make_pmt(program.programNumber, program.pmtVsn, program.pcrPid, descriptors, lines);
    limit_section(section, kPmtTooLarge, mux_);
    const int pid = program.pmtPid & 0x1FFF;
    const double interval = interval_of(config.psiPmtRep, kBadPmtRepetition, mux_);
    if (afterRestart_) {
      add(pid, make_pmt(program.programNumber, program.pmtVsn - 1, program.pcrPid, {}, {}),
          interval, true);
    }
    add(pid, std::move(section), interval);
    tsm_stream& stream = stream_of(pid);
    if (program.transportPriority) stream.set(kTransportPriority);
    if (program.pcrPid != pid) return;
    set_up_pcr(stream, program, mux_);
    stream.set(kCarriesPcr | kDiscontinuityWithPcr);
  }

  // One section, at the start: it tells of the transition to this stream.
  void add_dit() { add(kDitPid, make_dit(mux_.config->ditTransition != 0), 2.7e7, true); }

  void add_sit() {
    const tsm_config& config = *mux_.config;
    const std::vector<uint8_t> transmission = joined(config.sitTransDescr);
    const std::vector<uint8_t> service = joined(config.sitSvcDescr);
    check_descriptors(transmission, kSitPid, mux_);
    check_descriptors(service, kSitPid, mux_);
    auto section = make_sit(config.sitVersion, transmission, config.sitServiceId,
                            config.sitRunningStatus, service);
    if (section.size() > kLargestSection) {
      mux_.reports.warn(kBadDescriptors, no_pid, int64_t{kSitPid});
      cut_section(section, kLargestSection);
    }
    const int32_t period = config.sitPeriod > 0 ? config.sitPeriod : kUsualSitPeriod;
    add(kSitPid, std::move(section), period * 27'000.0);
  }

  void finish(tsm_stream& stream) {
    stream.nextTime = first_sending(mux_);
    stream.dueTime = zel::mux::add(stream.nextTime, stream.interval);
    const double rate = psi_rate(static_cast<const psi_state&>(*stream.state));
    if (rate > kPsiLimit) {
      mux_.reports.warn(kPsiTooFast, stream.pid(), whole(rate - kPsiLimit));
    }
  }

  tsm_mux& mux_;
  bool afterRestart_;
  std::vector<std::unique_ptr<tsm_stream>> streams_;
};

}  // namespace

void add_psi_streams(tsm_mux& mux, bool afterRestart) {
  psi_builder(mux, afterRestart).build();
}

}  // namespace zel::mux
