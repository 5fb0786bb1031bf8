# The libraries and programs that the build needs. scripts/setup installs them.

# Global, for a project that adds this one with add_subdirectory().
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)

find_package(Threads REQUIRED)
find_package(Protobuf REQUIRED)
if(NOT TARGET protobuf::libprotoc)
  message(FATAL_ERROR "libprotoc is missing: run scripts/setup")
endif()

# Abseil: the system's own if it has absl/log, otherwise the one that
# scripts/setup has built. A sanitizer needs an Abseil built with it, since
# Abseil's containers are partly inlined into our code.
if(DEFINED ENV{TORVANE_CACHE_DIR})
  set(torvane_cache_dir $ENV{TORVANE_CACHE_DIR})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(torvane_cache_dir $ENV{XDG_CACHE_HOME}/torvane)
else()
  set(torvane_cache_dir $ENV{HOME}/.cache/torvane)
endif()
if(TORVANE_SANITIZER)
  set(torvane_abseil_variant ${TORVANE_SANITIZER})
else()
  set(torvane_abseil_variant plain)
endif()

if(NOT TORVANE_SANITIZER AND EXISTS /usr/include/absl/log/absl_log.h)
  find_package(absl REQUIRED CONFIG)
else()
  find_package(absl CONFIG NO_DEFAULT_PATH QUIET
               PATHS ${torvane_cache_dir}/abseil-20240722.0/${torvane_abseil_variant})
  if(NOT absl_FOUND)
    message(FATAL_ERROR "Abseil is missing from ${torvane_cache_dir}: "
                        "run scripts/setup")
  endif()
endif()

# Stand-alone Asio, without exceptions and run-time type information. Always
# include it through core/common/rpc/loop/asio.h, which defines the function
# that Asio calls instead of throwing. Its own code is compiled in loop/asio.cc.
find_path(TORVANE_ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(torvane_asio INTERFACE)
target_include_directories(torvane_asio SYSTEM INTERFACE ${TORVANE_ASIO_INCLUDE_DIR})
target_compile_definitions(torvane_asio INTERFACE
  ASIO_STANDALONE ASIO_SEPARATE_COMPILATION ASIO_NO_EXCEPTIONS ASIO_NO_TYPEID ASIO_NO_DEPRECATED)
target_link_libraries(torvane_asio INTERFACE Threads::Threads)

if(BUILD_TESTING)
  find_package(GTest REQUIRED)
endif()
