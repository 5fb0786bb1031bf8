# gRPC for C++, if it is there: then the target torvane_grpcpp is, and all that
# serves over gRPC is built. scripts/setup --grpc installs it.
#
# gRPC's own CMake package would bring the Abseil that it was built with, beside
# ours, so the libraries are named here. The two Abseils of one program do not
# meet: their symbols have different names.
#
# ThreadSanitizer does not see what an uninstrumented gRPC does between its
# threads and ours, and would report it.
if(TORVANE_SANITIZER STREQUAL "thread")
  return()
endif()
find_path(TORVANE_GRPC_INCLUDE_DIR grpcpp/generic/async_generic_service.h)
find_library(TORVANE_GRPCPP_LIBRARY grpc++)
find_library(TORVANE_GRPC_LIBRARY grpc)
find_library(TORVANE_GPR_LIBRARY gpr)
if(TORVANE_GRPC_INCLUDE_DIR AND TORVANE_GRPCPP_LIBRARY AND TORVANE_GRPC_LIBRARY
   AND TORVANE_GPR_LIBRARY)
  # Where the contract for gRPC clients is made: its root for imports.
  set(TORVANE_GRPC_CONTRACT_DIR ${PROJECT_BINARY_DIR}/grpc_contract)
  add_library(torvane_grpcpp INTERFACE IMPORTED GLOBAL)
  target_link_libraries(torvane_grpcpp INTERFACE
    ${TORVANE_GRPCPP_LIBRARY} ${TORVANE_GRPC_LIBRARY} ${TORVANE_GPR_LIBRARY})
else()
  message(STATUS "gRPC is missing: no rpc_gateway (scripts/setup --grpc installs it)")
endif()
