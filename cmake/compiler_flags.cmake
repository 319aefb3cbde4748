# What every target of this project is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O3 -DNDEBUG")

# The runtime's text operations answer calls through a null `this`; the compiler must not assume
# that it cannot happen.
add_compile_options(-fno-delete-null-pointer-checks)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
  -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast -Wcast-align -Wundef
  -Wimplicit-fallthrough -Wformat=2)
if(ZEL_WERROR)
  add_compile_options(-Werror)
endif()

# For code whose own speed is nobody's matter, tests and the tool's commands: two thirds of the compile
# time of -O3 (they are mostly templates of other people, instantiated once more in each file).
# At that level, which the thread sanitizer's build has too, g++ 12 warns of ranges in std::string that it has
# itself made up.
set(ZEL_QUICK_BUILD $<$<CONFIG:Release>:-O1>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND ZEL_QUICK_BUILD -Wno-array-bounds -Wno-stringop-overflow -Wno-restrict)
endif()

if(ZEL_SANITIZE)
  add_compile_options(-fsanitize=${ZEL_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all -g1)
  add_link_options(-fsanitize=${ZEL_SANITIZE})
endif()
if(ZEL_BUILD_FUZZ)
  # The library itself must count what it reaches, or the fuzzer gropes in the dark.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(ZEL_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()

# Link-time optimisation is off everywhere, since it was measured to cost more than it gives (bench_runtime
# and bench_base, best of three, g++ 12): making a short string 1.4 times the time and a long one 7 times,
# building a property set 1.4 to 1.7 times, widening ASCII text 2 times; the encoder's time is x265's. What it
# gains is small: looking up a format 0.6 times, a window on a byte array 0.6 times.
if(ZEL_LTO)
  include(CheckIPOSupported)
  check_ipo_supported(LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
