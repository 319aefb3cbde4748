// Multiplexes a video file and an audio file into a transport stream, to standard output:
//   multiplex clip.m2v clip.mp2 >clip.ts
#include <cstdio>

#include "zel/mux/multiplexer_api.h"
#include "zel/runtime/four_character_code.h"
#include "zel/runtime/property_keys.h"

using namespace Morvalen::Zel;

struct Settings final : IProperties {};

// The bytes of one stream. The multiplexer asks for more when it has room.
struct FileProvider final : ITarnwickProvider {
  explicit FileProvider(char const* path) : file(std::fopen(path, "rb")) {}
  ~FileProvider() {
    if (file != nullptr) std::fclose(file);
  }
  FileProvider(FileProvider const&) = delete;
  FileProvider& operator=(FileProvider const&) = delete;

  int32_t ReadData(unsigned char* destination, int32_t maximum, int32_t) override {
    return file != nullptr ? int32_t(std::fread(destination, 1, size_t(maximum), file)) : 0;
  }
  int GetBitRate(int32_t, int32_t&) override { return 0; }
  int GetLanguageDescriptor(CByteArray*&) override { return -1; }  // none
  int GetDvbAc3Descriptor(CByteArray*&) override { return -1; }    // none

  std::FILE* file;
};

struct Writer final : ITarnwickConsumer {
  int WriteData(int32_t size, unsigned char const* data, int32_t) override {
    return std::fwrite(data, 1, size_t(size), stdout) == size_t(size) ? 0 : -1;
  }
  void OnConfigurationMessage(int32_t, int32_t, char const*) override {}
};

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  FileProvider video(argv[1]);
  FileProvider audio(argv[2]);
  Writer writer;
  Settings settings;
  settings.SetProperty(ContainerProperty::Mpeg2TransportStreamRate, int32_t{6000000});

  CTarnwickMultiplexerApi* mux = CTarnwickMultiplexerApi::Create();
  int32_t streams = 0;
  bool isDone =
      mux->Begin(&writer, &settings) == 0 &&
      mux->AddVideoStream(0x101, &video, &settings, FourCharacterCode("mpg2"), 0, {25, 1}) == 0 &&
      mux->AddAudioStream(0x102, 0x101, streams, &audio, &settings, FourCharacterCode("mp2 "), 2,
                          16, 48000, 0) == 0 &&
      mux->Multiplex(nullptr, 0, nullptr) == 0;
  if (!isDone && mux->GetErrorMessage() != nullptr)
    std::fputs(mux->GetErrorMessage()->GetChars(), stderr);
  mux->Release();
  return isDone ? 0 : 1;
}
