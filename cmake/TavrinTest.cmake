# How every test program is built and registered.

find_package(GTest REQUIRED)
find_package(Threads REQUIRED)
include(GoogleTest)

# Instrumented code takes long to compile: the tests read the headers that they all share once.
option(TAVRIN_SHARE_TEST_HEADERS "Compile the headers that all tests include once; always so when instrumented" OFF)
set(TAVRIN_TEST_HEADERS <gtest/gtest.h> <gmock/gmock.h> <algorithm> <chrono> <functional> <map> <memory> <optional>
  <random> <string> <thread> <vector>)
function(tavrin_share_headers target)
  if(NOT TARGET TavrinTestHeaders)
    file(GENERATE OUTPUT "${PROJECT_BINARY_DIR}/TavrinTestHeaders.cpp" CONTENT "")
    add_library(TavrinTestHeaders STATIC "${PROJECT_BINARY_DIR}/TavrinTestHeaders.cpp")
    target_compile_features(TavrinTestHeaders PRIVATE cxx_std_20)
    tavrin_target_options(TavrinTestHeaders)
    tavrin_compile_quickly(TavrinTestHeaders)
    target_compile_options(TavrinTestHeaders PRIVATE -fPIE)
    target_link_libraries(TavrinTestHeaders PRIVATE GTest::gmock Threads::Threads)
    target_precompile_headers(TavrinTestHeaders PRIVATE ${TAVRIN_TEST_HEADERS})
  endif()
  target_precompile_headers(${target} REUSE_FROM TavrinTestHeaders)
endfunction()

# tavrin_add_test(<name> SOURCES ... LIBRARIES ... [LABELS ...] [TIMEOUT seconds] [ONE_THREAD])
#
# One GoogleTest program; each of its tests becomes a test of its own in ctest, named as in the source. An instrumented
# program takes long to begin: there, each half of its tests is one. A program of one thread tells the thread sanitizer
# nothing, and is left out there.
function(tavrin_add_test name)
  cmake_parse_arguments(arg "ONE_THREAD" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(arg_ONE_THREAD AND TAVRIN_SANITIZE STREQUAL "thread")
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  tavrin_target_options(${name})
  tavrin_compile_quickly(${name})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main Threads::Threads)
  if(TAVRIN_SANITIZE OR TAVRIN_SHARE_TEST_HEADERS)
    tavrin_share_headers(${name})
  endif()
  if(NOT TAVRIN_SANITIZE)
    gtest_discover_tests(${name}
      DISCOVERY_MODE PRE_TEST
      DISCOVERY_TIMEOUT 60
      PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
    return()
  endif()
  foreach(half 0 1)
    add_test(NAME ${name}.${half} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name}.${half} PROPERTIES
      ENVIRONMENT "GTEST_TOTAL_SHARDS=2;GTEST_SHARD_INDEX=${half}"
      TIMEOUT 900
      LABELS "${arg_LABELS}")
  endforeach()
endfunction()
