# torvane_precompile(<target>)
#
# Compiles the sources of a static library of ours on a precompiled header of
# what most of them include (prelude.h): half of the time goes into parsing that.
# A source still includes what it uses itself. Programs have one source or two
# and are compiled with other flags, so they do without it.
#
# Not for the stream framework and the generator, which are small and are compiled
# before the rest.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/prelude.cc CONTENT "")
add_library(torvane_prelude OBJECT EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/prelude.cc)
target_link_libraries(torvane_prelude PRIVATE
  torvane_options protobuf::libprotobuf
  absl::any_invocable absl::flat_hash_map absl::flat_hash_set absl::absl_check
  absl::absl_log absl::status absl::statusor absl::strings)
target_precompile_headers(torvane_prelude PRIVATE ${PROJECT_SOURCE_DIR}/cmake/prelude.h)

function(torvane_precompile target)
  target_precompile_headers(${target} REUSE_FROM torvane_prelude)
endfunction()
