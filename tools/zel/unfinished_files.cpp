#include "tools/zel/unfinished_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

// Removal has to work inside a signal handler, at any instruction: in the midst of an encode that
// takes a second, or of a read that never returns. So what the handler needs stands in fixed slots,
// published by one atomic each, and it calls only functions that POSIX (2.4.3) lets a handler call.
// A flag that the work looks at would be simpler, and would leave the user waiting.

namespace zel::tool {
namespace {

constexpr int kSlots = 16;  // a subcommand writes two or three files

struct Slot {
  std::atomic<bool> used{false};     // taken by an UnfinishedFile
  std::atomic<char*> path{nullptr};  // malloc'd; whoever takes it out removes the file
  dev_t device = 0;                  // written before `path`
  ino_t inode = 0;
};

Slot slots[kSlots];

// The path may name another file by now: that one isn't ours to remove.
void removeIfSame(const char* path, dev_t device, ino_t inode) {
  struct stat now;
  if (stat(path, &now) != 0 || now.st_dev != device || now.st_ino != inode) return;
  unlink(path);
}

extern "C" void removeAllAndEnd(int signal) {
  for (Slot& slot : slots) {
    const char* path = slot.path.exchange(nullptr);
    if (path != nullptr) removeIfSame(path, slot.device, slot.inode);
  }
  std::signal(signal, SIG_DFL);
  raise(signal);  // delivered when the handler returns
}

}  // namespace

UnfinishedFile::UnfinishedFile(const std::string& path, int file) {
  struct stat status;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return;
  for (int i = 0; i < kSlots; ++i) {
    bool expected = false;
    if (!slots[i].used.compare_exchange_strong(expected, true)) continue;
    slots[i].device = status.st_dev;
    slots[i].inode = status.st_ino;
    slots[i].path.store(strdup(path.c_str()));
    slot_ = i;
    return;
  }
  throw std::length_error("too many output files at once");
}

UnfinishedFile::~UnfinishedFile() {
  if (slot_ < 0) return;
  Slot& slot = slots[slot_];
  if (char* path = slot.path.exchange(nullptr)) {
    removeIfSame(path, slot.device, slot.inode);
    std::free(path);
  }
  slot.used.store(false);
}

void UnfinishedFile::keep() {
  if (slot_ < 0) return;
  std::free(slots[slot_].path.exchange(nullptr));
  slots[slot_].used.store(false);
  slot_ = -1;
}

void removeUnfinishedFilesOnSignals() {
  struct sigaction action = {};
  action.sa_handler = removeAllAndEnd;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present;
    // A process that was started with a signal ignored (nohup) keeps ignoring it.
    if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace zel::tool
