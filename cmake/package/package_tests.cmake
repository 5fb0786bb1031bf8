# Projects outside of this one that use it. Not in the sanitizer builds: they would
# only be built once more.
if(NOT BUILD_TESTING OR TORVANE_SANITIZER OR TORVANE_FUZZING OR TORVANE_COVERAGE)
  return()
endif()

function(add_consumer_test way)
  add_test(NAME apps/package/${way}
    COMMAND ${TORVANE_PYTHON} -B ${CMAKE_CURRENT_SOURCE_DIR}/consumer_test.py ${way}
            ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${CMAKE_CXX_COMPILER} ${ARGN})
  set_tests_properties(apps/package/${way} PROPERTIES LABELS apps TIMEOUT 1200)
endfunction()

add_consumer_test(subdirectory -DTORVANE_PARTITION_ALLOC_DIR=${TORVANE_PARTITION_ALLOC_DIR})
add_test(NAME apps/package/setup_without_apt
  COMMAND ${TORVANE_PYTHON} -B ${CMAKE_CURRENT_SOURCE_DIR}/setup_test.py ${PROJECT_SOURCE_DIR})
set_tests_properties(apps/package/setup_without_apt PROPERTIES LABELS apps)
add_test(NAME apps/package/scripts_from_anywhere
  COMMAND ${TORVANE_PYTHON} -B ${CMAKE_CURRENT_SOURCE_DIR}/scripts_test.py ${PROJECT_SOURCE_DIR})
set_tests_properties(apps/package/scripts_from_anywhere PROPERTIES LABELS apps)
add_test(NAME apps/package/generating_again
  COMMAND ${TORVANE_PYTHON} -B ${CMAKE_CURRENT_SOURCE_DIR}/rpc_generate_test.py
          ${PROJECT_SOURCE_DIR} $<TARGET_FILE:protoc-gen-rpc> ${CMAKE_CXX_COMPILER})
set_tests_properties(apps/package/generating_again PROPERTIES LABELS apps)
if(torvane_installs)
  add_consumer_test(installed)

  get_property(programs GLOBAL PROPERTY TORVANE_PROGRAMS)
  list(TRANSFORM programs REPLACE ".+" "$<TARGET_FILE:\\0>")
  add_test(NAME apps/package/pages
    COMMAND ${TORVANE_PYTHON} -B ${CMAKE_CURRENT_SOURCE_DIR}/pages_test.py
            ${PROJECT_BINARY_DIR}/pages ${programs})
  set_tests_properties(apps/package/pages PROPERTIES LABELS apps SKIP_RETURN_CODE 77)
endif()
