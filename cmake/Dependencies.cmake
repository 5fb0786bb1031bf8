# The libraries and programs that the build needs. scripts/setup installs them.

# Global, for a project that adds this one with add_subdirectory().
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)

find_package(Threads REQUIRED)
find_package(Protobuf REQUIRED)
if(NOT TARGET protobuf::libprotoc)
  message(FATAL_ERROR "libprotoc is missing: run scripts/setup")
endif()

torvane_find_abseil()
# From its release 22 on, protobuf's headers use Abseil, which CMake's module does
# not tell. Older ones number themselves 3.
if(NOT Protobuf_VERSION VERSION_LESS 4)
  target_link_libraries(protobuf::libprotobuf INTERFACE
    absl::absl_check absl::absl_log absl::flat_hash_map absl::status absl::strings)
  # They want the result of each reader looked at. What ours read, they have written
  # themselves.
  target_compile_options(torvane_options INTERFACE -Wno-unused-result)
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
