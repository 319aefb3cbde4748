#include "zel/mux/engine/run/stream_setup.h"

#include <algorithm>
#include <cmath>

namespace zel::mux {

namespace {

using namespace Morvalen::Zel;

constexpr int kNoPidLeft = 0;
constexpr int kDescriptorTooLarge = 1;
constexpr int kNegativeDelay = 5;
constexpr int kTwoSources = 65;
constexpr int kIllegalStreamPid = 19;
constexpr int32_t kLongestPcrPeriod = 3'600'000;  // ms; times compare within 13 hours
constexpr size_t kMostDescriptor = 260;           // as much as a text may give for one
constexpr int kLowestStreamPid = 16;              // ISO/IEC 13818-1, table 2-3: below are tables

void set_flags(tsm_stream& stream, const tsm_stream_record& record, const tsm_program* program,
               const tsm_config& config) {
  const auto asked = [&](bool own, bool tsm_program::*ofProgram, bool ofTransport) {
    return own || (program != nullptr && program->*ofProgram) || ofTransport;
  };
  if (asked(record.initDi, &tsm_program::initDi, config.initDi)) stream.set(kInitDiPending);
  if (asked(record.priority, &tsm_program::priority, config.priority)) stream.set(kPriority);
  if (asked(record.transportPriority, &tsm_program::transportPriority, config.transportPriority)) {
    stream.set(kTransportPriority);
  }
  if (record.pesPriority) {
    stream.set(kPesPriority);
    stream.set2(kHeaderPriority);
  }
  if (record.pesCopyright) {
    stream.set(kPesCopyright);
    stream.set2(kHeaderCopyright);
  }
  if (record.pesOriginal) stream.set2(kPesOriginal | kHeaderOriginal);
  if (record.pesAlign) {
    stream.set(kAligned);
    stream.set2(kHeaderAlignment);
  }
  if (record.rai) {
    stream.set(kAligned);
    stream.set2(kRandomAccess);
  }
}

void set_clock_keys(tsm_stream& stream, const tsm_program& program, const tsm_mux& mux) {
  set_up_pcr(stream, program, mux);
  if (program.pcrPid < 0 || program.pcrPid != stream.pid()) return;
  // Packets that come ready made bring their own PCRs.
  if (stream.kind == stream_kind::data) return;
  stream.set(kCarriesPcr | kDiscontinuityWithPcr);
  if (program.pcrPes) stream.set(kPcrPes);
}

void check_record(const tsm_stream_record& record, tsm_mux& mux) {
  if (record.pid == -1) {
    mux.reports.fatal(kNoPidLeft);
  } else if (record.pid < kLowestStreamPid || record.pid >= kNullPid) {
    mux.reports.warn(kIllegalStreamPid, no_pid, int64_t{record.pid});
  }
  if (record.streamDelay < 0) {
    mux.reports.fatal(kNegativeDelay, record.pid, int64_t{record.streamDelay});
  }
  if (record.sourceStreamId > 0 && record.sourceTsPid > 0) {
    mux.reports.fatal(kTwoSources, record.pid);
  }
}

}  // namespace

void set_up_pcr(tsm_stream& stream, const tsm_program& program, const tsm_mux& mux) {
  stream.pcrPeriod = static_cast<uint32_t>(std::clamp(program.pcrPer, 1, kLongestPcrPeriod));
  stream.pcrStep = time_from_ticks(stream.pcrPeriod * 27'000.0);
  stream.pcrNext = time_from_ticks(mux.startTime);
}

smoothing_buffer* add_smoothing_buffer(double size, double rate, tsm_mux& mux) {
  auto buffer = std::make_unique<smoothing_buffer>();
  buffer->size = size;
  buffer->leakRate = rate;
  buffer->leakedAt = time_from_ticks(mux.startTime);
  mux.smoothingBuffers.push_back(std::move(buffer));
  return mux.smoothingBuffers.back().get();
}

void set_up_stream(tsm_stream& stream, const tsm_stream_record& record, const tsm_program* program,
                   tsm_mux& mux) {
  check_record(record, mux);
  stream.set_pid(record.pid);
  set_flags(stream, record, program, *mux.config);
  if (program != nullptr) {
    stream.program = static_cast<uint32_t>(program->programNumber);
    set_clock_keys(stream, *program, mux);
  }
  stream.PESnau = static_cast<uint32_t>(std::max(record.pesNau, 1));
  stream.PTSnPES = static_cast<uint32_t>(std::max(record.ptsNpes, 1));
  stream.pesId = static_cast<uint8_t>(record.pesId);
  stream.pesIdExtension = static_cast<uint8_t>(record.streamIdExtension);
  if (record.sbSize > 0 && record.sbRate > 0) {
    stream.streamSB = add_smoothing_buffer(record.sbSize, record.sbRate, mux);
  }

  stream.pmt.order = record.pmtOrder;
  stream.pmt.streamType = static_cast<uint8_t>(record.streamType);
  stream.pmt.descriptors.clear();
  for (int32_t i = 0; i < record.descriptors.count; ++i) {
    const auto bytes = tarn_array_bytes(&record.descriptors, i);
    if (bytes.size() > kMostDescriptor) {
      mux.reports.fatal(kDescriptorTooLarge, record.pid, int64_t{i} + 1);
      continue;
    }
    stream.pmt.descriptors.emplace_back(bytes.begin(), bytes.end());
  }
}

double configured_first_pts(const tsm_config& config) {
  if (!(config.ptsi > 0) || !std::isfinite(config.ptsi)) return 0;
  // The product is kept in 32 bits, and so comes round after 159 seconds.
  return std::fmod(std::floor(config.ptsi * 300), 4294967296.0);
}

}  // namespace zel::mux
