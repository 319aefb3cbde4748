#pragma once

// Brackets for definitions of members that may be called through a null pointer. The compilers are
// told by -fno-delete-null-pointer-checks that `this` may be null; clang's sanitizer for undefined
// behaviour reports it on entry all the same, unless the function says that it is meant.
#if defined(__clang__)
#define ZEL_NULL_THIS_BEGIN \
  _Pragma("clang attribute push(__attribute__((no_sanitize(\"null\"))), apply_to = function)")
#define ZEL_NULL_THIS_END _Pragma("clang attribute pop")
#else
#define ZEL_NULL_THIS_BEGIN
#define ZEL_NULL_THIS_END
#endif
