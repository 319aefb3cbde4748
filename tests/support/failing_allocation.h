#pragma once

namespace zel::test {

/// While one lives, allocations of the thread that made it fail: all from the `skip`th on. It
/// covers malloc and calloc as the objects linked into the test call them, and the forms of
/// operator new that don't throw. For programs that link zel_failing_allocation.
class FailingAllocation {
 public:
  explicit FailingAllocation(int skip = 0);
  ~FailingAllocation();
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;

  /// How many allocations failed.
  static int failures();
};

}  // namespace zel::test
