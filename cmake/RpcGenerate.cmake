# rpc_generate(TARGET <name>
#              IMPORT_ROOT <folder>
#              [MESSAGES <proto>...]   files of which only messages are wanted
#              [SERVICES <proto>...]   files that also declare services
#              [IMPORTS <folder>...]   further import roots
#              [DEPENDS <target>...])  targets that hold the imported files
#
# Makes the static library <name> from proto files named relative to
# IMPORT_ROOT: protobuf's message code for all of them and, for SERVICES, the
# service base classes that protoc-gen-rpc writes beside it. Targets that this
# function has made bring their import root along when they are among DEPENDS.
#
# With SERVICES, messages and protobuf's own service stubs are a library apart,
# <name>_messages, which <name> links: all that a program needs that only calls.
# A subclass of a service class must be compiled without run-time type
# information, unless TORVANE_RTTI is on; targets that link <name> get that flag.
#
# The import root is mirrored under <build>/gen, so that a generated file of the
# source folder keeps its place:
# <build>/gen/<import root>/rpc/browser/browser_window.rpc.h. An import root
# outside of the project is found under gen/external/<name>.
#
# Works for this project, for one that includes it with add_subdirectory(), and
# for one that finds it installed with find_package(torvane).
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
  cmake_path(NORMAL_PATH out_root)
  file(MAKE_DIRECTORY ${out_root})
  set(imports ${arg_IMPORT_ROOT})
  foreach(root IN LISTS arg_IMPORTS)
    cmake_path(ABSOLUTE_PATH root NORMALIZE)
    list(APPEND imports ${root})
  endforeach()
  foreach(target IN LISTS arg_DEPENDS)
    if(TARGET ${target})
      get_target_property(root ${target} TORVANE_IMPORT_ROOT)
      if(root)
        list(APPEND imports ${root})
      endif()
    endif()
  endforeach()
  list(REMOVE_DUPLICATES imports)
  list(TRANSFORM imports PREPEND -I OUTPUT_VARIABLE import_flags)

  # Spaces in paths, which protoc leaves as they are: all of the list but those that
  # part it, at the beginning of a line, before the backslash at its end, and after
  # the colon.
  set(escape_spaces sed -i -e [[s/ /\\ /g]] -e [[s/^\\ / /]] -e [[s/\\ \\$/ \\/]]
                    -e [[s/:\\ /: /]])

  set(protos ${arg_MESSAGES} ${arg_SERVICES})
  set(message_sources)
  set(service_sources)
  foreach(proto IN LISTS protos)
    string(REGEX REPLACE "\\.proto$" "" stem ${proto})
    set(outputs ${out_root}/${stem}.pb.cc ${out_root}/${stem}.pb.h)
    set(flags --cpp_out=${out_root})
    set(depends ${arg_IMPORT_ROOT}/${proto})
    list(APPEND message_sources ${out_root}/${stem}.pb.cc)
    if(proto IN_LIST arg_SERVICES)
      list(APPEND outputs ${out_root}/${stem}.rpc.cc ${out_root}/${stem}.rpc.h)
      list(APPEND flags --plugin=protoc-gen-rpc=$<TARGET_FILE:torvane::protoc-gen-rpc>
                        --rpc_out=${out_root})
      list(APPEND depends torvane::protoc-gen-rpc)
      list(APPEND service_sources ${out_root}/${stem}.rpc.cc)
    endif()
    # Beside the outputs: like theirs, its name is no other file's.
    set(depfile ${out_root}/${stem}.d)
    add_custom_command(
      OUTPUT ${outputs}
      COMMAND protobuf::protoc ${import_flags} ${flags} --dependency_out=${depfile} ${proto}
      COMMAND ${escape_spaces} ${depfile}
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

  set(messages ${arg_TARGET})
  if(arg_SERVICES)
    set(messages ${arg_TARGET}_messages)
  endif()
  add_library(${messages} STATIC ${message_sources})
  target_include_directories(${messages} SYSTEM PUBLIC $<BUILD_INTERFACE:${out_root}>)
  target_link_libraries(${messages}
    PUBLIC protobuf::libprotobuf ${arg_DEPENDS}
    PRIVATE $<TARGET_NAME_IF_EXISTS:torvane_options>)
  if(arg_SERVICES)
    add_library(${arg_TARGET} STATIC ${service_sources})
    target_link_libraries(${arg_TARGET}
      PUBLIC ${messages} torvane::service
      PRIVATE $<TARGET_NAME_IF_EXISTS:torvane_options>)
    # GCC otherwise removes the store by which raw_ptr's destructor nulls it.
    target_compile_options(${arg_TARGET} PRIVATE
      $<$<CXX_COMPILER_ID:GNU>:-fno-lifetime-dse>)
  endif()
  # What torvane_install() installs of them, and others import.
  list(TRANSFORM arg_SERVICES REPLACE "\\.proto$" ".rpc.h" OUTPUT_VARIABLE service_headers)
  set_target_properties(${messages} ${arg_TARGET} PROPERTIES
    TORVANE_IMPORT_ROOT ${arg_IMPORT_ROOT}
    TORVANE_PROTOS "${protos}"
    TORVANE_GENERATED_ROOT ${out_root}
    TORVANE_SERVICE_HEADERS "${service_headers}")
endfunction()
