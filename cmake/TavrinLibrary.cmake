# How every library and program of ours is built: one place for flags, visibility and install rules.

include(GenerateExportHeader)

# Warnings, sanitizers and coverage, for one target only.
function(tavrin_target_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  # GCC 12 sees overlapping copies in std::string's operator+ when it optimises (its bug 105651).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(TAVRIN_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(TAVRIN_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${TAVRIN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${TAVRIN_SANITIZE})
    # Clang compares the types of functions by address, and each library has its own: no call of a function that came
    # from another library would pass.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND TAVRIN_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fno-sanitize=function)
    endif()
    # Instrumented, the standard library's std::function looks uninitialised to GCC 12.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
  endif()
  if(TAVRIN_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PRIVATE --coverage)
  endif()
  set_property(GLOBAL APPEND PROPERTY TAVRIN_TARGETS ${target})
endfunction()

# For tests and programs: instrumented code takes long to compile, so only the libraries, where the work is done,
# are optimised then, as they are when they are used.
function(tavrin_compile_quickly target)
  if(TAVRIN_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# tavrin_add_library(<Name> HEADERS ... SOURCES ... [PRIVATE_HEADERS ...])
#
# A shared library Tavrin<Name> with the alias Tavrin::<Name>, built from files of the directory <Name>,
# whose installed headers are included as "<Name>/<Class>.h". The export macro TAVRIN_<NAME>_EXPORT comes
# from the generated header "<Name>/<Name>Export.h". Only symbols of our own namespaces leave the library:
# the version script keeps back the instantiations of standard templates, which their own namespace marks
# visible.
function(tavrin_add_library name)
  cmake_parse_arguments(arg "" "" "HEADERS;SOURCES;PRIVATE_HEADERS" ${ARGN})
  set(target Tavrin${name})
  string(TOUPPER ${name} upper)
  string(TOLOWER ${name} lower)

  add_library(${target} SHARED ${arg_SOURCES} ${arg_HEADERS} ${arg_PRIVATE_HEADERS})
  add_library(Tavrin::${name} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_20)
  tavrin_target_options(${target})

  # Nobody replaces our functions from outside, so calls within a library need not go through its table of
  # imports and small functions can be inlined. Clang takes that for granted.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()

  set(script "${PROJECT_SOURCE_DIR}/cmake/exports.map")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME tavrin-${lower}
    EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    INSTALL_RPATH "$ORIGIN"
    LINK_DEPENDS "${script}")

  set(generated "${PROJECT_BINARY_DIR}/include")
  generate_export_header(${target}
    BASE_NAME TAVRIN_${upper}
    EXPORT_FILE_NAME "${generated}/${name}/${name}Export.h")
  target_include_directories(${target} PUBLIC
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
    "$<BUILD_INTERFACE:${generated}>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tavrin>")

  install(TARGETS ${target} EXPORT TavrinTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libtavrin NAMELINK_COMPONENT libtavrin-dev
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tavrin")
  install(FILES ${arg_HEADERS} "${generated}/${name}/${name}Export.h"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tavrin/${name}" COMPONENT libtavrin-dev)
endfunction()

# tavrin_add_program(<name> SOURCES ... LIBRARIES ...)
#
# A program of ours, installed so that it finds the libraries beside it wherever the prefix is moved.
function(tavrin_add_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  tavrin_target_options(${name})
  tavrin_compile_quickly(${name})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  file(RELATIVE_PATH libraries "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
  install(TARGETS ${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tavrin-playout)
endfunction()
