// A caller with classes of its own on the library's root object: it needs the exported functions,
// the virtual table and the type information.
#include <cstdio>

#include "zel/runtime/object.h"

using Morvalen::Zel::CDependenciesObjectVS2012;

namespace {

class Counter : public CDependenciesObjectVS2012 {
 public:
  explicit Counter(int& ends) : ends_(ends) {}
  ~Counter() override { ++ends_; }

 private:
  int& ends_;
};

}  // namespace

int main() {
  int ends = 0;
  CDependenciesObjectVS2012* const object = new Counter(ends);
  object->Acquire();
  object->Release();
  if (ends != 0 || dynamic_cast<Counter*>(object) == nullptr) return 1;
  object->Release();
  if (ends != 1) return 1;
  std::puts("an object lived and ended");
  return 0;
}
