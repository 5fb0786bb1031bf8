# torvane_add_test(<name> LABEL <label> [THREADED] [OPTIMISED] [SOURCES <file>...]
#                  [LIBS <target>...])
#
# A GoogleTest program whose tests CTest lists one by one, under one of the
# labels system, generator, base, transport, apps and browser. SOURCES defaults to
# <name>.cc. THREADED programs use several threads and are also run under
# ThreadSanitizer; the target threaded_tests builds them. Their label is
# <label>-threaded, which both "ctest -L <label>" and "ctest -L threaded" select.
#
# Test sources are two thirds of a build. To make it faster they are compiled
# without optimisation and with a precompiled header. OPTIMISED programs, which
# test what optimisation may break, are compiled like libraries.
include(GoogleTest)

# Whose precompiled header tests use: a library of torvane_add_test_prelude().
# Folders whose tests all include more set another one.
set(TORVANE_TEST_PRELUDE torvane_test_prelude)

# Fuzzers that make inputs of their own must be fast, so they are optimised.
if(TORVANE_FUZZING)
  set(TORVANE_TEST_OPTIMISATION)
else()
  set(TORVANE_TEST_OPTIMISATION -O0)
endif()

# Compiles the target's sources like those of tests.
function(torvane_compile_as_test target)
  target_link_libraries(${target} PRIVATE torvane_test_libraries)
  target_compile_options(${target} PRIVATE ${TORVANE_TEST_OPTIMISATION})
  # The precompiled header can only be used with the flags that it was compiled
  # with, so libraries and programs must agree on this one.
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  if(NOT target STREQUAL TORVANE_TEST_PRELUDE)
    target_precompile_headers(${target} REUSE_FROM ${TORVANE_TEST_PRELUDE})
  endif()
endfunction()

# torvane_compile_with_exceptions(<source>...)
#
# Compiles sources of a test as those who use us may compile theirs. The
# precompiled header is for other flags.
function(torvane_compile_with_exceptions)
  set_source_files_properties(${ARGN} PROPERTIES
    COMPILE_OPTIONS -fexceptions
    SKIP_PRECOMPILE_HEADERS ON)
endfunction()

# torvane_add_test_prelude(<header> [<library>...])
#
# Makes the library TORVANE_TEST_PRELUDE, which compiles the header and nothing
# else. The libraries are those that the header needs.
function(torvane_add_test_prelude header)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${TORVANE_TEST_PRELUDE}.cc)
  file(CONFIGURE OUTPUT ${source} CONTENT "")
  add_library(${TORVANE_TEST_PRELUDE} OBJECT ${source})
  target_link_libraries(${TORVANE_TEST_PRELUDE} PRIVATE ${ARGN})
  torvane_compile_as_test(${TORVANE_TEST_PRELUDE})
  target_precompile_headers(${TORVANE_TEST_PRELUDE} PRIVATE ${header})
endfunction()

function(torvane_add_test name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(arg "THREADED;OPTIMISED" "LABEL" "SOURCES;LIBS" ${ARGN})
  if(NOT arg_LABEL IN_LIST TORVANE_TEST_LABELS OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "torvane_add_test(${name}): LABEL must be one of "
                        "${TORVANE_TEST_LABELS}; unknown: '${arg_UNPARSED_ARGUMENTS}'")
  endif()
  if(NOT arg_SOURCES)
    set(arg_SOURCES ${name}.cc)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE torvane_options ${arg_LIBS} GTest::gmock
                                        GTest::gtest GTest::gtest_main)
  if(NOT arg_OPTIMISED)
    torvane_compile_as_test(${name})
  endif()
  if(TORVANE_SANITIZER STREQUAL "address")
    target_link_libraries(${name} PRIVATE torvane_leak_suppressions)
  endif()
  set(label ${arg_LABEL})
  if(arg_THREADED)
    set(label ${arg_LABEL}-threaded)
    add_dependencies(threaded_tests ${name})
  endif()
  gtest_discover_tests(${name}
    TEST_PREFIX "${arg_LABEL}/${name}/"
    NO_PRETTY_VALUES
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${label})
endfunction()

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(threaded_tests)
endif()
set(TORVANE_TEST_LABELS system generator base transport apps browser)
