# torvane_find_abseil()
#
# Finds Abseil, in this order:
#
#   1. the targets absl::* that the project around this one has
#   2. the CMake package that absl_DIR or CMAKE_PREFIX_PATH names
#   3. the system's package
#   4. the one that scripts/setup has built, in the cache
#
# What does not do is passed over with a message that says why, except for what
# was named explicitly: targets and absl_DIR are errors then. It has to have
# absl/log. Our programs and tests, which are not built within another project,
# pass std::string_view to Abseil, so there its string_view has to be that one.
#
# A sanitizer needs an Abseil built with it, since Abseil's containers are partly
# inlined into our code: then only the cache is looked at.
#
# Sets torvane_cache_dir, and torvane_abseil_prefix: the folder of the cache's, if
# that is the one; otherwise empty.

if(DEFINED ENV{TORVANE_CACHE_DIR})
  set(torvane_cache_dir $ENV{TORVANE_CACHE_DIR})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(torvane_cache_dir $ENV{XDG_CACHE_HOME}/torvane)
else()
  set(torvane_cache_dir $ENV{HOME}/.cache/torvane)
endif()

# What is wrong with the Abseil whose headers are in the folder `include`; empty
# if it does. Sets `version` to its release, such as 20240722.
function(torvane_judge_abseil include fault version)
  set(${fault} "" PARENT_SCOPE)
  set(${version} "of an unknown release" PARENT_SCOPE)
  if(NOT EXISTS ${include}/absl/base/config.h)
    set(${fault} "${include} has no absl/base/config.h" PARENT_SCOPE)
    return()
  endif()
  file(STRINGS ${include}/absl/base/config.h release REGEX "^#define ABSL_LTS_RELEASE_VERSION ")
  if(release MATCHES " ([0-9]+)$")
    set(${version} ${CMAKE_MATCH_1} PARENT_SCOPE)
  endif()
  if(NOT EXISTS ${include}/absl/log/absl_log.h)
    set(${fault} "it has no absl/log, which came with release 20230125" PARENT_SCOPE)
    return()
  endif()
  file(STRINGS ${include}/absl/base/options.h own_string_view
       REGEX "^#define ABSL_OPTION_USE_STD_STRING_VIEW 0")
  if(own_string_view AND PROJECT_IS_TOP_LEVEL)
    set(${fault} "its absl::string_view is not std::string_view" PARENT_SCOPE)
  endif()
endfunction()

# The folder with the headers of the CMake package whose file is `config`.
function(torvane_abseil_include config include)
  set(folder ${config})
  while(NOT EXISTS ${folder}/include/absl AND NOT folder STREQUAL "/")
    cmake_path(GET folder PARENT_PATH folder)
  endwhile()
  set(${include} ${folder}/include PARENT_SCOPE)
endfunction()

# The parent's targets.
function(torvane_judge_abseil_targets)
  get_target_property(include absl::base INTERFACE_INCLUDE_DIRECTORIES)
  string(REGEX REPLACE "\\$<BUILD_INTERFACE:([^>]*)>.*" "\\1" include "${include}")
  list(GET include 0 include)
  torvane_judge_abseil("${include}" fault version)
  if(NOT fault AND NOT TARGET absl::absl_log)
    set(fault "there is no target absl::absl_log")
  endif()
  if(fault)
    message(FATAL_ERROR "The project has targets of Abseil ${version}, from ${include}, "
                        "which do not do: ${fault}. Take a newer one, or none, so that "
                        "torvane looks for one itself.")
  endif()
  message(STATUS "Abseil: the project's own, ${version}")
endfunction()

# Sets `config` to the package that does among those that CMake knows of; empty if
# there is none. Adds what was passed over to `refused`.
function(torvane_choose_abseil config refused)
  set(${config} "" PARENT_SCOPE)
  set(named_dir "${absl_DIR}")
  # No release is as new as that, so nothing is loaded, and all are listed.
  find_package(absl 99999999 CONFIG QUIET)
  set(absl_DIR "${named_dir}" CACHE PATH "Folder of Abseil's CMake package" FORCE)
  set(reasons)
  set(judged)
  set(named_folder)
  if(named_dir)
    file(REAL_PATH ${named_dir} named_folder)
  endif()
  foreach(candidate IN LISTS absl_CONSIDERED_CONFIGS)
    # One folder may have two names, as /lib and /usr/lib have.
    file(REAL_PATH ${candidate} candidate)
    if(candidate IN_LIST judged)
      continue()
    endif()
    list(APPEND judged ${candidate})
    torvane_abseil_include(${candidate} include)
    torvane_judge_abseil(${include} fault version)
    if(NOT fault)
      set(${config} ${candidate} PARENT_SCOPE)
      break()
    endif()
    cmake_path(GET candidate PARENT_PATH folder)
    if(folder STREQUAL named_folder)
      message(FATAL_ERROR
              "absl_DIR names Abseil ${version} in ${folder}, which does not do: ${fault}.")
    endif()
    list(APPEND reasons "Abseil ${version} in ${folder}: ${fault}")
  endforeach()
  set(${refused} ${reasons} PARENT_SCOPE)
endfunction()

macro(torvane_find_abseil)
  set(torvane_abseil_prefix)
  if(TARGET absl::base)
    torvane_judge_abseil_targets()
  else()
    set(torvane_abseil_config)
    set(torvane_abseil_refused)
    if(NOT TORVANE_SANITIZER)
      torvane_choose_abseil(torvane_abseil_config torvane_abseil_refused)
    endif()
    foreach(reason IN LISTS torvane_abseil_refused)
      message(STATUS "Passed over ${reason}")
    endforeach()
    set(torvane_abseil_variant plain)
    if(TORVANE_SANITIZER)
      set(torvane_abseil_variant ${TORVANE_SANITIZER})
    endif()
    set(cached_prefix ${torvane_cache_dir}/abseil-20240722.0/${torvane_abseil_variant})
    if(NOT torvane_abseil_config)
      set(torvane_abseil_config ${cached_prefix}/lib/cmake/absl/abslConfig.cmake)
    endif()
    if(NOT EXISTS ${torvane_abseil_config})
      list(TRANSFORM torvane_abseil_refused PREPEND "\nPassed over ")
      message(FATAL_ERROR "Abseil is missing from ${cached_prefix}: run scripts/setup, "
                          "or name another with absl_DIR or CMAKE_PREFIX_PATH."
                          ${torvane_abseil_refused})
    endif()
    cmake_path(IS_PREFIX cached_prefix ${torvane_abseil_config} NORMALIZE is_cached)
    if(is_cached)
      set(torvane_abseil_prefix ${cached_prefix})
    endif()
    cmake_path(GET torvane_abseil_config PARENT_PATH torvane_abseil_dir)
    find_package(absl CONFIG REQUIRED NO_DEFAULT_PATH PATHS ${torvane_abseil_dir})
    message(STATUS "Abseil: ${torvane_abseil_dir}")
  endif()
endmacro()
