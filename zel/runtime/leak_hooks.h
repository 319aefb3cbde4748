#pragma once

#include "zel/runtime/leaks.h"

namespace Morvalen::Zel {

/// Whether objects report to the leak tracker: `if constexpr (kLeakHooks)
/// CLeaks::CreateObject(this);`
#if defined(ZEL_LEAK_HOOKS)
inline constexpr bool kLeakHooks = true;
#else
inline constexpr bool kLeakHooks = false;
#endif

/// The step of the process's start that makes the tracker. What it records is freed at exit; the
/// tracker itself stays, with nothing in it, for threads that are inside a hook at that moment.
void StartLeakTracker();

}  // namespace Morvalen::Zel
