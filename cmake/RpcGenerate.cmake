# rpc_generate(TARGET <name>
#              IMPORT_ROOT <folder>
#              [MESSAGES <proto>...]   files of which only messages are wanted
#              [SERVICES <proto>...]   files that also declare services
#              [IMPORTS <folder>...]   further import roots
#              [DEPENDS <target>...])  targets that hold the imported files
#
# Makes the static library <name> from proto files named relative to
# IMPORT_ROOT: protobuf's message code for all of them and, for SERVICES, the
# service base classes that protoc-gen-rpc writes beside it. The import root is
# mirrored under <build>/gen, so that a generated file of the source folder
# keeps its place: <build>/gen/<import root>/rpc/browser/browser_window.rpc.h.
# An import root outside of the project is found under gen/external/<name>.
#
# Works for this project and for one that includes it with add_subdirectory().
# Subclasses of the service classes must be compiled without run-time type
# information; targets that link <name> get that flag.
function(rpc_generate)
  cmake_parse_arguments(arg "" "TARGET;IMPORT_ROOT" "MESSAGES;SERVICES;IMPORTS;DEPENDS" ${ARGN})
  if(NOT arg_TARGET OR NOT arg_IMPORT_ROOT OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "rpc_generate: TARGET and IMPORT_ROOT are required; "
                        "unknown: '${arg_UNPARSED_ARGUMENTS}'")
  endif()

  cmake_path(ABSOLUTE_PATH arg_IMPORT_ROOT NORMALIZE)
  cmake_path(IS_PREFIX PROJECT_SOURCE_DIR ${arg_IMPORT_ROOT} NORMALIZE is_inside)
  if(is_inside)
    cmake_path(RELATIVE_PATH arg_IMPORT_ROOT BASE_DIRECTORY ${PROJECT_SOURCE_DIR}
               OUTPUT_VARIABLE mirrored_root)
  else()
    set(mirrored_root external/${arg_TARGET})
  endif()
  set(gen_root ${PROJECT_BINARY_DIR}/gen)
  set(out_root ${gen_root}/${mirrored_root})
  file(MAKE_DIRECTORY ${out_root})
  set(import_flags -I${arg_IMPORT_ROOT})
  foreach(root IN LISTS arg_IMPORTS)
    cmake_path(ABSOLUTE_PATH root NORMALIZE)
    list(APPEND import_flags -I${root})
  endforeach()

  set(message_sources)
  set(service_sources)
  foreach(proto IN LISTS arg_MESSAGES arg_SERVICES)
    string(REGEX REPLACE "\\.proto$" "" stem ${proto})
    set(outputs ${out_root}/${stem}.pb.cc ${out_root}/${stem}.pb.h)
    set(flags --cpp_out=${out_root})
    set(depends ${arg_IMPORT_ROOT}/${proto})
    list(APPEND message_sources ${out_root}/${stem}.pb.cc)
    if(proto IN_LIST arg_SERVICES)
      list(APPEND outputs ${out_root}/${stem}.rpc.cc ${out_root}/${stem}.rpc.h)
      list(APPEND flags --plugin=protoc-gen-rpc=$<TARGET_FILE:protoc-gen-rpc>
                        --rpc_out=${out_root})
      list(APPEND depends protoc-gen-rpc)
      list(APPEND service_sources ${out_root}/${stem}.rpc.cc)
    endif()
    string(MAKE_C_IDENTIFIER ${stem} depfile)
    set(depfile ${CMAKE_CURRENT_BINARY_DIR}/${arg_TARGET}_${depfile}.d)
    add_custom_command(
      OUTPUT ${outputs}
      COMMAND protobuf::protoc ${import_flags} ${flags} --dependency_out=${depfile} ${proto}
      DEPENDS ${depends}
      DEPFILE ${depfile}
      COMMENT "Generating ${stem}.pb and service code"
      VERBATIM)
  endforeach()

  # No warnings for protobuf's own generated code.
  set_source_files_properties(${message_sources} PROPERTIES COMPILE_OPTIONS -w)
  # Log records then have the path below gen, the same on every machine. It is
  # set here because the last map that fits is the one that counts.
  set_source_files_properties(${service_sources} PROPERTIES
    COMPILE_OPTIONS -fmacro-prefix-map=${gen_root}/=)

  add_library(${arg_TARGET} STATIC ${message_sources} ${service_sources})
  target_include_directories(${arg_TARGET} SYSTEM PUBLIC ${out_root})
  target_link_libraries(${arg_TARGET}
    PUBLIC protobuf::libprotobuf ${arg_DEPENDS}
    PRIVATE torvane_options)
  if(arg_SERVICES)
    target_link_libraries(${arg_TARGET} PUBLIC torvane_stream absl::absl_log)
    # The base class has no run-time type information, to which that of a
    # subclass would refer.
    target_compile_options(${arg_TARGET} INTERFACE -fno-rtti)
  endif()
endfunction()
