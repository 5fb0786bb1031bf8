# torvane_add_test(<name> LABEL <label> [THREADED] [SOURCES <file>...]
#                  [LIBS <target>...])
#
# A GoogleTest program whose tests CTest lists one by one, under one of the
# labels system, generator, base, transport and apps. SOURCES defaults to
# <name>.cc. THREADED programs are those that ThreadSanitizer has something to
# say on; the target threaded_tests builds them. Their label is
# <label>-threaded, which both "ctest -L <label>" and "ctest -L threaded" select.
include(GoogleTest)

function(torvane_add_test name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(arg "THREADED" "LABEL" "SOURCES;LIBS" ${ARGN})
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

add_custom_target(threaded_tests)
set(TORVANE_TEST_LABELS system generator base transport apps)
