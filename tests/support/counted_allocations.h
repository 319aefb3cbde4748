#pragma once

namespace zel::test {

/// How often operator new was called since the program began, by any thread, in programs that link
/// zel_counted_allocations.
long allocationCount();

}  // namespace zel::test
