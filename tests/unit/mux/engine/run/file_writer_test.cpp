#include "zel/mux/engine/run/file_writer.h"

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "tests/support/file_bytes.h"
#include "tests/unit/mux/engine/engine_fixture.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct FileWriter : EngineFixture {
  FileWriter() {
    run.config->rate = 2e6;
    addData(1e6, 1'000);
    multiplex();
    whole = std::move(run.bytes);
    run.bytes.clear();
    run.intoFiles = true;
    rewind();
  }
  ~FileWriter() override {
    for (const std::string& name : made) std::remove(name.c_str());
  }
  std::string name(const std::string& end) {
    std::string full = testing::TempDir();
    full.append("file_writer_");
    full.append(testing::UnitTest::GetInstance()->current_test_info()->name()).append(end);
    made.push_back(full);
    return made.back();
  }
  void addFile(const std::string& name) { tarn_array_append_text(&run.config->files, name); }

  std::vector<uint8_t> whole;
  std::vector<std::string> made;
};

TEST_F(FileWriter, WritesTheConfiguredFile) {
  const std::string file = name(".ts");
  addFile(file);
  EXPECT_EQ(multiplex(), 2'000'000) << run.texts;
  EXPECT_EQ(test::fileBytes(file), whole);
}

TEST_F(FileWriter, FilesOfASizeHoldWholePackets) {
  run.config->outPkts = 70;
  run.config->fileSize = 100'000;
  for (int i = 0; i < 9; ++i) addFile(name(std::to_string(i)));
  EXPECT_EQ(multiplex(), 2'000'000) << run.texts;
  std::vector<uint8_t> all;
  for (size_t i = 0; i < made.size(); ++i) {
    const std::vector<uint8_t> part = test::fileBytes(made[i]);
    if (all.size() + 100'000 < whole.size()) {
      EXPECT_EQ(part.size(), 100'000u / 188 * 188) << i;
    }
    all.insert(all.end(), part.begin(), part.end());
  }
  EXPECT_EQ(all, whole);
}

TEST_F(FileWriter, APatternNumbersTheFiles) {
  run.config->fileSize = 200'000;
  const std::string pattern = name("_%i.ts");
  made.pop_back();
  addFile(pattern);
  EXPECT_EQ(multiplex(), 2'000'000) << run.texts;
  std::vector<uint8_t> all;
  for (int i = 0; i < 3; ++i) {
    const std::vector<uint8_t> part =
        test::fileBytes(name(std::string("_").append(std::to_string(i)).append(".ts")));
    all.insert(all.end(), part.begin(), part.end());
  }
  EXPECT_EQ(all, whole);
}

TEST_F(FileWriter, TooFewFilesAreFatal) {
  run.config->fileSize = 100'000;
  run.config->outPkts = 100;
  addFile(name("a"));
  addFile(name("b"));
  EXPECT_LT(multiplex(), 0);
  EXPECT_EQ(run.said, "F49 ");
  EXPECT_EQ(test::fileBytes(made[1]).size(), 100'000u / 188 * 188);
}

TEST_F(FileWriter, NoFileIsFatal) {
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F46 ");
}

TEST_F(FileWriter, SeveralFilesNeedASize) {
  addFile(name("a"));
  addFile(name("b"));
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F47 ");
}

TEST_F(FileWriter, ASizeBelowAKilobyteIsFatal) {
  addFile(name("a"));
  run.config->fileSize = 1'023;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F48 ");
}

TEST_F(FileWriter, AFileThatCantBeMadeIsFatalWithItsName) {
  addFile("/nowhere/at/all.ts");
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F30 ");
  EXPECT_TRUE(run.saidText("Output file open error.  Filename = /nowhere/at/all.ts.\n"));
}

TEST_F(FileWriter, AFullDiskIsToldAsSuch) {
  if (FILE* full = std::fopen("/dev/full", "wb"); full != nullptr) {
    std::fclose(full);
  } else {
    GTEST_SKIP() << "no /dev/full here";
  }
  addFile("/dev/full");
  EXPECT_LT(multiplex(), 0);
  EXPECT_TRUE(run.saidText("No space left on device: Disk Full\n")) << run.texts;
  EXPECT_EQ(run.said.substr(0, 3), "F3 ");
}

TEST_F(FileWriter, AFullDiskThatShowsAtTheCloseIsToldToo) {
  if (FILE* full = std::fopen("/dev/full", "wb"); full != nullptr) {
    std::fclose(full);
  } else {
    GTEST_SKIP() << "no /dev/full here";
  }
  inputs.front().bytes.resize(188);  // all of it fits into the system's own buffer
  run.config->data[0] = nullptr;
  addFile("/dev/full");
  EXPECT_LT(multiplex(), 0);
  EXPECT_TRUE(run.saidText("No space left on device: Disk Full\n")) << run.texts;
}

TEST_F(FileWriter, ARestartBeginsTheFileAnew) {
  const std::string file = name(".ts");
  addFile(file);
  ASSERT_TRUE(run.open());
  tsm_set_packets_per_call(run.handle, 1'000);
  EXPECT_EQ(run.runOnce(), 0);
  rewind();
  tsm_set_control(run.handle, kTsmControlRestart);
  EXPECT_EQ(run.runOnce(), 2'000'000);
  tsm_set_packets_per_call(run.handle, 0);
  EXPECT_EQ(run.runOnce(), 2'000'000);
  run.close();
  const std::vector<uint8_t> bytes = test::fileBytes(file);
  EXPECT_EQ(bytes.size(), whole.size());
}

}  // namespace
}  // namespace zel::mux
