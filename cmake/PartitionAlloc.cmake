# The browser's own checked pointer, and the allocator that it registers with,
# in place of the stand-in of src/base.
#
#   -DTORVANE_PARTITION_ALLOC_DIR=<folder>
#
# names Chromium's folder base/allocator/partition_allocator; a relative path
# counts from this project's root. "cached" is the one that
# scripts/fetch-partition-alloc has put into the cache. It is built as the static
# library torvane_partition_alloc. Whoever links torvane_base gets it, and with it
# a malloc whose memory the checked pointers protect.

set(TORVANE_PARTITION_ALLOC_DIR "" CACHE STRING
    "Chromium's folder base/allocator/partition_allocator, or 'cached'")
if(NOT TORVANE_PARTITION_ALLOC_DIR)
  return()
endif()
block()

# A sanitizer may be turned on by us, on the command line, or by a project that
# includes ours. If it is turned on later, raw_ptr.h refuses most of them.
string(TOUPPER "${CMAKE_BUILD_TYPE}" config)
get_directory_property(compile_options COMPILE_OPTIONS)
get_directory_property(link_options LINK_OPTIONS)
if(TORVANE_SANITIZER OR
   "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${config}} ${CMAKE_EXE_LINKER_FLAGS} \
${CMAKE_EXE_LINKER_FLAGS_${config}} ${compile_options} ${link_options}"
   MATCHES "-fsanitize=[a-z,-]*(address|leak|memory|thread)")
  message(FATAL_ERROR
    "TORVANE_PARTITION_ALLOC_DIR cannot be combined with AddressSanitizer or "
    "its like: both take the place of malloc")
endif()

set(partition_alloc_dir ${TORVANE_PARTITION_ALLOC_DIR})
if(partition_alloc_dir STREQUAL "cached")
  set(partition_alloc_dir ${torvane_cache_dir}/partition_allocator)
  if(NOT EXISTS ${partition_alloc_dir})
    message(FATAL_ERROR "PartitionAlloc is missing from ${torvane_cache_dir}: "
                        "run scripts/fetch-partition-alloc")
  endif()
endif()
cmake_path(ABSOLUTE_PATH partition_alloc_dir NORMALIZE)
set(build_gn ${partition_alloc_dir}/src/partition_alloc/BUILD.gn)
if(NOT EXISTS ${build_gn})
  message(FATAL_ERROR "TORVANE_PARTITION_ALLOC_DIR is not Chromium's "
                      "partition_allocator: ${build_gn} is missing")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${build_gn})
message(STATUS "PartitionAlloc: ${partition_alloc_dir}")

# Build flags. The names are those of BUILD.gn in the release, the values are
# ours. Flags that are not listed here are off.

# Without these the checked pointer would silently protect less, or nothing.
set(essential_flags
  ENABLE_BACKUP_REF_PTR_SLOW_CHECKS=1
  ENABLE_BACKUP_REF_PTR_SUPPORT=1
  ENABLE_POINTER_ARITHMETIC_TRAIT_CHECK=1
  HAS_64_BIT_POINTERS=1
  RAW_PTR_ZERO_ON_CONSTRUCT=1
  RAW_PTR_ZERO_ON_DESTRUCT=1
  RAW_PTR_ZERO_ON_MOVE=1
  USE_ALLOCATOR_SHIM=1
  USE_PARTITION_ALLOC=1
  USE_PARTITION_ALLOC_AS_MALLOC=1
  USE_RAW_PTR_BACKUP_REF_IMPL=1)
# As the browser sets them, if the release still has them.
set(flags
  ${essential_flags}
  BACKUP_REF_PTR_EXTRA_OOB_CHECKS=1
  ENABLE_BACKUP_REF_PTR_FEATURE_FLAG=1
  ENABLE_GWP_ASAN_SUPPORT=1
  ENABLE_MOVE_METADATA_OUT_OF_GIGACAGE_TRIAL=1
  ENABLE_USER_SPACE_ZERO_SEGMENT=1
  MOVE_METADATA_OUT_OF_GIGACAGE_FOR_64_BITS_POINTERS=1
  STACK_SCAN_SUPPORTED=1
  USER_SPACE_ZERO_SEGMENT_SIZE_MB=4097
  USE_LARGE_EMPTY_SLOT_SPAN_RING=1)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$")
  set(processor x64)
  list(APPEND flags ENABLE_PKEYS=1 ENABLE_THREAD_ISOLATION=1)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(processor arm64)
else()
  message(FATAL_ERROR "TORVANE_PARTITION_ALLOC_DIR: the checked pointer's pool "
                      "is not known to work on ${CMAKE_SYSTEM_PROCESSOR}")
endif()

file(STRINGS ${build_gn} flag_names REGEX "^ *\"[A-Z0-9_]+=\\$[a-z0-9_]+\",$")
list(TRANSFORM flag_names REPLACE "^ *\"([A-Z0-9_]+)=.*" "\\1")
foreach(flag IN LISTS essential_flags)
  string(REGEX REPLACE "=.*" "" name ${flag})
  if(NOT name IN_LIST flag_names)
    message(FATAL_ERROR "TORVANE_PARTITION_ALLOC_DIR: ${build_gn} knows no "
                        "build flag ${name}; another release may")
  endif()
endforeach()

set(buildflags "#pragma once\n#include \"partition_alloc/buildflag.h\"\n")
foreach(name IN LISTS flag_names)
  set(value 0)
  foreach(flag IN LISTS flags)
    if(flag MATCHES "^${name}=(.*)")
      set(value ${CMAKE_MATCH_1})
    endif()
  endforeach()
  string(APPEND buildflags "#define PA_BUILDFLAG_INTERNAL_${name}() (${value})\n")
endforeach()
set(gen_dir ${PROJECT_BINARY_DIR}/gen/partition_alloc)
file(CONFIGURE OUTPUT ${gen_dir}/partition_alloc/buildflags.h
     CONTENT "${buildflags}" @ONLY)

# Sources: everything except tests, other platforms and files for other kinds of
# build. Filtered by their paths within the release, since the folder around it
# may have any name.
file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${partition_alloc_dir}
     ${partition_alloc_dir}/src/partition_alloc/*.cc)
list(FILTER sources EXCLUDE REGEX "_(unittest|perftest|for_test|for_testing)\\.cc$")
list(FILTER sources EXCLUDE REGEX "/test/|/debug/proc_maps_linux\\.cc$|/extended_api\\.cc$")
list(FILTER sources EXCLUDE REGEX "[_/](android|apple|fuchsia|ios|mac|win|winheap)[_./]")
list(FILTER sources EXCLUDE REGEX "/empty\\.cc$|raw_ptr_(asan_unowned|hookable)_impl\\.cc$")
list(FILTER sources EXCLUDE REGEX "/(file_path|native_library|native_library_posix)\\.cc$")
list(FILTER sources EXCLUDE REGEX "dispatch_to_(glibc|linker_wrapped_symbols)\\.cc$")
list(FILTER sources EXCLUDE REGEX "stack/asm/")
list(APPEND sources src/partition_alloc/stack/asm/${processor}/push_registers_asm.cc)
list(TRANSFORM sources PREPEND ${partition_alloc_dir}/)

set(glue_dir ${CMAKE_CURRENT_LIST_DIR}/partition_alloc)
add_library(torvane_partition_alloc STATIC ${sources} ${glue_dir}/startup.cc)
# The glue comes first, since it replaces one of the shim's headers.
target_include_directories(torvane_partition_alloc SYSTEM
  PRIVATE ${glue_dir}
  PUBLIC ${partition_alloc_dir}/src ${gen_dir})
target_compile_options(torvane_partition_alloc
  PRIVATE -w -fno-exceptions -fno-rtti
  # GCC otherwise removes the store by which raw_ptr's destructor nulls it.
  PUBLIC $<$<CXX_COMPILER_ID:GNU>:-fno-lifetime-dse>)
target_link_libraries(torvane_partition_alloc
  PUBLIC Threads::Threads ${CMAKE_DL_LIBS})

# All of our own code finds base/memory/raw_ptr.h in the glue, ahead of src/.
target_include_directories(torvane_options BEFORE INTERFACE ${glue_dir})
target_include_directories(torvane_options SYSTEM INTERFACE
  ${partition_alloc_dir}/src ${gen_dir})

endblock()
