// Damaged streams of every kind: a run ends with a result or with a message that says why not, and
// what came until then is whole packets with counters that don't jump.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "tests/support/elementary_media.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/multiplexed.h"
#include "tests/support/random_streams.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"

namespace zel::test {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kSeconds = 2;

ElementaryMediaShelf& shelf() {
  static ElementaryMediaShelf media(kSeconds);
  return media;
}

Bytes part(const Bytes& stream, size_t from, size_t to) {
  const auto at = [&](size_t place) {
    return stream.begin() + static_cast<std::ptrdiff_t>(std::min(place, stream.size()));
  };
  return from >= to ? Bytes() : Bytes(at(from), at(to));
}

Bytes shuffled(const Bytes& stream, std::mt19937_64& random) {
  constexpr size_t kBlock = 500;
  std::vector<size_t> blocks;
  for (size_t at = 0; at < stream.size(); at += kBlock) blocks.push_back(at);
  std::shuffle(blocks.begin(), blocks.end(), random);
  Bytes out;
  for (const size_t at : blocks) {
    const Bytes block = part(stream, at, at + kBlock);
    out.insert(out.end(), block.begin(), block.end());
  }
  return out;
}

struct Damage {
  const char* name;
  Bytes (*make)(const Bytes& stream, std::mt19937_64& random);
};
constexpr Damage kDamages[] = {
    {"empty", [](const Bytes&, std::mt19937_64&) { return Bytes(); }},
    {"one byte", [](const Bytes& stream, std::mt19937_64&) { return part(stream, 0, 1); }},
    {"cut in its first header",
     [](const Bytes& stream, std::mt19937_64&) { return part(stream, 0, 9); }},
    {"cut early",
     [](const Bytes& stream, std::mt19937_64&) { return part(stream, 0, stream.size() / 7); }},
    {"cut late",
     [](const Bytes& stream, std::mt19937_64&) { return part(stream, 0, stream.size() - 3); }},
    {"without its begin",
     [](const Bytes& stream, std::mt19937_64&) { return part(stream, 100, stream.size()); }},
    {"shuffled", shuffled},
    {"with wrong bytes",
     [](const Bytes& stream, std::mt19937_64& random) {
       Bytes out = stream;
       for (int i = 0; i < 60; ++i) out[random() % out.size()] = static_cast<uint8_t>(random());
       return out;
     }},
    {"with wrong bytes in its first kilobyte",
     [](const Bytes& stream, std::mt19937_64& random) {
       Bytes out = stream;
       const size_t most = std::min<size_t>(out.size(), 1024);
       for (int i = 0; i < 20; ++i) out[random() % most] = static_cast<uint8_t>(random());
       return out;
     }},
    {"with a hole",
     [](const Bytes& stream, std::mt19937_64&) {
       Bytes out = part(stream, 0, stream.size() / 3);
       const Bytes rest = part(stream, stream.size() / 2, stream.size());
       out.insert(out.end(), rest.begin(), rest.end());
       return out;
     }},
    {"twice",
     [](const Bytes& stream, std::mt19937_64&) {
       Bytes out = stream;
       out.insert(out.end(), stream.begin() + 37, stream.end());
       return out;
     }},
    {"noise",
     [](const Bytes&, std::mt19937_64& random) {
       Bytes out(30'000);
       for (uint8_t& byte : out) byte = static_cast<uint8_t>(random());
       return out;
     }},
    {"zeros", [](const Bytes&, std::mt19937_64&) { return Bytes(30'000); }},
    {"ones", [](const Bytes&, std::mt19937_64&) { return Bytes(30'000, 0xFF); }},
};

void checkPackets(std::span<const uint8_t> bytes) {
  ASSERT_EQ(bytes.size() % 188, 0u);
  std::array<int, 8192> counters;
  counters.fill(-1);
  for (size_t at = 0; at < bytes.size(); at += 188) {
    const uint8_t* const packet = bytes.data() + at;
    ASSERT_EQ(packet[0], 0x47) << "packet " << at / 188;
    const int pid = (packet[1] & 0x1F) << 8 | packet[2];
    if (pid == 0x1FFF) continue;
    const int counter = packet[3] & 15;
    int& last = counters[static_cast<size_t>(pid)];
    const bool carries = (packet[3] & 0x10) != 0;
    if (last >= 0) {
      ASSERT_EQ(counter, carries ? (last + 1) % 16 : last) << "packet " << at / 188;
    }
    last = counter;
  }
}

// With sound that is whole beside it, which has to come through whatever happens to the other.
void checkRun(const std::string& section, const std::string& path, const std::string& keys,
              const std::string& sound) {
  const std::string key = section == "SMPTE302M" ? "Stream1" : "File";
  std::string text = "Transport*\nRate = 6000000\nProgram1*\n" + section + "1$\nPID = 0x101\n" +
                     key + " = " + path + "\n" + keys;
  if (!sound.empty()) text += "Audio2$\nPID = 0x102\nFile = " + sound + "\n";
  const Multiplexed run = multiplexText(text);
  checkPackets(run.bytes);
  EXPECT_TRUE(run.result.done || !run.result.messages.failure().empty()) << run.said();
}

void checkDamages(const std::string& section, const Bytes& stream, const std::string& keys) {
  const ScratchFolder folder;
  const std::string sound = folder.file("sound");
  writeFile(sound, audioFrames(AudioFrames::kLayer2, kSeconds));
  std::mt19937_64 random(testSeed());
  for (const Damage& damage : kDamages) {
    SCOPED_TRACE(damage.name);
    writeFile(folder.file("bad"), damage.make(stream, random));
    checkRun(section, folder.file("bad"), keys, sound);
    if (section == "Video") checkRun(section, folder.file("bad"), keys, "");
  }
}

class DamagedStreams : public testing::TestWithParam<ElementaryMedia> {
 protected:
  void SetUp() override {
    path_ = shelf().file(GetParam());
    if (path_.empty()) GTEST_SKIP() << GetParam().program << " is not installed";
  }
  std::string path_;
};

TEST_P(DamagedStreams, EndWithWholePackets) {
  checkDamages(GetParam().section, fileBytes(path_), GetParam().keys);
}

TEST_P(DamagedStreams, AsEveryOtherKind) {
  for (const char* const section : {"Video", "Audio", "SMPTE302M", "LPCM", "Data", "TableData",
                                    "PrivateStream1Data", "Scte35Data"}) {
    SCOPED_TRACE(section);
    checkRun(section, path_, "Rate = 1000000\n", "");
  }
}

TEST_P(DamagedStreams, TakenOutOfADamagedTransportStream) {
  const bool isVideo = std::string(GetParam().section) == "Video";
  const Multiplexed whole =
      multiplexText("Transport*\nRate = 6000000\nProgram1*\n" + std::string(GetParam().section) +
                    "1$\nPID = 0x101\nFile = " + path_ + "\n" + GetParam().keys);
  ASSERT_TRUE(whole.result.done) << whole.said();
  checkDamages(GetParam().section, whole.bytes,
               "SourceTSPID = 0x101\n" + std::string(GetParam().keys));
  // As it is, without a PID.
  const ScratchFolder folder;
  writeFile(folder.file("all.ts"), whole.bytes);
  checkRun(isVideo ? "Video" : "Audio", folder.file("all.ts"), GetParam().keys, "");
}

INSTANTIATE_TEST_SUITE_P(Media, DamagedStreams, testing::ValuesIn(allElementaryMedia()),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(DamagedSamples, EndWithWholePackets) {
  Bytes samples(48'000 * 4);
  std::mt19937_64 random(testSeed());
  for (uint8_t& byte : samples) byte = static_cast<uint8_t>(random());
  const Bytes wave = plainWave(2, 2, samples);
  checkDamages("SMPTE302M", wave, "");
  checkDamages("LPCM", wave, "");
}

TEST(DamagedPackets, EndWithWholePackets) {
  // Packets that come ready made keep counters of their own: FixCC, which is on, counts them anew.
  checkDamages("Data", rawPackets(0x101, 400), "Rate = 300000\nRepeat = no\n");
}

}  // namespace
}  // namespace zel::test
