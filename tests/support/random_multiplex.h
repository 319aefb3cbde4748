#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/support/elementary_media.h"
#include "tests/support/transport_judge/transport_judge.h"

namespace zel::test {

/// What goes into a multiplex, and in which form it has to come out of the finished stream.
struct SentStream {
  enum class Form {
    kWhole,         // the payloads of its PES packets, byte for byte
    kZerosBetween,  // the same, but for zero bytes in front of start codes
    kSmpte302m,     // the samples
    kHdmvPcm,
    kPackets,  // transport packets, but for their counters
    kTable,    // a section, again and again
  };
  int pid = 0;
  Form form = Form::kWhole;
  std::string file;               // kWhole, kZerosBetween, kPackets
  std::vector<uint8_t> section;   // kTable
  std::vector<uint32_t> samples;  // left-justified in 32 bits
  bool endCodeAdded = false;      // InsertSEC
};

struct MultiplexOption;

/// A multiplex drawn at random: programmes, streams of any kind, and the options of the transport
/// level, of programmes and of streams.
class RandomMultiplex {
 public:
  /// With a shelf, streams of independent encoders are among the streams; without one, all are made
  /// of headers and filling. Files go to `folder`; both must outlive the multiplex.
  RandomMultiplex(uint64_t seed, const ScratchFolder& folder, ElementaryMediaShelf* shelf);

  /// The configuration; without a rate (0) the engine takes what the streams need.
  std::string text(double rate) const;
  /// How much more than that it's to be given.
  double roomFactor() const { return roomFactor_; }

  /// How a judge has to look at what comes out.
  const JudgeOptions& judgeOptions() const { return judge_; }
  bool variableRate() const { return !judge_.constantRate; }
  const std::vector<SentStream>& streams() const { return streams_; }
  /// Whether a message of the run is one that this configuration has to bring.
  bool expects(const std::string& message) const;
  /// For failures: which streams didn't come back as they are to. Empty: all did.
  std::string missing(std::span<const uint8_t> bytes) const;

 private:
  int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  bool chance(int percent) { return pick(1, 100) <= percent; }
  void draw(std::span<const MultiplexOption> options, std::string& to);
  std::string store(const std::vector<uint8_t>& bytes);

  void drawStreamOptions();
  void addTransportOptions();
  void addProgram(int number);
  void addVideo(int number, int index);
  void addAudio(int number, int index);
  void addPcm(int number, bool hasVideo);
  void addData(std::string& to, int number, int pid, bool inTable);
  void addTable(int number, int pid);
  SentStream& begin(const std::string& section, int pid);
  const ElementaryMedia* useMedia(const std::string& section, SentStream& stream);

  std::mt19937_64 random_;
  const ScratchFolder& folder_;
  ElementaryMediaShelf* shelf_;
  JudgeOptions judge_;
  double roomFactor_ = 1;
  bool zerosMayComeBetween_ = false;
  int programs_ = 1;
  int files_ = 0;
  std::string transport_;
  std::string text_;
  std::vector<SentStream> streams_;
  std::set<std::string> expected_;
};

}  // namespace zel::test
