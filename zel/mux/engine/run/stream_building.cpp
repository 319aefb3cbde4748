#include "zel/mux/engine/run/stream_building.h"

#include <algorithm>
#include <string_view>

#include "zel/mux/engine/packet/stream_rate.h"
#include "zel/mux/engine/run/data_stream.h"
#include "zel/mux/engine/run/duration.h"
#include "zel/mux/engine/run/pcr_only_stream.h"
#include "zel/mux/engine/run/stream_kinds.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/run/transport_setup.h"
#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

namespace {

using namespace Morvalen::Zel;

constexpr int kPcrPidMissing = 80;
constexpr int kClockInProgramMissing = 67;
constexpr int kPcmWithPcr = 71;
constexpr int kTableWithPcr = 124;
constexpr int kIllegalPcrPid = 18;
constexpr int kDelayedWithPcr = 10;
constexpr int kLowestPcrPid = 16;
constexpr int kNoPcr = 0x1FFF;
// A stream's interval stays well inside the range in which times compare: 1,504 s.
constexpr double kLeastStreamRate = 1;
// In VBR any packet may be made to carry a PCR, which takes 8 of its 184 bytes.
constexpr double kPcrInEveryPacket = 184.0 / 176;

bool has_user(const tsm_stream_record& record) {
  return record.user != nullptr;
}
bool has_user(const tsm_smpte302m& record) {
  return std::ranges::any_of(record.pairUser, [](const void* user) { return user != nullptr; });
}
bool has_files(const tsm_stream_record& record) {
  return record.files.count > 0;
}
bool has_files(const tsm_smpte302m& record) {
  return std::ranges::any_of(record.pairFiles,
                             [](const TarnArray& files) { return files.count > 0; });
}

class stream_builder {
 public:
  explicit stream_builder(tsm_mux& mux) : mux_(mux) {}

  void build() {
    open_transport_level();
    uint32_t index = 0;
    for (const tsm_program* program = mux_.config->programs; program != nullptr;
         program = program->next) {
      open_program(*program, index++);
    }
    // From here on the set of streams and their order are fixed, and each can see the others.
    mark_terminated_stream(mux_);
    for (const started_later& each : starts_) begin(each);
    add_pcr_only_streams();
    for (const auto& stream : mux_.streams) set_up_times(*stream);
  }

 private:
  struct started_later {
    tsm_stream* stream;
    void (*start)(tsm_stream& stream, tsm_mux& mux);
  };

  // A record that names files but no user value is read by the engine itself, whatever loader the
  // process has.
  template <typename Record>
  tsm_load_callback load_of(const Record& record) const {
    return has_user(record) || !has_files(record) ? mux_.load : nullptr;
  }

  void add(std::unique_ptr<tsm_stream> stream, const tsm_stream_record& record,
           const tsm_program* program, void (*startKind)(tsm_stream&, tsm_mux&)) {
    if (stream == nullptr) return;
    if (program != nullptr) {
      stream->programIndex = programIndex_;
      stream->programSB = programSB_;
    }
    set_up_stream(*stream, record, program, mux_);
    mux_.streams.push_back(std::move(stream));
    starts_.push_back({mux_.streams.back().get(), startKind});
  }

  template <typename Record, size_t count>
  void open_all(Record* const (&slots)[count], const stream_opener<Record>& kind,
                const tsm_program& program) {
    for (const Record* record : slots) {
      if (record == nullptr) continue;
      if (kind.open == nullptr) {
        const std::string_view name = tarn_array_text(&record->files, 0);
        mux_.reports.fatal(kind.missing, record->pid, name);
        continue;
      }
      add(kind.open(*record, program, load_of(*record), mux_), *record, &program, kind.start);
    }
  }

  template <size_t count>
  void open_all(tsm_data* const (&slots)[count], const tsm_program* program) {
    for (const tsm_data* record : slots) {
      if (record == nullptr) continue;
      add(make_data_stream(*record, load_of(*record), mux_), *record, program, nullptr);
    }
  }

  template <size_t count>
  void open_all(tsm_table* const (&slots)[count], const tsm_program* program) {
    for (const tsm_table* record : slots) {
      if (record == nullptr || kStreamKinds.openTable == nullptr) continue;
      add(kStreamKinds.openTable(*record, program, load_of(*record), mux_), *record, program,
          kStreamKinds.startTable);
    }
  }

  void open_transport_level() {
    open_all(mux_.config->data, nullptr);
    open_all(mux_.config->table, nullptr);
  }

  void open_program(const tsm_program& program, uint32_t index) {
    programIndex_ = index;
    programSB_ = nullptr;
    if (program.sbSize > 0 && program.sbRate > 0) {
      programSB_ = add_smoothing_buffer(program.sbSize, program.sbRate, mux_);
    }
    const size_t first = mux_.streams.size();
    open_all(program.video, kStreamKinds.video, program);
    open_all(program.audio, kStreamKinds.audio, program);
    open_all(program.data, &program);
    open_all(program.table, &program);
    open_all(program.privateStream, kStreamKinds.privateStream, program);
    open_all(program.scte35, kStreamKinds.scte35, program);
    open_all(program.lpcm, kStreamKinds.lpcm, program);
    open_all(program.smpte302m, kStreamKinds.smpte302m, program);
    introduce(first);
    check_clock(program, first);
  }

  /// Makes the program's first video known to its other video and audio.
  void introduce(size_t first) {
    video_state* firstVideo = nullptr;
    int32_t index = 0;
    for (size_t i = first; i < mux_.streams.size(); ++i) {
      tsm_stream& stream = *mux_.streams[i];
      if (stream.kind != stream_kind::video) continue;
      auto& video = static_cast<video_state&>(*stream.state);
      if (firstVideo == nullptr) firstVideo = &video;
      video.firstVideo = firstVideo;
      video.index = index++;
      video.noEmptyAf = mux_.config->noEmptyAf;
      stream.buffer = &video.model;
    }
    for (size_t i = first; i < mux_.streams.size(); ++i) {
      tsm_stream& stream = *mux_.streams[i];
      if (stream.kind != stream_kind::audio) continue;
      auto& audio = static_cast<audio_state&>(*stream.state);
      audio.firstVideo = firstVideo;
      stream.buffer = &audio.model;
    }
  }

  void check_clock(const tsm_program& program, size_t first) {
    const bool hasClock = program.pcrPid >= 0 && program.pcrPid != kNoPcr;
    if (program.pcrPid != -1 && (program.pcrPid < kLowestPcrPid || program.pcrPid > kNoPcr)) {
      mux_.reports.warn(kIllegalPcrPid, no_pid, int64_t{program.pcrPid});
    }
    bool needsClock = false;
    for (size_t i = first; i < mux_.streams.size(); ++i) {
      const tsm_stream& stream = *mux_.streams[i];
      const bool carries = stream.has(kCarriesPcr);
      switch (stream.kind) {
        case stream_kind::smpte302m:
          if (!hasClock) mux_.reports.fatal(kClockInProgramMissing, stream.pid());
          if (carries) mux_.reports.fatal(kPcmWithPcr, stream.pid());
          break;
        case stream_kind::table:
          if (carries) mux_.reports.fatal(kTableWithPcr, stream.pid());
          break;
        case stream_kind::video:
        case stream_kind::audio:
        case stream_kind::private_stream:
        case stream_kind::lpcm:
          needsClock = true;
          break;
        default:
          break;
      }
    }
    if (needsClock && program.pcrPid == -1) {
      mux_.reports.fatal(kPcrPidMissing, no_pid, int64_t{program.programNumber});
    }
  }

  void begin(const started_later& each) {
    tsm_stream& stream = *each.stream;
    if (each.start != nullptr) each.start(stream, mux_);
    // What has no rate can't be offered slots: it failed, and said so.
    if (!(stream.rate > 0)) stream.set(kSourceEnded | kNoMorePackets);
    double rate = stream.rate;
    if (stream.has(kCarriesPcr)) {
      rate += pcr_surcharge(static_cast<int>(stream.pcrPeriod));
      if (mux_.config->vbr) rate *= kPcrInEveryPacket;
    }
    stream.set_rate(std::max(rate, kLeastStreamRate));
    if (stream.has(kCarriesPcr) && stream.has2(kHold)) {
      mux_.reports.warn(kDelayedWithPcr, stream.pid(), int64_t{stream.program});
    }
  }

  bool names_stream(const tsm_program& program, uint32_t index) const {
    if (program.pcrPid == program.pmtPid && mux_.config->createPsi) return true;
    return std::ranges::any_of(mux_.streams, [&](const auto& stream) {
      return stream->programIndex == index && stream->pid() == program.pcrPid;
    });
  }

  void add_pcr_only_streams() {
    uint32_t index = 0;
    for (const tsm_program* program = mux_.config->programs; program != nullptr;
         program = program->next, ++index) {
      const bool hasClock = program->pcrPid >= 0 && program->pcrPid < kNoPcr;
      if (hasClock && !names_stream(*program, index)) {
        mux_.streams.push_back(make_pcr_only_stream(*program, index, mux_));
      }
    }
  }

  void set_up_times(tsm_stream& stream) {
    stream.nextTime = first_sending(mux_);
    // A PCR can't wait as long as its period.
    const bool isClock = stream.kind == stream_kind::pcr_only;
    stream.dueTime = isClock ? stream.nextTime : zel::mux::add(stream.nextTime, stream.interval);
  }

  tsm_mux& mux_;
  std::vector<started_later> starts_;
  uint32_t programIndex_ = 0;
  smoothing_buffer* programSB_ = nullptr;
};

}  // namespace

void add_streams(tsm_mux& mux) {
  stream_builder(mux).build();
}

}  // namespace zel::mux
