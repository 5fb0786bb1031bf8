# torvane_add_fuzzer(<name> LABEL <label> SEEDS <glob>... [SOURCES <file>...]
#                    [MUTATOR <file>] [DICTIONARY <file>] [LIBS <target>...])
#
# A libFuzzer program. SOURCES defaults to <name>.cc. Its stored inputs are the
# files that SEEDS names and those in testdata/regressions/<name>, each of which
# has once found a fault.
#
# If TORVANE_FUZZING is on, as in the preset fuzz, it makes inputs of its own,
# with the help of MUTATOR and DICTIONARY; the target "fuzzers" builds all
# fuzzers, and scripts/fuzz runs them. In every other build it is a test program
# with one test for each stored input, so that no fault comes back.
set(TORVANE_FUZZER_DIR ${PROJECT_BINARY_DIR}/fuzzers)
set(TORVANE_FUZZING_DIR ${PROJECT_SOURCE_DIR}/src/core/common/rpc/testing)
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(fuzzers)
endif()

function(torvane_add_fuzzer name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(arg "" "LABEL;MUTATOR;DICTIONARY" "SEEDS;SOURCES;LIBS" ${ARGN})
  if(NOT arg_SOURCES)
    set(arg_SOURCES ${name}.cc)
  endif()
  file(GLOB inputs CONFIGURE_DEPENDS ${arg_SEEDS} testdata/regressions/${name}/*)
  if(NOT inputs)
    message(FATAL_ERROR "torvane_add_fuzzer(${name}): no file is named by SEEDS")
  endif()
  # A comma-separated list, for libFuzzer's option -seed_inputs.
  list(JOIN inputs "," joined_inputs)
  file(CONFIGURE OUTPUT ${TORVANE_FUZZER_DIR}/${name}.inputs
       CONTENT "${joined_inputs}" @ONLY)

  if(TORVANE_FUZZING)
    add_executable(${name}
      ${arg_SOURCES} ${arg_MUTATOR} ${TORVANE_FUZZING_DIR}/fuzzer_init.cc)
    target_link_libraries(${name} PRIVATE
      torvane_options ${arg_LIBS} torvane_base GTest::gmock GTest::gtest
      torvane_leak_suppressions)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    if(arg_DICTIONARY)
      configure_file(${arg_DICTIONARY} ${TORVANE_FUZZER_DIR}/${name}.dict COPYONLY)
    endif()
    add_dependencies(fuzzers ${name})
  else()
    torvane_add_test(${name} LABEL ${arg_LABEL}
      SOURCES ${arg_SOURCES}
      LIBS torvane_fuzzer_replay ${arg_LIBS} torvane_base)
    set_target_properties(${name} PROPERTIES LINK_DEPENDS "${inputs}")
  endif()
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${TORVANE_FUZZER_DIR})
endfunction()
