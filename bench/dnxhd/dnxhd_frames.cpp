// The codec between planes of samples and compressed frames, timed: bench/dnxhd/compare.py runs it
// beside FFmpeg, on the same frames.
//
//   dnxhd_frames encode ID PLANES.raw FRAMES.dnxhd THREADS PASSES
//   dnxhd_frames decode ID FRAMES.dnxhd PLANES.raw THREADS PASSES RECONSTRUCTION
//
// Samples are planar, low byte first in 16 bits above 8. Files are read and brought into the order
// of macroblocks before the clock starts, and written after it stops. RECONSTRUCTION is own or
// three-quarters. One line of JSON tells frames, wall and processor seconds.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/file_bytes.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/encoder/encoder_core.h"

namespace {

using namespace zel::dnxhd;
using zel::test::AlignedBytes;
using zel::test::DnxhdPlanes;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "dnxhd_frames: %s\n", what.c_str());
  std::exit(1);
}

// Macroblock rows of a frame, ready to be fetched.
struct BlockFrame {
  const PictureGeometry geometry;
  size_t rowSize;  // in samples
  std::vector<int16_t> blocks;

  BlockFrame(const VCIDEntry& entry, const DnxhdPlanes& planes)
      : geometry(GeometryOf(entry)),
        rowSize(geometry.mbCols * BlocksOf(CodingModeOf(entry)) * kBlockCoefficients),
        blocks(rowSize * geometry.mbRows * geometry.pictures) {
    for (size_t picture = 0; picture < geometry.pictures; ++picture) {
      for (size_t row = 0; row < geometry.mbRows; ++row) {
        planes.macroblockRow(picture, row, blocks.data() + rowAt(picture, row));
      }
    }
  }
  size_t rowAt(size_t picture, size_t row) const {
    return (picture * geometry.mbRows + row) * rowSize;
  }
};

class BlockSource : public RowSource {
 public:
  ResultWord FetchRow(const void* frame, size_t picture, size_t row,
                      int16_t* blocks) const override {
    const auto& source = *static_cast<const BlockFrame*>(frame);
    std::memcpy(blocks, source.blocks.data() + source.rowAt(picture, row),
                source.rowSize * sizeof(int16_t));
    return kSuccessful;
  }
};

class Stopwatch {
 public:
  std::string json(size_t frames) const {
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - wall_;
    const double cpu = static_cast<double>(std::clock() - cpu_) / CLOCKS_PER_SEC;
    char text[160];
    std::snprintf(text, sizeof text, "{\"frames\": %zu, \"wall\": %.4f, \"cpu\": %.4f}\n", frames,
                  wall.count(), cpu);
    return text;
  }

 private:
  std::chrono::steady_clock::time_point wall_ = std::chrono::steady_clock::now();
  std::clock_t cpu_ = std::clock();
};

std::vector<uint8_t> contentsOf(const char* name) {
  std::vector<uint8_t> bytes = zel::test::fileBytes(name);
  if (bytes.empty()) fail(std::string(name) + ": nothing to read");
  return bytes;
}

void write(const char* name, std::span<const uint8_t> bytes) {
  if (!zel::test::writeFile(name, bytes)) fail(std::string(name) + ": not written");
}

void encode(const VCIDEntry& entry, char** arguments) {
  const std::vector<uint8_t> raw = contentsOf(arguments[0]);
  DnxhdPlanes planes(entry);
  std::vector<BlockFrame> sources;
  for (size_t at = 0; at + planes.rawSize() <= raw.size(); at += planes.rawSize()) {
    planes.readRaw(raw.data() + at);
    sources.emplace_back(entry, planes);
  }
  EncoderCore core;
  if (core.RebuildJobs(std::atoi(arguments[2])) != kSuccessful ||
      core.Configure(entry, std::make_unique<BlockSource>()) != kSuccessful) {
    fail("no configuration");
  }
  const AlignedBytes frames(sources.size() * entry.frameBytes);
  const int passes = std::atoi(arguments[3]);
  const auto encodeAll = [&] {
    for (size_t i = 0; i < sources.size(); ++i) {
      const ResultWord result = core.EncodeFrame(
          &sources[i], frames.bytes().subspan(i * entry.frameBytes, entry.frameBytes));
      if (result != kSuccessful) fail(ResultTextOf(result));
    }
  };
  encodeAll();
  const Stopwatch stopwatch;
  for (int pass = 0; pass < passes; ++pass) encodeAll();
  std::fputs(stopwatch.json(sources.size() * static_cast<size_t>(passes)).c_str(), stdout);
  write(arguments[1], frames.bytes());
}

class NoTaker : public RowTaker {
 public:
  ResultWord TakeRow(const DecodedRow&) override { return kSuccessful; }
};

void decode(const VCIDEntry& entry, char** arguments) {
  const std::vector<uint8_t> all = contentsOf(arguments[0]);
  const AlignedBytes bytes(all.size());
  std::memcpy(bytes.bytes().data(), all.data(), all.size());
  const size_t count = all.size() / entry.frameBytes;
  const auto reconstruction = std::string(arguments[4]) == "own" ? Reconstruction::kHalfway
                                                                 : Reconstruction::kThreeQuarters;
  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner, reconstruction);
  const auto frame = [&](size_t i) {
    return bytes.bytes().subspan(i * entry.frameBytes, entry.frameBytes);
  };
  NoTaker noTaker;
  const int passes = std::atoi(arguments[3]);
  const Stopwatch stopwatch;
  for (int pass = 0; pass < passes; ++pass) {
    for (size_t i = 0; i < count; ++i) decoder.Decode(frame(i), Pictures::kAll, noTaker);
  }
  std::fputs(stopwatch.json(count * static_cast<size_t>(passes)).c_str(), stdout);
  std::string raw;
  for (size_t i = 0; i < count; ++i) {
    DnxhdPlanes planes(entry);
    const ResultWord result = decoder.Decode(frame(i), Pictures::kAll, planes);
    if (result != kSuccessful) fail(ResultTextOf(result));
    raw += planes.raw();
  }
  write(arguments[1], std::span(reinterpret_cast<const uint8_t*>(raw.data()), raw.size()));
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 7) fail("see the head of its source");
  const VCIDEntry* entry = FindEntry(static_cast<uint32_t>(std::atoi(arguments[2])));
  if (entry == nullptr) fail("no such id");
  const std::string verb = arguments[1];
  if (verb == "encode") {
    encode(*entry, arguments + 3);
  } else if (verb == "decode" && count >= 8) {
    decode(*entry, arguments + 3);
  } else {
    fail("see the head of its source");
  }
  return 0;
}
