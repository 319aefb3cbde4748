#pragma once

namespace zel::test {

/// How often the calling thread has locked or tried to lock a mutex or a read-write lock of the C
/// library, by calls from the objects linked into the test. For programs that link zel_lock_calls.
int lockCalls();

}  // namespace zel::test
