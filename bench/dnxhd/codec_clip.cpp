// The codec as callers have it, formatters and all, over frames in memory: beside_ffmpeg.py runs it
// beside FFmpeg on the same clip.
//
//   codec_clip encode ID CLIP.raw FRAMES.dnxhd THREADS PASSES
//   codec_clip decode ID FRAMES.dnxhd - THREADS PASSES
//
// Clips are planar 4:2:2 of the id's full raster; samples of 10 bits take 16, low byte first.
// Before the clock starts they are read and packed as the codec takes them: Cb Y Cr Y, of 8 bits,
// or in the top of 16-bit words. One line of JSON tells frames, wall and processor seconds.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/avid_hd_codec_sdk.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/front_end/uncomp_info.h"

namespace {

using namespace Morvalen::Zel;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "codec_clip: %s\n", what.c_str());
  std::exit(1);
}

void check(int result) {
  if (result < 0) fail(AvidHDCodecLibrary::GetResultText(result));
}

// Frames at multiples of 64 bytes.
class Frames {
 public:
  Frames(size_t frameBytes, size_t count)
      : stride_((frameBytes + 63) / 64 * 64),
        frameBytes_(frameBytes),
        count_(count),
        memory_(static_cast<uint8_t*>(std::aligned_alloc(64, stride_ * count)), &std::free) {
    if (memory_ == nullptr) fail("out of memory");
  }
  uint8_t* operator[](size_t i) { return memory_.get() + i * stride_; }
  size_t count() const { return count_; }

  static Frames read(const char* name, size_t frameBytes) {
    std::ifstream in(name, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    Frames frames(frameBytes, bytes.size() / frameBytes);
    if (frames.count() == 0) fail(std::string(name) + ": no frames");
    for (size_t i = 0; i < frames.count(); ++i)
      bytes.copy(at(frames[i]), frameBytes, i * frameBytes);
    return frames;
  }
  // From planes to Cb Y Cr Y, in place.
  template <typename Sample>
  void pack(int shift) {
    const size_t luma = frameBytes_ / sizeof(Sample) / 2;
    std::vector<Sample> planes(2 * luma);
    for (size_t i = 0; i < count_; ++i) {
      std::memcpy(planes.data(), (*this)[i], frameBytes_);
      std::vector<Sample> packed(2 * luma);
      for (size_t k = 0; k < 2 * luma; ++k) {
        const size_t pair = k / 4;
        const size_t from =
            k % 2 == 1 ? 2 * pair + k % 4 / 2 : luma + pair + k % 4 / 2 * (luma / 2);
        packed[k] = static_cast<Sample>(planes[from] << shift);
      }
      std::memcpy((*this)[i], packed.data(), frameBytes_);
    }
  }
  void write(const char* name) {
    std::ofstream out(name, std::ios::binary);
    for (size_t i = 0; i < count_; ++i) out.write(at((*this)[i]), std::streamsize(frameBytes_));
    if (!out) fail(std::string(name) + ": not written");
  }

 private:
  static char* at(uint8_t* bytes) { return reinterpret_cast<char*>(bytes); }

  size_t stride_;
  size_t frameBytes_;
  size_t count_;
  std::unique_ptr<uint8_t, void (*)(void*)> memory_;
};

template <typename Frame>
void timePasses(size_t frames, int passes, Frame frame) {
  for (size_t i = 0; i < frames; ++i) frame(i);
  const auto wall = std::chrono::steady_clock::now();
  const std::clock_t cpu = std::clock();
  for (int pass = 0; pass < passes; ++pass) {
    for (size_t i = 0; i < frames; ++i) frame(i);
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - wall;
  std::printf("{\"frames\": %zu, \"wall\": %.4f, \"cpu\": %.4f}\n",
              frames * static_cast<size_t>(passes), seconds.count(),
              static_cast<double>(std::clock() - cpu) / CLOCKS_PER_SEC);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 7) fail("see the head of its source");
  const bool encoding = std::string(arguments[1]) == "encode";
  const auto id = static_cast<uint32_t>(std::atoi(arguments[2]));
  const CompInfo* row = FindCompInfo(id);
  if (row == nullptr) fail("no such id");
  const int threads = std::atoi(arguments[5]);
  const int passes = std::atoi(arguments[6]);

  UnCompInfo record;
  record.sampleType = row->depthClass == 2 ? 4 : 1;
  if (row->fieldsPerFrame == 2) record.fieldLayout = 1;
  BufferRaster raster;
  check(GetBufferRaster(id, record, raster));

  check(AvidHDCodecLibrary::Initialize());
  AvidHDCodecSDKImpl sdk;
  sdk.SetCompressionId(static_cast<uint16_t>(id));
  check(sdk.SetInputOutputDataTypes(&record, encoding ? 1 : 2));
  check(encoding ? sdk.SetEncodeThreads(threads) : sdk.SetDecodeThreads(threads));
  Frames in = Frames::read(arguments[3], encoding ? raster.bufferBytes : row->frameBytes);
  if (encoding) record.sampleType == 1 ? in.pack<uint8_t>(0) : in.pack<uint16_t>(6);
  Frames out(encoding ? row->frameBytes : raster.bufferBytes, in.count());
  timePasses(in.count(), passes, [&](size_t i) {
    uint32_t bytes = 0;
    check(encoding ? sdk.EncodeFrame(in[i], out[i], 0, 0, &bytes)
                   : sdk.DecodeFrame(in[i], out[i], 0, 0));
  });
  if (encoding) out.write(arguments[4]);
  return 0;
}
