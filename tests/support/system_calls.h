#pragma once

#include <functional>
#include <string>

namespace zel::test {

enum class SystemCalls { none, some, unknown };

/// Whether `work` makes system calls. It runs in a child process, once freely, to warm up whatever
/// is filled at first use, such as the allocator's free lists, and then once under a filter that
/// ends the process at any system call but the exit. `unknown` where the system doesn't allow such
/// a filter; `why` then tells.
SystemCalls findSystemCalls(std::function<void()> const& work, std::string& why);

}  // namespace zel::test
