#pragma once

/// Marks what leaves the shared library. Everything else has hidden visibility.
#if defined(ZEL_STATIC)
#define ZEL_API
#elif defined(_WIN32)
#if defined(ZEL_BUILDING)
#define ZEL_API __declspec(dllexport)
#else
#define ZEL_API __declspec(dllimport)
#endif
#else
#define ZEL_API __attribute__((visibility("default")))
#endif
