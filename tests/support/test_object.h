#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

#include "zel/runtime/object.h"

namespace zel::test {

/// An object that is counted while it lives, with its lock open to tests.
class TestObject : public Morvalen::Zel::CDependenciesObjectVS2012 {
 public:
  using Root = Morvalen::Zel::CDependenciesObjectVS2012;

  explicit TestObject(uint32_t tag = 0, void (*destroy)(Root*) = nullptr) : Root(tag, destroy) {
    ++live;
  }
  ~TestObject() override { --live; }

  using Root::Enter;
  using Root::Exit;
  using Root::HoldsLock;
  using Root::Notify;
  using Root::NotifyAll;
  using Root::SetType;
  using Root::TryEnter;
  using Root::Wait;

  static inline std::atomic<int> live{0};
};

/// The slot of a virtual operation in its class's table, -1 for one that isn't virtual. The order
/// of virtual operations is part of interfaces; this reads it as the Itanium C++ ABI, 2.3, encodes
/// it.
template <class Pointer>
int virtualSlot(Pointer operation) {
  uintptr_t words[2];
  static_assert(sizeof(operation) == sizeof(words));
  std::memcpy(words, &operation, sizeof(words));
  return (words[0] & 1) != 0 ? static_cast<int>((words[0] - 1) / sizeof(void*)) : -1;
}

}  // namespace zel::test
