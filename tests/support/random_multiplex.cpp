#include "tests/support/random_multiplex.h"
#include "tests/support/file_bytes.h"

#include <algorithm>
#include <array>

#include "tests/support/engine_run.h"
#include "tests/support/pcm_payload.h"
#include "tests/support/random_streams.h"
#include "tests/support/transport_judge/pes_stream.h"
#include "tests/support/transport_judge/transport_stream.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"

namespace zel::test {

// A key with a number between two limits, or with "yes" where there are none.
struct MultiplexOption {
  const char* key;
  int percent;
  int low = 0;
  int high = -1;
};

namespace {

constexpr double kSeconds = 2;
constexpr int kVideoPid = 0x101;  // and on, 64 a programme
constexpr int kPidsOfProgram = 64;
constexpr int kHdmvPid = 0x1100;
constexpr int kPcrOnlyPid = 0x1400;

constexpr const char* kPaddedSmall = "Small AU's found";
constexpr const char* kReorderDepth = "reorder depth changed";
constexpr const char* kDelayedClock = "Delayed Stream with PCRs";
constexpr const char* kNoReference = "SMPTE302M has no reference video stream";

// Of every elementary stream.
constexpr MultiplexOption kStreamOptions[] = {
    {"TransportPriority", 10}, {"RAI", 20},    {"PEScopyrt", 10}, {"PESpri", 10},
    {"PESorig", 10},           {"InitDI", 10}, {"Priority", 5},   {"PMTorder", 20, 1, 9},
};

template <class Take>
void eachPayload(std::span<const uint8_t> bytes, int pid, const JudgeOptions& options, Take take) {
  Findings findings;
  const TransportStream stream =
      readTransportStream(bytes, options.packetBytes, options.stampBefore, findings);
  for (const TsPacket& packet : stream.packets)
    if (packet.pid == pid && packet.hasPayload) take(packet);
}

PesStream pesStream(std::span<const uint8_t> bytes, int pid, const JudgeOptions& options) {
  Findings findings;
  const TransportStream stream =
      readTransportStream(bytes, options.packetBytes, options.stampBefore, findings);
  return readPesStream(stream.packets, pid, findings);
}

// Without the zero bytes in front of start codes and at the end, which decoders pass over.
std::vector<uint8_t> withoutZeros(std::span<const uint8_t> bytes) {
  std::vector<uint8_t> out;
  size_t zeros = 0;
  for (const uint8_t byte : bytes) {
    if (byte == 0) {
      ++zeros;
      continue;
    }
    if (byte == 1 && zeros >= 2) zeros = 2;
    out.insert(out.end(), zeros, 0);
    zeros = 0;
    out.push_back(byte);
  }
  return out;
}

bool samplesCameBack(const SentStream& sent, std::span<const uint8_t> bytes,
                     const JudgeOptions& options) {
  const PesStream pes = pesStream(bytes, sent.pid, options);
  std::vector<uint32_t> samples;
  for (size_t i = 0; i < pes.packets.size(); ++i) {
    const auto begin = static_cast<size_t>(pes.packets[i].begin);
    const size_t end = i + 1 < pes.packets.size() ? static_cast<size_t>(pes.packets[i + 1].begin)
                                                  : pes.data.size();
    const std::span<const uint8_t> payload(pes.data.data() + begin, end - begin);
    const std::vector<uint32_t> some = sent.form == SentStream::Form::kSmpte302m
                                           ? smpte302mSamples(payload)
                                           : hdmvStereoSamples(payload);
    samples.insert(samples.end(), some.begin(), some.end());
  }
  // The last unit is filled up with silence.
  if (samples.size() < sent.samples.size()) return false;
  const auto rest = samples.begin() + static_cast<std::ptrdiff_t>(sent.samples.size());
  return std::equal(sent.samples.begin(), sent.samples.end(), samples.begin()) &&
         std::all_of(rest, samples.end(), [](uint32_t sample) { return sample == 0; });
}

bool packetsCameBack(const SentStream& sent, std::span<const uint8_t> bytes,
                     const JudgeOptions& options) {
  const std::vector<uint8_t> source = fileBytes(sent.file);
  std::vector<uint8_t> payloads;
  eachPayload(bytes, sent.pid, options, [&](const TsPacket& packet) {
    payloads.insert(payloads.end(), packet.payload.begin(), packet.payload.end());
  });
  std::vector<uint8_t> expected;
  for (size_t at = 0; at < source.size(); at += 188)
    expected.insert(expected.end(), source.begin() + static_cast<std::ptrdiff_t>(at + 4),
                    source.begin() + static_cast<std::ptrdiff_t>(at + 188));
  return payloads == expected;
}

bool tableCameBack(const SentStream& sent, std::span<const uint8_t> bytes,
                   const JudgeOptions& options) {
  int seen = 0;
  bool same = true;
  eachPayload(bytes, sent.pid, options, [&](const TsPacket& packet) {
    ++seen;
    same = same && packet.unitStart && packet.payload[0] == 0 &&
           std::equal(sent.section.begin(), sent.section.end(), packet.payload.begin() + 1);
  });
  return same && seen > 0;
}

bool cameBack(const SentStream& sent, std::span<const uint8_t> bytes, const JudgeOptions& options) {
  if (sent.form == SentStream::Form::kPackets) return packetsCameBack(sent, bytes, options);
  if (sent.form == SentStream::Form::kTable) return tableCameBack(sent, bytes, options);
  if (!sent.samples.empty()) return samplesCameBack(sent, bytes, options);
  std::vector<uint8_t> expected = fileBytes(sent.file);
  std::vector<uint8_t> found = pesStream(bytes, sent.pid, options).data;
  if (sent.endCodeAdded) {
    constexpr std::array<uint8_t, 4> kEndCode = {0, 0, 1, 0xB7};
    if (expected.size() < 4 || !std::equal(kEndCode.begin(), kEndCode.end(), expected.end() - 4))
      expected.insert(expected.end(), kEndCode.begin(), kEndCode.end());
  }
  if (sent.form == SentStream::Form::kZerosBetween)
    return withoutZeros(found) == withoutZeros(expected);
  return found == expected;
}

}  // namespace

RandomMultiplex::RandomMultiplex(uint64_t seed, const ScratchFolder& folder,
                                 ElementaryMediaShelf* shelf)
    : random_(seed), folder_(folder), shelf_(shelf) {
  judge_.constantRate = !chance(20);
  programs_ = variableRate() ? 1 : pick(1, 8);
  // At a variable rate PCRs are forced, one in ten slots at the most, of which no stream's rate
  // knows beforehand; those on a PID of their own are packets.
  roomFactor_ = std::uniform_real_distribution<double>(variableRate() ? 1.2 : 1.0, 2.5)(random_);
  addTransportOptions();
  for (int number = 1; number <= programs_; ++number) addProgram(number);
}

void RandomMultiplex::draw(std::span<const MultiplexOption> options, std::string& to) {
  for (const MultiplexOption& option : options) {
    if (!chance(option.percent)) continue;
    to += std::string(option.key) + " = ";
    to += option.high < option.low ? "yes" : std::to_string(pick(option.low, option.high));
    to += "\n";
  }
}

std::string RandomMultiplex::store(const std::vector<uint8_t>& bytes) {
  const std::string path = folder_.file("stream" + std::to_string(files_++));
  writeFile(path, bytes);
  return path;
}

void RandomMultiplex::drawStreamOptions() {
  draw(kStreamOptions, text_);
  // At a variable rate what comes before a delayed clock's first PCR comes at no time.
  if (!variableRate() && chance(15))
    text_ += "StreamDelay = " + std::to_string(pick(0, 45'000)) + "\n";
}

void RandomMultiplex::addTransportOptions() {
  static constexpr MultiplexOption kOptions[] = {
      {"PSIPATrep", 30, 3, 20},
      {"PSIPMTrep", 30, 3, 20},
      {"PATtsid", 20, 0, 65535},
      {"PATvsn", 20, 0, 31},
      {"PktCountMultiple", 20, 2, 9},
      {"TransportPriority", 10},
      {"InitDI", 10},
      {"Priority", 5},
      {"NoWater", 20},
      // The tables wait for the Leader's end and up to a period more: together less than they may
      // be away.
      {"Leader", 15, 0, 14000},
      {"OutPkts", 20, 0, 700},
      {"PCRI", 20, 0, 2000000000},
      {"DisablePCRDI", 10},
  };
  draw(kOptions, transport_);
  if (variableRate()) transport_ += "VBR = yes\n";
  expected_.insert(kDelayedClock);  // by Leader or StreamDelay
  if (chance(20)) {
    transport_ += "NoEmptyAF = yes\n";
    zerosMayComeBetween_ = true;
  }
  // Just before the clock's wrap.
  if (transport_.find("PCRI") == std::string::npos && chance(10))
    transport_ += "PCRI = 2576953377600\n";
  if (chance(20)) {
    const int stamp = pick(1, 8);
    judge_.packetBytes += stamp;
    transport_ += "PktTS = yes\nPktTSBytes = " + std::to_string(stamp) +
                  "\nPktSize = " + std::to_string(188 + stamp) + "\n";
    // Not PktTSDropNULL: with the null packets the even rate goes, which a judge tells time by.
    if (chance(50)) {
      judge_.stampBefore = stamp;
      transport_ += "PktTSPre = yes\n";
    }
  } else if (chance(10)) {
    judge_.packetBytes = 190;
    transport_ += "EventNotify = yes\nPktSize = 190\n";
  }
  // Three null packets in forty slots: there has to be as much room.
  if (!variableRate() && roomFactor_ > 1.3 && chance(20))
    transport_ += "BurstNulls = yes\nBurstNullsCount = 3\nBurstNullsSpacing = 40\n";
}

void RandomMultiplex::addProgram(int number) {
  static constexpr MultiplexOption kOptions[] = {
      {"PMTvsn", 20, 0, 31},
      {"InitDI", 10},
      {"TransportPriority", 10},
      {"Priority", 5},
  };
  text_ += "\nProgram" + std::to_string(number) + "*\n";
  // A PCR waits for a packet of its stream: of one at 100 kbit/s, 15 ms beyond PCRper.
  text_ += "PCRper = " + std::to_string(pick(20, 80)) + "\n";
  draw(kOptions, text_);
  if (chance(15)) text_ += "Descriptor1 = 0E 03 C0 12 34\n";
  if (chance(15)) text_ += "PCRPID = " + std::to_string(kPcrOnlyPid + number) + "\n";

  const int first = kVideoPid + (number - 1) * kPidsOfProgram;
  const int videos = chance(80) ? (chance(10) ? 2 : 1) : 0;
  // A stream's rate knows the PCRs of PCRper. Sound, with a PES packet every few hundred bytes and
  // a small buffer, would miss what PCRPES takes.
  if (videos > 0 && chance(15)) text_ += "PCRPES = yes\n";
  for (int i = 0; i < videos; ++i) addVideo(number, i);
  const int sounds = pick(videos > 0 ? 0 : 1, 3);
  for (int i = 0; i < sounds; ++i) addAudio(number, i);
  if (chance(25)) addPcm(number, videos > 0);
  if (chance(20)) addData(text_, 1, first + 32, true);
  if (chance(20)) addTable(1, first + 33);
}

SentStream& RandomMultiplex::begin(const std::string& section, int pid) {
  text_ += "\n" + section + "$\nPID = " + std::to_string(pid) + "\n";
  SentStream stream;
  stream.pid = pid;
  return streams_.emplace_back(stream);
}

// One of the shelf's streams; null: one of the generators' is to be made.
const ElementaryMedia* RandomMultiplex::useMedia(const std::string& section, SentStream& stream) {
  if (shelf_ == nullptr || chance(15)) return nullptr;
  std::vector<const ElementaryMedia*> some;
  for (const ElementaryMedia& each : allElementaryMedia())
    if (each.section == section) some.push_back(&each);
  const ElementaryMedia& media =
      *some[static_cast<size_t>(pick(0, static_cast<int>(some.size()) - 1))];
  stream.file = shelf_->file(media);
  text_ += media.keys;
  if (media.warning[0] != '\0') expected_.insert(media.warning);
  return &media;
}

void RandomMultiplex::addVideo(int number, int index) {
  static constexpr MultiplexOption kOptions[] = {
      {"AUinfo", 20},     {"PTSnPES", 20, 1, 3}, {"PESnau", 15, 1, 4},
      {"PadSmallAU", 15}, {"PCRGOP", 10},        {"InsertAvcAud", 10},
  };
  SentStream& stream =
      begin("Video" + std::to_string(index + 1), kVideoPid + (number - 1) * kPidsOfProgram + index);
  const ElementaryMedia* const media = useMedia("Video", stream);
  // InsertSEC is for those without NAL units.
  const bool isNalCoded = media != nullptr && std::string(media->program) != "ffmpeg";
  if (media == nullptr)
    stream.file = store(randomMpeg2Video(random_, pick(3, 20) * 200'000, kSeconds));
  text_ += "File = " + stream.file + "\n";
  drawStreamOptions();
  draw(kOptions, text_);
  // Where the level's rate stands in for one that isn't told, more would overflow MB.
  const bool tellsRate = media == nullptr || media->warning[0] == '\0';
  // PES packets of a told length and aligned ones exclude each other. The former end with stuffing
  // that the stream's rate doesn't know of.
  if (tellsRate && chance(15))
    text_ += "MaxPESlen = " + std::to_string(pick(4'000, 70'000)) + "\nRateAdjustment = 300000\n";
  else if (chance(25))
    text_ += "PESalign = yes\n";
  else if (tellsRate && chance(15))
    text_ += "RateAdjustment = " + std::to_string(pick(1, 200) * 1000) + "\n";
  if (zerosMayComeBetween_) stream.form = SentStream::Form::kZerosBetween;
  if (chance(15)) {
    text_ += "QuadByte = yes\n";
    stream.form = SentStream::Form::kZerosBetween;
  }
  if (chance(15)) {
    text_ += "LowLatency = yes\n";
    expected_.insert(kReorderDepth);
  }
  if (chance(15)) text_ += "TypeDelay = Max\n";
  if (index > 0 && chance(30)) text_ += "IndDelay = yes\n";
  if (chance(15)) {
    text_ += "InsertSEC = yes\n";
    stream.endCodeAdded = !isNalCoded;
  }
  expected_.insert(kPaddedSmall);
}

void RandomMultiplex::addAudio(int number, int index) {
  static constexpr MultiplexOption kOptions[] = {
      {"PESalign", 25},   {"PTSnPES", 20, 1, 3}, {"PESnau", 50, 1, 4},
      {"LowLatency", 10}, {"IndDelay", 15},
  };
  SentStream& stream = begin("Audio" + std::to_string(index + 1),
                             kVideoPid + (number - 1) * kPidsOfProgram + 8 + index);
  if (useMedia("Audio", stream) == nullptr) {
    const auto kind = static_cast<AudioFrames>(pick(0, kAudioFrameKinds - 1));
    stream.file = store(audioFrames(kind, kSeconds));
  }
  text_ += "File = " + stream.file + "\n";
  drawStreamOptions();
  draw(kOptions, text_);
}

void RandomMultiplex::addPcm(int number, bool hasVideo) {
  const int first = kVideoPid + (number - 1) * kPidsOfProgram;
  const bool smpte = chance(60);
  const int channels = smpte ? 2 * pick(1, 4) : 2;
  const int bits = smpte ? 16 + 4 * pick(0, 2) : 16 + 8 * pick(0, 1);
  SentStream& stream = smpte ? begin("SMPTE302M1", first + 16) : begin("LPCM1", kHdmvPid + number);
  stream.form = smpte ? SentStream::Form::kSmpte302m : SentStream::Form::kHdmvPcm;
  std::vector<uint8_t> wave;
  const int size = (bits + 7) / 8;
  for (int i = 0; i < channels * 48'000; ++i) {
    const uint32_t sample = static_cast<uint32_t>(random_()) >> (32 - bits) << (32 - bits);
    stream.samples.push_back(sample);
    for (int byte = 4 - size; byte < 4; ++byte)
      wave.push_back(static_cast<uint8_t>(sample >> (8 * byte)));
  }
  const std::string path = store(WaveBytes()
                                     .file("RIFF", 0)
                                     .extensible(channels, 48000, size, bits)
                                     .chunk("data", wave)
                                     .closed()
                                     .bytes());
  text_ += (smpte ? "Stream1 = " : "File = ") + path + "\n";
  drawStreamOptions();
  if (!smpte) return;
  if (hasVideo)
    text_ += "RefVideoPID = " + std::to_string(first) + "\n";
  else
    expected_.insert(kNoReference);
}

void RandomMultiplex::addData(std::string& to, int number, int pid, bool inTable) {
  const int rate = pick(50, 500) * 1000;
  const int packets = static_cast<int>(rate * kSeconds / 1504);
  SentStream stream;
  stream.pid = pid;
  stream.form = SentStream::Form::kPackets;
  stream.file = store(rawPackets(pid, packets));
  to += "\nData" + std::to_string(number) + "$\nPID = " + std::to_string(pid) +
        "\nFile = " + stream.file +
        "\nRepeat = no\nStreamType = 6\nRate = " + std::to_string(rate) + "\n";
  if (inTable) to += "CreatePMTEntry = yes\n";
  streams_.push_back(stream);
}

void RandomMultiplex::addTable(int number, int pid) {
  SentStream& stream = begin("TableData" + std::to_string(number), pid);
  stream.form = SentStream::Form::kTable;
  const int size = pick(4, 170);
  stream.section = {0xC0, 0x30, static_cast<uint8_t>(size)};
  for (int i = 0; i < size; ++i) stream.section.push_back(static_cast<uint8_t>(random_()));
  text_ +=
      "CreatePMTEntry = yes\nStreamType = 5\nTablesPerSecond = " + std::to_string(pick(2, 20)) +
      "\nTable1 =";
  for (const uint8_t byte : stream.section) {
    char digits[4];
    std::snprintf(digits, sizeof digits, " %02X", byte);
    text_ += digits;
  }
  text_ += "\n";
}

std::string RandomMultiplex::text(double rate) const {
  std::string text = "Transport*\n" + transport_;
  if (rate > 0) text += "Rate = " + std::to_string(static_cast<int64_t>(rate)) + "\n";
  return text + text_;
}

bool RandomMultiplex::expects(const std::string& message) const {
  return std::any_of(expected_.begin(), expected_.end(), [&](const std::string& each) {
    return message.find(each) != std::string::npos;
  });
}

std::string RandomMultiplex::missing(std::span<const uint8_t> bytes) const {
  std::string all;
  for (const SentStream& stream : streams_)
    if (!cameBack(stream, bytes, judge_))
      all += "PID " + std::to_string(stream.pid) + " isn't what went in\n";
  return all;
}

}  // namespace zel::test
