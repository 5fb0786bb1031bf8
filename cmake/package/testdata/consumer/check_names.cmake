# Fails if the project that was taken in has left names that do not begin with its
# own: targets, or variables in the cache. What CMake's modules and the packages
# that it finds put there is theirs.
function(check_targets folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  list(FILTER targets EXCLUDE REGEX "^(torvane_|protoc-gen-rpc$)")
  if(targets)
    message(SEND_ERROR "Targets of ${folder}: ${targets}")
  endif()
  get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(folder IN LISTS folders)
    check_targets(${folder})
  endforeach()
endfunction()
check_targets(${torvane_SOURCE_DIR})

get_cmake_property(cache_after CACHE_VARIABLES)
list(REMOVE_ITEM cache_after ${cache_before})
string(CONCAT accepted
  "^(TORVANE|torvane|Protobuf|absl|CMAKE|FIND_PACKAGE|PKG_CONFIG)_"
  "|_(BINARY_DIR|SOURCE_DIR|IS_TOP_LEVEL)$"
  "|^(pkgcfg_lib|__pkg_config_(arguments|checked))_TORVANE_|^prefix_result$")
list(FILTER cache_after EXCLUDE REGEX "${accepted}")
if(cache_after)
  message(SEND_ERROR "Variables in the cache: ${cache_after}")
endif()
if(BUILD_TESTING OR CMAKE_EXPORT_COMPILE_COMMANDS OR CMAKE_POSITION_INDEPENDENT_CODE)
  message(SEND_ERROR "Settings of the project that was taken in hold for this one")
endif()
