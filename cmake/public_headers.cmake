# The public headers: what a caller includes, what is installed, what the pages document. The one list,
# read by CMake and by scripts/ alike. Paths from the include root, one a line.
set(ZEL_PUBLIC_HEADERS
  zel/base/export.h
  zel/platform/monitor.h
  zel/runtime/lock.h
  zel/runtime/object.h
  zel/runtime/result_codes.h
)
