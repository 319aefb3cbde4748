#include "tools/zel/unfinished_files.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

namespace fs = std::filesystem;

class UnfinishedFiles : public ::testing::Test {
 protected:
  UnfinishedFiles() {
    std::string name = (fs::temp_directory_path() / "zel-unfinished-XXXXXX").string();
    folder_ = mkdtemp(name.data());
  }
  ~UnfinishedFiles() override { fs::remove_all(folder_); }

  static int create(const fs::path& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  }

  fs::path folder_;
};

TEST_F(UnfinishedFiles, GoAwayUnlessKept) {
  const int lost = create(folder_ / "lost");
  const int kept = create(folder_ / "kept");
  {
    UnfinishedFile first(folder_ / "lost", lost);
    UnfinishedFile second(folder_ / "kept", kept);
    second.keep();
  }
  EXPECT_FALSE(fs::exists(folder_ / "lost"));
  EXPECT_TRUE(fs::exists(folder_ / "kept"));
  close(lost);
  close(kept);
}

TEST_F(UnfinishedFiles, PipesAndDevicesStay) {
  const fs::path fifo = folder_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  const int file = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  { UnfinishedFile unfinished(fifo, file); }
  EXPECT_TRUE(fs::exists(fifo));
  close(file);
}

TEST_F(UnfinishedFiles, AnotherFileUnderTheNameStays) {
  const int file = create(folder_ / "name");
  {
    UnfinishedFile unfinished(folder_ / "name", file);
    fs::rename(folder_ / "name", folder_ / "away");
    close(create(folder_ / "name"));
  }
  EXPECT_TRUE(fs::exists(folder_ / "name"));
  close(file);
}

TEST_F(UnfinishedFiles, SlotsAreGivenBack) {
  const int file = create(folder_ / "name");
  for (int i = 0; i < 1000; ++i) {
    UnfinishedFile unfinished(folder_ / "name", file);
    unfinished.keep();
  }
  EXPECT_TRUE(fs::exists(folder_ / "name"));
  close(file);
}

TEST_F(UnfinishedFiles, SignalsRemoveThemAndEndTheProcess) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      removeUnfinishedFilesOnSignals();
      const int lost = create(folder_ / "lost");
      const int kept = create(folder_ / "kept");
      UnfinishedFile first(folder_ / "lost", lost);
      UnfinishedFile second(folder_ / "kept", kept);
      second.keep();
      raise(signal);
      _exit(0);  // not reached
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_FALSE(fs::exists(folder_ / "lost"));
    EXPECT_TRUE(fs::exists(folder_ / "kept"));
  }
}

TEST_F(UnfinishedFiles, AnIgnoredSignalStaysIgnored) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGHUP, SIG_IGN);
    removeUnfinishedFilesOnSignals();
    raise(SIGHUP);
    _exit(7);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7);
}

}  // namespace
}  // namespace zel::tool
