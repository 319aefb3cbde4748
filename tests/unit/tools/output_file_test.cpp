#include "tools/zel/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/tools/scratch_folder.h"
#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

template <class Exception, class Function>
std::string messageOf(Function function) {
  try {
    function();
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing was thrown";
}

TEST(OutputFile, IsThereOnceFinished) {
  const ScratchFolder folder;
  OutputFile file(folder / "out", {});
  file.write(std::string_view("abc"));
  file.write(std::string_view("def"));
  file.finish();
  EXPECT_EQ(folder.read("out"), "abcdef");
}

TEST(OutputFile, ReplacesALongerFileWholly) {
  const ScratchFolder folder;
  folder.write("out", "something longer");
  {
    OutputFile file(folder / "out", {});
    file.write(std::string_view("abc"));
    file.finish();
  }
  EXPECT_EQ(folder.read("out"), "abc");
}

TEST(OutputFile, GoesAwayUnlessFinished) {
  const ScratchFolder folder;
  {
    OutputFile file(folder / "out", {});
    file.write(std::string_view("abc"));
  }
  EXPECT_FALSE(folder.has("out"));
}

TEST(OutputFile, NeverOverwritesTheInputByAnyName) {
  const ScratchFolder folder;
  const std::string input = folder.write("in", "precious");
  std::filesystem::create_symlink(input, folder / "symbolic");
  std::filesystem::create_hard_link(input, folder / "hard");
  const std::vector<TakenFile> taken = {TakenFile::input(input)};
  for (const char* name : {"in", "symbolic", "hard", "./in"}) {
    EXPECT_THAT(
        messageOf<WrongUsage>([&] { OutputFile file(folder / name, taken); }),
        ::testing::EndsWith("is the input itself, which it would overwrite; name another file"));
    EXPECT_EQ(folder.read("in"), "precious") << name;
  }
}

TEST(OutputFile, TwoOutputsCannotBeOneFile) {
  const ScratchFolder folder;
  OutputFile first(folder / "out", {});
  const std::vector<TakenFile> taken = {first.asTaken("the --output file")};
  EXPECT_THROW(OutputFile(folder / "out", taken), WrongUsage);
  first.finish();
  EXPECT_TRUE(folder.has("out"));
}

TEST(OutputFile, DevicesMayBeShared) {
  const std::vector<TakenFile> taken = {TakenFile::input("/dev/null")};
  OutputFile file("/dev/null", taken);
  file.write(std::string_view("abc"));
  file.finish();
}

TEST(OutputFile, SaysWhyItCannotBeMade) {
  const ScratchFolder folder;
  const std::string path = folder / "no/out";
  EXPECT_EQ(messageOf<Failure>([&] { OutputFile file(path, {}); }),
            path + ": No such file or directory");
  EXPECT_EQ(messageOf<Failure>([&] { OutputFile file("/dev", {}); }), "/dev: Is a directory");
}

TEST(OutputFile, AFullDiskIsNoticedAtOnceOrAtTheEnd) {
  OutputFile device("/dev/full", {});
  EXPECT_EQ(messageOf<Failure>([&] {
              device.write(std::string_view("abc"));
              device.finish();
            }),
            "/dev/full: No space left on device");
}

TEST(OutputFile, BytesReachAPipeAtOnce) {
  const ScratchFolder folder;
  const std::string fifo = folder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  {
    OutputFile file(fifo, {});
    file.write(std::string_view("abc"));
    char bytes[8] = {};
    EXPECT_EQ(::read(reader, bytes, sizeof bytes), 3);
    close(reader);
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(messageOf<Failure>([&] { file.write(std::string_view("def")); }),
              fifo + " was closed by its reader");
  }
  EXPECT_TRUE(folder.has("fifo"));
}

}  // namespace
}  // namespace zel::tool
