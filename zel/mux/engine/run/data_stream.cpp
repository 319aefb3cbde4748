#include "zel/mux/engine/run/data_stream.h"

#include <array>
#include <cstdio>
#include <string>

#include "zel/mux/engine/input/elementary_input.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tarn_array_text;
using Morvalen::Zel::tsm_data;

constexpr int kNoRate = 4;
constexpr int kReadError = 9;
constexpr int kNoSync = 10;
constexpr int kNoInput = 29;
constexpr int kOpenError = 31;
constexpr int kRepeatedMissing = 50;
constexpr int kIllegalPid = 19;
constexpr int kEmptyInput = 89;
constexpr int32_t kBufferBytes = 188 * 348;
constexpr int kPidCount = 8192;

struct file_closer {
  void operator()(FILE* file) const { std::fclose(file); }
};
using file_pointer = std::unique_ptr<FILE, file_closer>;

/// The record's files one behind the other; with Repeat, round and round.
class data_files : public stream_source {
 public:
  data_files(const tsm_data& record, tsm_mux& mux) : record_(record), mux_(mux) {}

  bool open_next() {
    if (next_ >= record_.files.count) {
      if (!record_.repeat || bytesThisRound_ == 0) return false;
      next_ = 0;
      bytesThisRound_ = 0;
      again_ = true;
    }
    const std::string name(tarn_array_text(&record_.files, next_++));
    file_.reset(std::fopen(name.c_str(), "rb"));
    if (file_ == nullptr && again_) {
      mux_.reports.fatal(kRepeatedMissing, record_.pid);
    } else if (file_ == nullptr) {
      mux_.reports.fatal(kOpenError, record_.pid, std::string_view(name));
    }
    return true;
  }

  int32_t read(uint8_t* to, int32_t room) override {
    while (true) {
      if (file_ != nullptr) {
        const size_t got = std::fread(to, 1, static_cast<size_t>(room), file_.get());
        bytesThisRound_ += got;
        if (got > 0) return static_cast<int32_t>(got);
        const bool failed = std::ferror(file_.get()) != 0;
        file_.reset();
        if (failed) mux_.reports.fatal(kReadError, record_.pid);
      }
      if (!open_next()) return 0;
    }
  }

 private:
  const tsm_data& record_;  // the configuration outlives the run
  tsm_mux& mux_;
  file_pointer file_;
  int32_t next_ = 0;
  bool again_ = false;         // it was there the last time round
  size_t bytesThisRound_ = 0;  // files that are all empty aren't gone round for ever
};

struct data_state : stream_state {
  elementary_input input;
  bool fixContinuity = false;
  bool changePid = false;
  std::array<uint8_t, kPidCount> continuity{};
  std::array<bool, kPidCount> seen{};

  /// Whether another whole packet is there.
  bool more() {
    while (input.filled() < static_cast<int32_t>(kPacketBytes)) {
      if (input.ended() || !input.load()) return false;
    }
    return true;
  }
};

// The first packet of a PID keeps its counter; the counter moves with payload only.
void fix_continuity(data_state& state, tsm_packet& packet) {
  const auto pid = static_cast<size_t>(packet.pid());
  if (pid == kNullPid) return;
  uint8_t& last = state.continuity[pid];
  const bool hasPayload = (packet.bytes[3] & 0x10) != 0;
  if (!state.seen[pid]) {
    state.seen[pid] = true;
    last = packet.bytes[3] & 15;
    return;
  }
  if (hasPayload) last = (last + 1) & 15;
  packet.bytes[3] = static_cast<uint8_t>((packet.bytes[3] & 0xF0) | last);
}

void make_data_packet(tsm_stream& stream, const tsm_time&, tsm_packet& packet, tsm_mux& mux) {
  auto& state = static_cast<data_state&>(*stream.state);
  stream.clear(kPacketHasPcr);
  stream.step_times();
  state.input.take(packet.bytes, kPacketBytes);
  if (packet.bytes[0] != 0x47) {
    // Where the run goes on in spite of it, the stream is over: what follows has no packet grid.
    packet.make_null();
    stream.set(kSourceEnded | kNoMorePackets);
    mux.reports.fatal(kNoSync, stream.pid());
    return;
  }
  if (state.changePid) {
    packet.bytes[1] = static_cast<uint8_t>((packet.bytes[1] & 0xE0) | stream.pid() >> 8);
    packet.bytes[2] = static_cast<uint8_t>(stream.pid());
  }
  if (state.fixContinuity) fix_continuity(state, packet);
  if (!state.more()) stream.set(kSourceEnded | kNoMorePackets);
}

}  // namespace

std::unique_ptr<tsm_stream> make_data_stream(const tsm_data& record,
                                             Morvalen::Zel::tsm_load_callback load, tsm_mux& mux) {
  if (record.pid < 0 || record.pid >= kNullPid) {
    mux.reports.warn(kIllegalPid, no_pid, int64_t{record.pid});
  }
  if (!(record.rate > 0)) {
    mux.reports.fatal(kNoRate, record.pid);
    return nullptr;
  }
  auto stream = std::make_unique<tsm_stream>();
  auto owned = std::make_unique<data_state>();
  data_state& state = *owned;
  state.fixContinuity = record.fixCc;
  state.changePid = record.changePid;
  if (load != nullptr) {
    state.input.open(kBufferBytes, load, record.user);
  } else {
    if (record.files.count == 0) {
      mux.reports.fatal(kNoInput, record.pid, int64_t{record.pid});
      return nullptr;
    }
    auto files = std::make_unique<data_files>(record, mux);
    files->open_next();  // so that a file that isn't there is told before the run
    state.input.open(kBufferBytes, Morvalen::Zel::tsm_read_size(), std::move(files));
  }
  stream->state = std::move(owned);
  stream->kind = stream_kind::data;
  stream->makePacket = make_data_packet;
  stream->set_pid(record.pid);
  stream->set_rate(record.rate);
  if (record.priority) stream->set(kPriority);
  if (record.createPmtEntry) {
    stream->pmt.listed = true;
    stream->pmt.streamType = static_cast<uint8_t>(record.streamType);
    stream->pmt.order = record.pmtOrder;
    for (int32_t i = 0; i < record.descriptors.count; ++i) {
      const auto bytes = Morvalen::Zel::tarn_array_bytes(&record.descriptors, i);
      stream->pmt.descriptors.emplace_back(bytes.begin(), bytes.end());
    }
  }
  if (!state.more()) {
    mux.reports.warn(kEmptyInput, record.pid);
    stream->set(kSourceEnded | kNoMorePackets);
  }
  return stream;
}

}  // namespace zel::mux
