# The ways in which this project adds code.

# zel_sources(FILE...): adds files of the calling folder to the library.
function(zel_sources)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(zel_objects PRIVATE ${ARGN})
endfunction()

# zel_pass_over_library_faults(TARGET [INTERFACE]): in a sanitizer's build, tells the program, or each
# program that links the target, which faults are those of libraries and not of their callers. It goes into
# the program itself: out of an archive nothing would pull it.
function(zel_pass_over_library_faults target)
  set(scope PRIVATE)
  if(ARGC GREATER 1)
    set(scope ${ARGV1})
  endif()
  if(ZEL_SANITIZE)
    target_sources(${target} ${scope}
      ${PROJECT_SOURCE_DIR}/tests/support/sanitizer_suppressions.cpp)
  endif()
endfunction()

# zel_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...] [TIMEOUT seconds]):
# one GoogleTest program. It links the library's archive, so that it reaches what is not exported too.
function(zel_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zel_internal zel_test_support ${arg_LIBRARIES}
    GTest::gmock GTest::gtest GTest::gtest_main)
  target_precompile_headers(${name} REUSE_FROM zel_test_headers)
  target_compile_options(${name} PRIVATE ${ZEL_QUICK_BUILD})
  if(ZEL_SANITIZE)
    # One process for all cases of a program: under a sanitizer, starting one costs more than most cases do.
    # What is skipped, `./dev sanitize` tells.
    add_test(NAME ${name} COMMAND ${name})
    math(EXPR whole_timeout "${arg_TIMEOUT} * 5")
    set_tests_properties(${name} PROPERTIES TIMEOUT ${whole_timeout} LABELS "${arg_LABELS}")
    return()
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()

# zel_fuzz(NAME FILE...): one libFuzzer target, build/PRESET/bin/fuzz/NAME. The suite runs it for two
# seconds over what tests/fuzz/corpus/NAME holds; `./dev fuzz` runs it for longer.
function(zel_fuzz name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE zel_internal)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin/fuzz)

  set(seeds)
  if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
    set(seeds ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
  endif()
  set(dictionary ${CMAKE_CURRENT_SOURCE_DIR}/dictionaries/${name}.dict)
  if(EXISTS ${dictionary})
    list(PREPEND seeds -dict=${dictionary})
  endif()
  set(smoke_corpus ${PROJECT_BINARY_DIR}/corpus/smoke/${name})
  file(MAKE_DIRECTORY ${smoke_corpus})
  add_test(NAME fuzz_smoke.${name}
    COMMAND ${name} -seed=1 -max_total_time=2 -timeout=20 ${smoke_corpus} ${seeds})
  set_tests_properties(fuzz_smoke.${name} PROPERTIES LABELS fuzz TIMEOUT 120)
endfunction()

# zel_bench(NAME SOURCES file... [LIBRARIES target...]): one Google Benchmark program,
# build/PRESET/bin/bench/NAME.
function(zel_bench name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zel_internal ${arg_LIBRARIES} benchmark::benchmark)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin/bench)
endfunction()
