// The encoder front end and nothing else: a Y4M file in, an HEVC byte stream out, as x265's own
// program does it. bench/encode/compare.py runs the two beside each other.
//
//   encode_stream INPUT.y4m OUTPUT.hevc PRESET THREADS BITRATE [COMMAND LINE]
//   encode_stream --make INPUT.y4m WIDTH HEIGHT COUNT

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/test_pictures.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/property_keys.h"

namespace {

using namespace Morvalen::Zel;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void fail(char const* what) {
  std::fprintf(stderr, "encode_stream: %s\n", what);
  std::exit(1);
}

File open(char const* name, char const* mode) {
  File file(std::fopen(name, mode));
  if (file == nullptr) fail(name);
  return file;
}

class Y4mReader {
 public:
  explicit Y4mReader(char const* name) : file_(open(name, "rb")) {
    char line[256];
    if (std::fgets(line, sizeof line, file_.get()) == nullptr) fail("no header");
    if (std::sscanf(line, "YUV4MPEG2 W%d H%d F%lld:%lld", &width, &height, &rate, &scale) != 4) {
      fail("not a Y4M file as --make writes it");
    }
    picture_.resize(size_t(width) * size_t(height) * 3 / 2);
  }

  // The next picture, null at the end.
  unsigned char const* next() {
    char line[64];
    if (std::fgets(line, sizeof line, file_.get()) == nullptr) return nullptr;
    bool const isWhole =
        std::fread(picture_.data(), 1, picture_.size(), file_.get()) == picture_.size();
    return isWhole ? picture_.data() : nullptr;
  }

  int width = 0;
  int height = 0;
  long long rate = 0;
  long long scale = 0;

 private:
  File file_;
  std::vector<unsigned char> picture_;
};

class FileConsumer final : public IMorvalenEncoderConsumer {
 public:
  FileConsumer(char const* name, int32_t preset, std::string commandLine)
      : file_(open(name, "wb")), preset_(preset), commandLine_(std::move(commandLine)) {}

  int GetProperty(char const* name, int32_t size, unsigned char* buffer) override {
    int32_t const averageBitRate = 0;
    if (is(name, CodeBookProperty::X265Preset)) return give(&preset_, sizeof preset_, size, buffer);
    if (is(name, CodeBookProperty::X265RateControlMethod)) {
      return give(&averageBitRate, sizeof averageBitRate, size, buffer);
    }
    if (is(name, CodeBookProperty::X265CommandLine)) {
      return give(commandLine_.data(), commandLine_.size(), size, buffer);
    }
    return 0;
  }
  int WriteSample(unsigned char const* data, int32_t, int32_t size, int32_t,
                  CDependenciesObjectVS2012*) override {
    ++samples;
    return WriteHeaders(data, size);
  }
  int WriteHeaders(unsigned char const* data, int32_t size) override {
    return std::fwrite(data, 1, size_t(size), file_.get()) == size_t(size) ? 0 : -1;
  }

  long samples = 0;

 private:
  static bool is(char const* name, char const* key) { return std::strcmp(name, key) == 0; }
  static int give(void const* value, size_t length, int32_t size, unsigned char* buffer) {
    if (length > size_t(size)) return -1;
    std::memcpy(buffer, value, length);
    return int(length);
  }

  File file_;
  int32_t preset_;
  std::string commandLine_;
};

int encode(char** arguments, char const* commandLine) {
  Y4mReader reader(arguments[0]);
  FileConsumer consumer(arguments[1], std::atoi(arguments[2]), commandLine);
  auto* const encoder = CMorvalenX265EncoderApi::Create(&consumer);
  if (encoder->Begin(reader.width, reader.height, reader.scale, reader.rate,
                     std::atoi(arguments[3]), std::atoll(arguments[4])) < 0) {
    fail("Begin");
  }
  long count = 0;
  while (unsigned char const* const picture = reader.next()) {
    if (encoder->Encode(picture, nullptr) < 0) fail("Encode");
    ++count;
  }
  while (consumer.samples < count) {
    if (encoder->Encode(nullptr, nullptr) < 0) fail("Encode, draining");
  }
  encoder->Release();
  return 0;
}

// Moving texture with some noise, so that there is work in every stage of the encoder. Without an
// aspect ratio, which the front end would have to be told of by its command line.
int make(char** arguments) {
  zel::test::TestPictures const pictures(std::atoi(arguments[1]), std::atoi(arguments[2]));
  File const file = open(arguments[0], "wb");
  std::fprintf(file.get(), "YUV4MPEG2 W%d H%d F25:1 Ip A0:0 C420jpeg\n", pictures.width(),
               pictures.height());
  std::minstd_rand noise(1);
  for (int number = 0; number < std::atoi(arguments[3]); ++number) {
    std::vector<uint8_t> picture = pictures.make(number);
    for (size_t i = 0; i < picture.size(); i += 3) picture[i] = uint8_t(picture[i] + noise() % 5);
    std::fputs("FRAME\n", file.get());
    if (std::fwrite(picture.data(), 1, picture.size(), file.get()) != picture.size()) fail("write");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 6 && std::strcmp(argv[1], "--make") == 0) return make(argv + 2);
  if (argc == 6 || argc == 7) return encode(argv + 1, argc == 7 ? argv[6] : "");
  std::fputs(
      "usage: encode_stream INPUT.y4m OUTPUT.hevc PRESET THREADS BITRATE [COMMAND LINE]\n"
      "       encode_stream --make INPUT.y4m WIDTH HEIGHT COUNT\n",
      stderr);
  return 2;
}
