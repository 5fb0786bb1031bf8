# torvane_add_benchmark(<name> [SOURCES <file>...] [LIBS <target>...])
#
# A Google Benchmark program. SOURCES defaults to <name>.cc. Benchmarks are left
# out of the ordinary build; the target "benchmarks" builds them all. Those of
# other RPC systems, the peers, need packages that nothing else does, and are
# among them only if TORVANE_BENCHMARKS is on. scripts/bench does it all.
if(PROJECT_IS_TOP_LEVEL)
  option(TORVANE_BENCHMARKS "Build the peers that the service is held against" OFF)
  if(TORVANE_BENCHMARKS)
    find_package(benchmark REQUIRED)
  else()
    find_package(benchmark QUIET)
  endif()
  add_custom_target(benchmarks)
endif()

function(torvane_add_benchmark name)
  if(NOT benchmark_FOUND OR NOT PROJECT_IS_TOP_LEVEL)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  if(NOT arg_SOURCES)
    set(arg_SOURCES ${name}.cc)
  endif()
  add_executable(${name} EXCLUDE_FROM_ALL ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE
    torvane_options ${arg_LIBS} benchmark::benchmark_main)
  add_dependencies(benchmarks ${name})
endfunction()
