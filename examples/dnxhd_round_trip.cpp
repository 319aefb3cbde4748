// Encodes a picture as DNxHD and decodes it again; says how far apart the two are.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/avid_dnxhd_api.h"
#include "zel/runtime/video_format.h"

using namespace Morvalen::Zel;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr size_t kFrameBytes = size_t{kWidth} * kHeight * 2;  // Cb Y Cr Y

static bool tell(char const* what, int result) {
  if (result < 0)
    std::fprintf(stderr, "%s: %s (%d)\n", what, AvidHDCodecLibrary::GetResultText(result), result);
  return result >= 0;
}

int main() {
  CAvidDNxHDApi* codec = CAvidDNxHDApi::Create(/*threads=*/2);
  if (codec == nullptr) return 1;
  codec->SetCompressionId(1252);  // 720 lines, 8 bits, 145 Mbit/s at 60 frames a second

  std::vector<unsigned char> input(kFrameBytes);
  uint32_t grain = 1;
  for (size_t i = 0; i < input.size(); ++i) {
    size_t const x = i / 2 % kWidth, y = i / 2 / kWidth;
    grain = grain * 1664525 + 1013904223;
    input[i] =
        i % 2 == 0 ? 128 : static_cast<unsigned char>(16 + (x / 8 + y / 4) % 200 + (grain >> 28));
  }
  std::vector<unsigned char> frame(size_t(codec->GetCompressedBufferSize()));
  uint32_t bytes = 0;
  bool isDone =
      tell("set up", codec->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, kWidth,
                                                             /*fieldMode=*/1)) &&
      tell("encode", codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes));

  // The decoder's output starts on a 16-byte boundary.
  auto* output = static_cast<unsigned char*>(std::aligned_alloc(64, kFrameBytes));
  isDone = isDone && output != nullptr &&
           tell("set up", codec->SetInputOutputDataTypesForDecode(VideoFormat::Packed422UYVY,
                                                                  kWidth, /*fieldMode=*/1)) &&
           tell("decode", codec->DecodeFrame(frame.data(), output, 0, 0));
  if (isDone) {
    double squares = 0;
    for (size_t i = 0; i < kFrameBytes; ++i)
      squares += (input[i] - output[i]) * (input[i] - output[i]);
    std::printf("%u bytes, PSNR %.1f dB\n", bytes,
                10 * std::log10(255.0 * 255.0 * double(kFrameBytes) / (squares + 1e-9)));
  }
  std::free(output);
  codec->Release();
  return isDone ? 0 : 1;
}
