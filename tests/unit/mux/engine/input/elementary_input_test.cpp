#include "zel/mux/engine/input/elementary_input.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tests/support/seed.h"
#include "zel/mux/engine/input/file_source.h"

namespace zel::mux {
namespace {

std::string bytes_of(std::string_view text) {
  return std::string(text);
}

// Gives its text in pieces of random size.
class text_source : public stream_source {
 public:
  text_source(std::string text, unsigned seed) : text_(std::move(text)), random_(seed) {}
  int32_t read(uint8_t* to, int32_t room) override {
    EXPECT_GT(room, 0);
    const size_t most = std::min(static_cast<size_t>(room), text_.size() - at_);
    const size_t count = most == 0 ? 0 : 1 + random_() % most;
    std::copy_n(text_.begin() + static_cast<ptrdiff_t>(at_), count, to);
    at_ += count;
    return static_cast<int32_t>(count);
  }

 private:
  std::string text_;
  size_t at_ = 0;
  std::mt19937 random_;
};

TEST(ElementaryInput, RandomLoadsTakesAndGrowthKeepTheStream) {
  std::mt19937 random(static_cast<unsigned>(test::testSeed()));
  for (int round = 0; round < 200; ++round) {
    std::string text(1 + random() % 3000, '\0');
    for (char& c : text) c = static_cast<char>(random());
    elementary_input input;
    input.open(static_cast<int32_t>(2 + random() % 300), static_cast<int32_t>(1 + random() % 90),
               std::make_unique<text_source>(text, static_cast<unsigned>(random())));
    std::string taken;
    while (!(input.ended() && input.filled() == 0)) {
      switch (random() % 4) {
        case 0:
        case 1:
          input.load();
          break;
        case 2: {
          const int32_t count =
              static_cast<int32_t>(random() % static_cast<unsigned>(input.filled() + 1));
          std::vector<uint8_t> piece(static_cast<size_t>(count) + 1);
          if (count > 0) {
            EXPECT_EQ(input.at(input.read_position()), static_cast<uint8_t>(text[taken.size()]));
            EXPECT_EQ(input.at(input.end_position() - 1),
                      static_cast<uint8_t>(text[static_cast<size_t>(input.end_position() - 1)]));
          }
          input.take(piece.data(), count);
          taken.append(reinterpret_cast<const char*>(piece.data()), static_cast<size_t>(count));
          break;
        }
        case 3:
          if (random() % 8 == 0) input.grow(input.capacity() + static_cast<int32_t>(random() % 50));
          break;
      }
      ASSERT_EQ(input.read_position(), static_cast<int64_t>(taken.size()));
      ASSERT_LT(input.filled(), input.capacity());
    }
    EXPECT_EQ(taken, text);
  }
}

TEST(ElementaryInput, OneByteAlwaysStaysFree) {
  elementary_input input;
  input.open(10, 100, std::make_unique<text_source>(std::string(100, 'x'), 1));
  while (input.load()) {
  }
  EXPECT_EQ(input.filled(), 9);
  EXPECT_EQ(input.room(), 0);
  EXPECT_FALSE(input.ended());
  EXPECT_FALSE(input.append(std::vector<uint8_t>(1)));
  input.skip(4);
  EXPECT_TRUE(input.append(std::vector<uint8_t>{1, 2, 3, 4}));
  EXPECT_EQ(input.at(12), 4);
}

TEST(ElementaryInput, ACallbackMayPutThePointersBackWhenEmpty) {
  elementary_input input;
  int calls = 0;
  const load_function load = [](void* user, cbuf* buffer) {
    int& count = *static_cast<int*>(user);
    if (++count == 4) return 1;
    buffer->read = buffer->write = buffer->scan = buffer->start;
    for (int i = 0; i < 5; ++i) *buffer->write++ = static_cast<uint8_t>(count * 16 + i);
    return 0;
  };
  input.open(8, load, &calls);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(input.load());
    EXPECT_EQ(input.at(input.read_position() + 4), i * 16 + 4);
    input.skip(5);
  }
  EXPECT_EQ(input.read_position(), 15);
  EXPECT_FALSE(input.load());
  EXPECT_TRUE(input.ended());
}

TEST(ElementaryInput, ACallbackThatLeavesTheBufferEndsTheInput) {
  elementary_input input;
  const load_function load = [](void*, cbuf* buffer) {
    buffer->write = buffer->end + 7;
    return 0;
  };
  input.open(8, load, nullptr);
  EXPECT_FALSE(input.load());
  EXPECT_TRUE(input.ended());
  EXPECT_EQ(input.filled(), 0);
}

class FileSource : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "zel_file_source_XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  std::string write(const std::string& name, const std::string& text) {
    std::ofstream(folder_ / name) << text;
    return (folder_ / name).string();
  }
  // All that the files give, and the faults told on the way.
  std::string all(std::vector<std::string> names) {
    file_source source(std::move(names), [this](const char* name) {
      faults_.emplace_back(name == nullptr ? "read" : std::filesystem::path(name).filename());
    });
    opened_ = source.open();
    std::string text(1000, '\0');
    size_t at = 0;
    while (const int32_t got = source.read(reinterpret_cast<uint8_t*>(text.data()) + at, 3)) {
      at += static_cast<size_t>(got);
    }
    text.resize(at);
    return text;
  }

  std::filesystem::path folder_;
  std::vector<std::string> faults_;
  bool opened_ = false;
};

TEST_F(FileSource, RegularFilesAreReadInLargePieces) {
  const std::string name = write("large", std::string(200'000, 'x'));
  auto source = std::make_unique<file_source>(std::vector<std::string>{name}, nullptr);
  ASSERT_TRUE(source->open());
  elementary_input input;
  input.open(150'000, 5'000, std::move(source));
  ASSERT_TRUE(input.load());
  EXPECT_EQ(input.filled(), 64 * 1024);
  // As far as there is room.
  ASSERT_TRUE(input.load());
  ASSERT_TRUE(input.load());
  EXPECT_EQ(input.filled(), 149'999);
}

// Whoever writes into a pipe may not have more for long.
TEST_F(FileSource, APipeIsAskedForNoMoreThanTheReadSize) {
  const std::string name = (folder_ / "pipe").string();
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  const int both = open(name.c_str(), O_RDWR);
  ASSERT_GE(both, 0);
  const std::string text(5'000, 'x');
  ASSERT_EQ(::write(both, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  auto source = std::make_unique<file_source>(std::vector<std::string>{name}, nullptr);
  ASSERT_TRUE(source->open());
  elementary_input input;
  input.open(150'000, 5'000, std::move(source));
  ASSERT_TRUE(input.load());  // more would be waited for, for ever
  EXPECT_EQ(input.filled(), 5'000);
  close(both);
}

TEST_F(FileSource, FilesFollowEachOther) {
  const std::string a = write("a", "first"), b = write("b", ""), c = write("c", "second");
  EXPECT_EQ(all({a, b, c}), bytes_of("firstsecond"));
  EXPECT_TRUE(faults_.empty());
}

TEST_F(FileSource, AMissingFileIsToldAndPassedOver) {
  const std::string a = write("a", "first"), c = write("c", "second");
  EXPECT_EQ(all({a, (folder_ / "b").string(), c}), "firstsecond");
  EXPECT_EQ(faults_, std::vector<std::string>{"b"});
}

TEST_F(FileSource, AMissingFirstFileDoesntOpen) {
  EXPECT_EQ(all({(folder_ / "none").string()}), "");
  EXPECT_FALSE(opened_);
  EXPECT_EQ(faults_, std::vector<std::string>{"none"});
  EXPECT_EQ(all({folder_.string()}), "");
  EXPECT_FALSE(opened_);
}

TEST_F(FileSource, ASeriesGoesOnUntilANumberIsMissing) {
  for (int i : {0, 1, 2, 4}) write("part" + std::to_string(i), std::to_string(i) + ";");
  EXPECT_EQ(all({(folder_ / "part%i").string()}), "0;1;2;");
  std::filesystem::remove(folder_ / "part0");
  EXPECT_EQ(all({(folder_ / "part%i").string()}), "1;2;");
  EXPECT_TRUE(faults_.empty());
}

TEST(NumberedName, OnlyTheFirstMarkCounts) {
  EXPECT_EQ(numbered_name("a%i%i", 12), "a12%i");
  EXPECT_EQ(numbered_name("a%d", 12), "a%d");
}

TEST(InputSize, ByKindOfSource) {
  EXPECT_EQ(video_input_size(0, false, false, 5000), 255'000);
  EXPECT_EQ(video_input_size(0, true, false, 5000), 1'005'000);
  EXPECT_EQ(video_input_size(0, false, true, 5000), 1'005'000);
  EXPECT_EQ(video_input_size(7000, true, true, 5000), 12'000);
  EXPECT_EQ(audio_input_size(true, false, 5000), 265'000);
  EXPECT_EQ(audio_input_size(false, true, 5000), 2'465'000);
  EXPECT_EQ(video_input_need(229'376, 0, false, 5000), 234'376);
  EXPECT_EQ(video_input_need(229'376, 4e6, true, 5000), 4 * 1'005'000);
  EXPECT_GT(video_input_need(int64_t{1} << 60, 0, true, 5000), 0);
}

}  // namespace
}  // namespace zel::mux
