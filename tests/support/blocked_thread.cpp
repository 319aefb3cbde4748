#include "tests/support/blocked_thread.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>

namespace zel::test {

namespace {

bool sleeps(int id) {
  std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
  std::string text;
  std::getline(file, text);
  size_t const name = text.rfind(')');  // the name may hold anything, so look behind it
  return name != std::string::npos && name + 2 < text.size() && text[name + 2] == 'S';
}

}  // namespace

BlockedThread::BlockedThread(std::function<void()> body)
    : thread_([this, run = std::move(body)] {
        id_ = gettid();
        run();
        ended_ = true;
      }) {}

BlockedThread::~BlockedThread() {
  join();
}

void BlockedThread::join() {
  if (thread_.joinable()) thread_.join();
}

void BlockedThread::awaitBlocked() {
  // Several looks, because a thread may sleep for a moment on its way to where it is expected.
  for (int looks = 0; looks < 5 && !ended_;) {
    looks = id_ != 0 && sleeps(id_) ? looks + 1 : 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace zel::test
