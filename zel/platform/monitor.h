#pragma once

#include <condition_variable>
#include <mutex>

namespace zel::platform {

struct Monitor {
  std::recursive_mutex mutex;
  std::condition_variable_any condition;
  int waiters = 0;
};

}  // namespace zel::platform
