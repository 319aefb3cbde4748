// Any bytes as the streams of a multiplex. The first bytes choose the run's options, which kinds of
// streams there are and how they are sent; the rest is shared out among the inputs. Whatever comes,
// the run ends, its packets are whole, and the counters of a PID don't jump.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>

#include "tests/support/engine_run.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace {

using namespace Morvalen::Zel;
using zel::test::EngineRun;
using zel::test::MemoryInput;

constexpr int kMostProgressCalls = 12;
constexpr int kPacketsPerProgress = 500;

class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t next() { return place_ < size_ ? data_[place_++] : uint8_t{0}; }
  bool bit(uint8_t byte, int number) const { return (byte >> number & 1) != 0; }
  std::vector<uint8_t> take(size_t count) {
    count = std::min(count, size_ - place_);
    std::vector<uint8_t> part(data_ + place_, data_ + place_ + count);
    place_ += count;
    return part;
  }
  size_t left() const { return size_ - place_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t place_ = 0;
};

void setTransportOptions(tsm_config& config, Bytes& in) {
  const uint8_t a = in.next();
  const uint8_t b = in.next();
  config.vbr = in.bit(a, 0);
  config.stopOnError = in.bit(a, 1);
  config.eventNotify = in.bit(a, 2);
  config.pktSize = in.bit(a, 2) ? 190 : 188;
  config.noEmptyAf = in.bit(a, 3);
  config.priority = in.bit(a, 4);
  config.initDi = in.bit(a, 5);
  config.terminate = in.bit(a, 6);
  config.forceDuration = in.bit(a, 7);
  config.rate = in.bit(b, 0) ? 0 : 20'000.0 * (1 + in.next());
  if (in.bit(b, 1)) config.duration = {1, in.next() & 1, 0, 0, in.next() & 7, in.next(), 0};
  if (in.bit(b, 2)) config.pcri = 1e10 * in.next();
  if (in.bit(b, 3)) config.ptsi = 2'000.0 * in.next();
  if (in.bit(b, 4)) config.start = {1, 0, 0, 0, in.next() & 3, in.next() & 31, 0};
  if (in.bit(b, 5)) config.end = {1, 0, 0, 0, in.next() & 7, in.next() & 31, 0};
  config.stopOnAv = in.bit(b, 6) ? 1 : 0;
  config.burstNulls = in.bit(b, 7);
  config.burstNullsCount = 2;
  config.burstNullsSpacing = 9;
  config.outPkts = 0;
  config.progressPeriod = kPacketsPerProgress;
}

void setStreamOptions(tsm_stream_record& record, Bytes& in) {
  const uint8_t a = in.next();
  const uint8_t b = in.next();
  record.pesAlign = in.bit(a, 0);
  record.rai = in.bit(a, 1);
  record.priority = in.bit(a, 2);
  record.lowLatency = in.bit(a, 3);
  record.indDelay = in.bit(a, 4);
  record.avSync = in.bit(a, 5);
  record.pesNau = in.bit(a, 6) ? b & 15 : 1;
  record.ptsNpes = in.bit(a, 7) ? b >> 4 : 1;
  const uint8_t c = in.next();
  if (in.bit(c, 0)) record.rate = 1'000.0 * in.next();
  if (in.bit(c, 1)) record.dbSize = 16 * in.next();
  if (in.bit(c, 2)) record.streamDelay = 90 * in.next();
  if (in.bit(c, 3)) record.delay = 90 * in.next();
  if (in.bit(c, 4)) record.sbSize = record.sbRate = 4'000 * in.next();
}

void setVideoOptions(tsm_video& record, Bytes& in) {
  const uint8_t a = in.next();
  const uint8_t b = in.next();
  record.auInfo = in.bit(a, 0);
  record.padSmallAu = in.bit(a, 1);
  record.insertAvcAud = in.bit(a, 2);
  record.quadByte = in.bit(a, 3);
  record.insertSec = in.bit(a, 4);
  record.strictVbv = in.bit(a, 5);
  record.notLowDelay = in.bit(a, 6);
  record.ignorePoc = in.bit(a, 7);
  record.pcrGop = in.bit(b, 0);
  record.frameRate = in.bit(b, 1) ? in.next() & 7 : 0;
  record.maxPesLen = in.bit(b, 2) ? 16 * in.next() : 0;
  record.stillPicSpacing = in.bit(b, 3) ? in.next() : 0;
  record.splice = in.bit(b, 4) ? in.next() % 3 : 0;
  record.maxDecodeDelay = in.bit(b, 5) ? 100 * in.next() : 0;
  record.startSeqHdr = in.bit(b, 6);
}

// Transport packets of records that come ready made have what counters they like.
void check(const EngineRun& run, int packetSize, bool hasData) {
  if (run.bytes.size() % static_cast<size_t>(packetSize) != 0) std::abort();
  std::array<int, 8192> counters;
  counters.fill(-1);
  for (size_t at = 0; at < run.bytes.size(); at += static_cast<size_t>(packetSize)) {
    const uint8_t* packet = run.bytes.data() + at;
    if (packet[0] != 0x47) std::abort();
    const int pid = (packet[1] & 0x1F) << 8 | packet[2];
    if (pid == 0x1FFF || hasData) continue;
    const int counter = packet[3] & 15;
    const bool hasPayload = (packet[3] & 0x10) != 0;
    int& last = counters[static_cast<size_t>(pid)];
    if (last >= 0 && counter != (hasPayload ? (last + 1) % 16 : last)) std::abort();
    last = counter;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes in(data, size);
  EngineRun run;
  run.stopAtProgress = kMostProgressCalls;
  setTransportOptions(*run.config, in);
  tsm_program* program = run.addProgram();
  program->pcrPer = 1 + (in.next() & 127);
  program->pcrPes = (in.next() & 1) != 0;
  const uint8_t kinds = in.next();

  std::vector<tsm_stream_record*> records;
  if (in.bit(kinds, 0)) {
    tsm_video* record = tsm_add_video(program);
    setVideoOptions(*record, in);
    records.push_back(record);
  }
  if (in.bit(kinds, 1)) records.push_back(tsm_add_audio(program));
  if (in.bit(kinds, 2)) records.push_back(tsm_add_audio(program));
  if (in.bit(kinds, 3)) records.push_back(tsm_add_lpcm(program));
  tsm_smpte302m* pcm = in.bit(kinds, 4) ? tsm_add_smpte302m(program) : nullptr;
  if (pcm != nullptr) {
    pcm->nChannels = 2;
    pcm->streamCount = 1;
    records.push_back(pcm);
  }
  if (in.bit(kinds, 5)) records.push_back(tsm_add_data(program));
  if (in.bit(kinds, 6)) {
    tsm_table* record = tsm_add_table(program);
    const std::vector<uint8_t> table = in.take(in.next());
    if (!tarn_array_append_bytes(&record->tables, table)) return 0;
    setStreamOptions(*record, in);
  }
  if (in.bit(kinds, 7)) program->pcrPid = 0x1F0;

  for (tsm_stream_record* record : records) setStreamOptions(*record, in);
  std::deque<MemoryInput> inputs;
  const size_t share = records.empty() ? 0 : in.left() / records.size();
  for (tsm_stream_record* record : records) {
    inputs.push_back({in.take(share)});
    record->user = &inputs.back();
    if (record == pcm) pcm->pairUser[0] = &inputs.back();
  }
  run.multiplex();
  check(run, run.stats.packetSize, in.bit(kinds, 5));
  return 0;
}
