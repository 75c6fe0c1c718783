# How every test program is built and registered.

find_package(GTest REQUIRED)
find_package(Threads REQUIRED)
include(GoogleTest)

# tavrin_add_test(<name> SOURCES ... LIBRARIES ... [LABELS ...] [TIMEOUT seconds])
#
# One GoogleTest program; each of its tests becomes a test of its own in ctest, named as in the source.
function(tavrin_add_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  tavrin_target_options(${name})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
