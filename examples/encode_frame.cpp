// Encodes one grey frame as HEVC, to standard output.
#include <cstdio>
#include <vector>

#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/properties.h"
#include "zel/runtime/property_keys.h"

using namespace Morvalen::Zel;

struct Settings final : IProperties {};

// Answers the encoder's questions from the settings, and writes what it makes.
struct Writer final : IMorvalenEncoderConsumer {
  Settings settings;

  int GetProperty(char const* name, int32_t size, unsigned char* buffer) override {
    return settings.IProperties::GetProperty(name, size, buffer);
  }
  int WriteSample(unsigned char const* data, int32_t, int32_t size, int32_t,
                  CDependenciesObjectVS2012*) override {
    return WriteHeaders(data, size);
  }
  int WriteHeaders(unsigned char const* data, int32_t size) override {
    return std::fwrite(data, 1, size_t(size), stdout) == size_t(size) ? 0 : -1;
  }
};

int main() {
  Writer writer;
  writer.settings.SetProperty(CodeBookProperty::X265Preset, 5);  // medium
  writer.settings.SetProperty(CodeBookProperty::X265RateControlMethod, 2);
  writer.settings.SetProperty(CodeBookProperty::X265RateFactor, 23.0);

  IMorvalenX265Encoder* encoder = CMorvalenX265EncoderApi::Create(&writer);
  bool isDone = encoder->Begin(1280, 720, /*frameDuration=*/1, /*timeScale=*/25, /*threads=*/1,
                               /*bitRate=*/0) >= 0;
  std::vector<unsigned char> const frame(1280 * 720 * 3 / 2, 128);
  isDone = isDone && encoder->Encode(frame.data(), nullptr) == 0;
  isDone = isDone && encoder->Encode(nullptr, nullptr) == 0;  // drains
  encoder->Release();
  return isDone ? 0 : 1;
}
