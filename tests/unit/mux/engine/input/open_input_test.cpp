#include "zel/mux/engine/input/open_input.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace Morvalen::Zel;
using namespace zel::mux;

struct told {
  std::vector<std::pair<bool, int>> messages;
  std::vector<std::string> texts;
};

void note(void* user, int fatal, int32_t code, const char* text) {
  auto& all = *static_cast<told*>(user);
  all.messages.emplace_back(fatal != 0, code);
  all.texts.emplace_back(text);
}

class OpenInput : public testing::Test {
 protected:
  OpenInput() {
    reports_.deliver_to(note, &told_);
    reports_.stop_on(false, false);
    request_.record = &record_;
    request_.bufferSize = 1000;
    record_.pid = 0x123;
    folder_ = std::filesystem::temp_directory_path() /
              ("zel_open_input_" + std::to_string(::getpid()) + "_" +
               testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(folder_);
  }
  ~OpenInput() override {
    tarn_array_free_strings(&record_.files);
    tarn_array_free_strings(&otherFiles_);
    std::filesystem::remove_all(folder_);
  }

  std::string file(const std::string& name, const std::string& bytes) {
    const std::string path = (folder_ / name).string();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  std::string read_all(elementary_input& input) {
    std::string bytes;
    while (true) {
      const int32_t there = input.filled();
      std::string piece(static_cast<size_t>(there), '\0');
      input.take(reinterpret_cast<uint8_t*>(piece.data()), there);
      bytes += piece;
      if (input.ended()) return bytes;
      input.load();
    }
  }

  tsm_stats stats_;
  tsm_time now_;
  reporting reports_{stats_, now_};
  told told_;
  tsm_stream_record record_{};
  TarnArray otherFiles_{};
  input_request request_;
  std::filesystem::path folder_;
};

TEST_F(OpenInput, ReadsTheRecordsFilesOneBehindTheOther) {
  tarn_array_append_text(&record_.files, file("a", "one,").c_str());
  tarn_array_append_text(&record_.files, file("b", "two").c_str());
  elementary_input input;
  ASSERT_TRUE(open_input(input, request_, reports_));
  EXPECT_EQ(read_all(input), "one,two");
  EXPECT_TRUE(told_.messages.empty());
}

TEST_F(OpenInput, OtherFilesStandInForTheRecords) {
  tarn_array_append_text(&record_.files, file("a", "wrong").c_str());
  tarn_array_append_text(&otherFiles_, file("b", "right").c_str());
  request_.files = &otherFiles_;
  elementary_input input;
  ASSERT_TRUE(open_input(input, request_, reports_));
  EXPECT_EQ(read_all(input), "right");
}

TEST_F(OpenInput, AMissingFileIsTheKindsMessageWithItsName) {
  tarn_array_append_text(&record_.files, (folder_ / "absent").c_str());
  request_.openError = 33;
  elementary_input input;
  EXPECT_FALSE(open_input(input, request_, reports_));
  ASSERT_EQ(told_.messages, (std::vector<std::pair<bool, int>>{{true, 33}}));
  EXPECT_NE(told_.texts[0].find("absent"), std::string::npos) << told_.texts[0];
  EXPECT_NE(told_.texts[0].find("PID = 0x0123"), std::string::npos) << told_.texts[0];
}

TEST_F(OpenInput, NoFilesIsTheKindsMessageWithItsArgument) {
  request_.noFiles = 27;
  request_.noFilesArgument = int64_t{7};
  elementary_input input;
  EXPECT_FALSE(open_input(input, request_, reports_));
  ASSERT_EQ(told_.messages, (std::vector<std::pair<bool, int>>{{true, 27}}));
  EXPECT_NE(told_.texts[0].find("program 7"), std::string::npos) << told_.texts[0];
}

int load_letters(void* user, cbuf* buffer) {
  *buffer->write = *static_cast<uint8_t*>(user);
  buffer->write = cbuf_forward(*buffer, buffer->write, 1);
  return 1;
}

TEST_F(OpenInput, TheLoaderGetsTheRecordsUserValueOrTheRequests) {
  uint8_t own = 'r';
  uint8_t other = 'o';
  record_.user = &own;
  request_.load = load_letters;
  elementary_input input;
  ASSERT_TRUE(open_input(input, request_, reports_));
  EXPECT_EQ(read_all(input), "r");
  request_.user = &other;
  ASSERT_TRUE(open_input(input, request_, reports_));
  EXPECT_EQ(read_all(input), "o");
}

}  // namespace
