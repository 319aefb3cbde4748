# The three ways in which this project adds code.

# zel_sources(FILE...): adds files of the calling folder to the library.
function(zel_sources)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(zel_objects PRIVATE ${ARGN})
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
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()

# zel_fuzz(NAME FILE...): one libFuzzer target.
function(zel_fuzz name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE zel_internal)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()

# zel_bench(NAME FILE...): one Google Benchmark program.
function(zel_bench name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zel_internal ${arg_LIBRARIES} benchmark::benchmark)
endfunction()
