# The language and the warnings that all of our own code is compiled with.
# Targets take them from torvane_options.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(TORVANE_SANITIZER "" CACHE STRING
    "Sanitizer to build with: empty, address (with undefined) or thread")
set_property(CACHE TORVANE_SANITIZER PROPERTY STRINGS "" address thread)

option(TORVANE_RTTI "Build with run-time type information, for subclasses that have it" OFF)
if(TORVANE_RTTI)
  set(torvane_rtti_flag -frtti)
else()
  set(torvane_rtti_flag -fno-rtti)
endif()

# Another project may have a compiler that warns of more.
set(werror)
if(PROJECT_IS_TOP_LEVEL)
  set(werror -Werror)
endif()

add_library(torvane_options INTERFACE)
target_compile_options(torvane_options INTERFACE
  -Wall -Wextra ${werror}
  -fno-exceptions
  ${torvane_rtti_flag}
  # Makes delete through a virtual destructor call the unsized global operator
  # delete.
  -fno-sized-deallocation
  # Makes file names in log records relative to the source root. Those of
  # generated sources are relative to the generated root (RpcGenerate.cmake).
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC otherwise removes the store by which raw_ptr's destructor nulls it.
  target_compile_options(torvane_options INTERFACE -fno-lifetime-dse)
  # GCC 12 warns of overlapping copies inside std::string's operator+ where
  # there are none (its bug 105329).
  target_compile_options(torvane_options INTERFACE -Wno-restrict)
endif()

if(TORVANE_SANITIZER STREQUAL "address")
  # Tail calls would remove the stack frames that leak suppressions name.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -fno-optimize-sibling-calls)
  add_link_options(-fsanitize=address,undefined)
elseif(TORVANE_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(TORVANE_SANITIZER)
  message(FATAL_ERROR "TORVANE_SANITIZER is '${TORVANE_SANITIZER}': "
                      "expected empty, address or thread")
endif()

option(TORVANE_FUZZING "Build fuzzers that make inputs of their own; needs Clang" OFF)
if(TORVANE_FUZZING)
  target_compile_options(torvane_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

option(TORVANE_COVERAGE "Count how often each line runs; needs Clang" OFF)
if(TORVANE_COVERAGE)
  set(profile_flag -fprofile-instr-generate=${PROJECT_BINARY_DIR}/unnamed.profraw)
  # Relocatable counters let LLVM map them to their file, so that they are kept
  # however the process ends.
  target_compile_options(torvane_options INTERFACE
    ${profile_flag} -fcoverage-mapping
    "SHELL:-mllvm -runtime-counter-relocation")
  add_link_options(${profile_flag})
endif()
