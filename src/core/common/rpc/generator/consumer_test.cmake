# Builds a project that uses this one from outside, and runs its program.

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE status
                  OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGV}\n${output}")
  endif()
endfunction()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${BINARY_DIR} -G Ninja
    -DCMAKE_CXX_COMPILER=${COMPILER} -DTORVANE_DIR=${TORVANE_DIR}
    -DTORVANE_PARTITION_ALLOC_DIR=${PARTITION_ALLOC_DIR})
run(${CMAKE_COMMAND} --build ${BINARY_DIR} --target consumer readme)

execute_process(COMMAND ${BINARY_DIR}/consumer RESULT_VARIABLE status
                OUTPUT_VARIABLE output)
if(NOT output STREQUAL "1 cents\n" OR NOT status EQUAL 0)
  message(FATAL_ERROR "The program ended with ${status} and said: ${output}")
endif()

execute_process(COMMAND ${BINARY_DIR}/consumer fail RESULT_VARIABLE status
                OUTPUT_QUIET ERROR_VARIABLE errors)
if(status EQUAL 0 OR
   NOT errors MATCHES "Streaming method can't be called with this call\\.")
  message(FATAL_ERROR "The program ended with ${status} and said: ${errors}")
endif()
