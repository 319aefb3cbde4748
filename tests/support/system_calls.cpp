#include "tests/support/system_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>

namespace zel::test {

namespace {

constexpr int kNoFilter = 77;  // exit code of a child that couldn't be given the filter

bool forbidSystemCalls() {
  sock_filter program[] = {
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_exit_group},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_KILL_PROCESS},
  };
  sock_fprog const filter{sizeof(program) / sizeof(program[0]), program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace

SystemCalls findSystemCalls(std::function<void()> const& work, std::string& why) {
  pid_t const child = fork();
  if (child < 0) {
    why = std::string("no child process: ") + std::strerror(errno);
    return SystemCalls::unknown;
  }
  if (child == 0) {
    work();
    if (!forbidSystemCalls()) _exit(kNoFilter);
    work();
    _exit(0);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return SystemCalls::none;
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS) return SystemCalls::some;
  why = WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter
            ? "the system allows no filter of system calls"
            : "the child ended with status " + std::to_string(status);
  return SystemCalls::unknown;
}

}  // namespace zel::test
