# Checks of the sources themselves, as tests with the label "lint": layout (clang-format), clang-tidy over
# every source file, cppcheck over the libraries and the program, and the documentation, which must build without a
# warning. Beside them one end-to-end run under valgrind, which sees what instrumented builds do not: memory that was never
# written, in code that is not ours too. GCC's own analyzer is left out: GCC 12 does not know C++ (its documents
# say so), and takes every exception for a leak.
#
# They are about the sources and not about a build, so one build directory is enough: they are registered
# only where the tools are found and nothing is instrumented. They belong to a configuration of their own, so
# that `ctest --preset lint` runs them and nothing else does, whatever labels it is told to leave out.

find_program(TAVRIN_CLANG_FORMAT NAMES clang-format-14 clang-format)
find_program(TAVRIN_CLANG_TIDY NAMES clang-tidy-14 clang-tidy)
find_program(TAVRIN_DOXYGEN NAMES doxygen)
find_program(TAVRIN_CPPCHECK NAMES cppcheck)
find_program(TAVRIN_VALGRIND NAMES valgrind)
mark_as_advanced(TAVRIN_CLANG_FORMAT TAVRIN_CLANG_TIDY TAVRIN_DOXYGEN TAVRIN_CPPCHECK TAVRIN_VALGRIND)

function(tavrin_add_lint name)
  add_test(NAME lint.${name} CONFIGURATIONS Lint COMMAND ${ARGN}
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}")
  set_tests_properties(lint.${name} PROPERTIES LABELS lint TIMEOUT 600)
endfunction()

# One test per source file of every target that takes our options.
function(tavrin_lint_targets)
  get_property(targets GLOBAL PROPERTY TAVRIN_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(sources ${target} SOURCES)
    get_target_property(directory ${target} SOURCE_DIR)
    foreach(source IN LISTS sources)
      cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${directory}" NORMALIZE)
      cmake_path(IS_PREFIX PROJECT_SOURCE_DIR "${source}" ours)
      if(ours AND source MATCHES "\\.cpp$")
        list(APPEND files "${source}")
      endif()
    endforeach()
  endforeach()
  list(REMOVE_DUPLICATES files)
  foreach(file IN LISTS files)
    cmake_path(RELATIVE_PATH file BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE name)
    tavrin_add_lint("tidy.${name}" "${TAVRIN_CLANG_TIDY}" --quiet -p "${PROJECT_BINARY_DIR}" "${name}")
  endforeach()
  # These are no targets here: only Clang builds them.
  file(GLOB fuzzers RELATIVE "${PROJECT_SOURCE_DIR}" CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/Fuzz/*.cpp")
  foreach(name IN LISTS fuzzers)
    tavrin_add_lint("tidy.${name}" "${TAVRIN_CLANG_TIDY}" --quiet "${name}" --
      -std=c++20 -I. -Itests "-I${PROJECT_BINARY_DIR}/include")
  endforeach()
endfunction()

if(TAVRIN_SANITIZE OR TAVRIN_COVERAGE)
  return()
endif()
if(TAVRIN_CLANG_FORMAT)
  tavrin_add_lint(format "${PROJECT_SOURCE_DIR}/scripts/format" --check "${TAVRIN_CLANG_FORMAT}")
endif()
if(TAVRIN_CLANG_TIDY AND CMAKE_EXPORT_COMPILE_COMMANDS)
  tavrin_lint_targets()
endif()
if(TAVRIN_CPPCHECK)
  tavrin_add_lint(cppcheck "${TAVRIN_CPPCHECK}" --quiet --std=c++20 --language=c++
    --enable=warning,performance,portability --inline-suppr --error-exitcode=1
    "--suppressions-list=${PROJECT_SOURCE_DIR}/cmake/cppcheck-suppressions.txt"
    -I. -I "${PROJECT_BINARY_DIR}/include" Time Tools Logging Player Playout apps)
endif()
if(TAVRIN_VALGRIND)
  tavrin_add_lint(valgrind "${TAVRIN_VALGRIND}" --quiet --error-exitcode=1 --leak-check=full
    --errors-for-leak-kinds=definite,indirect $<TARGET_FILE:EndToEndTest> --gtest_brief=1)
endif()
if(TAVRIN_DOXYGEN)
  set(doxygen_output "${PROJECT_BINARY_DIR}/doc")
  configure_file(docs/Doxyfile.in "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
  file(MAKE_DIRECTORY "${doxygen_output}")
  tavrin_add_lint(documentation "${TAVRIN_DOXYGEN}" "${PROJECT_BINARY_DIR}/Doxyfile")
endif()
