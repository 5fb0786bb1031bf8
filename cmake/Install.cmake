# What other projects get of this one: names, and what "cmake --install" copies.
#
# torvane_public(<target> COMPONENT <stream|transport|glib|grpc>
#                [HEADERS <file>... | INTERNAL])
#
# Makes the target known to other projects as torvane::<name>, without the prefix
# torvane_, however they come by this one. If it is to be installed, it goes with
# these headers, which are public then; with the generated headers and the proto
# files if rpc_generate() has made it; and into the component's export set. What is
# INTERNAL is there for the other targets to link, without any header. To be called
# after the target has been linked with all that it needs.
#
# torvane_program(<target> DESCRIBED_BY <function> <header> LIBS <target>...)
#
# Installs a program, with a manual page and completion for bash, zsh and fish.
# They are made of what the function returns, a cli::ProgramDescription. It is
# declared in the header, and the libraries have it.
#
# Not installed is what is part of another project, and what is not meant to be
# used: instrumented builds, and those on the browser's allocator, whose source
# stays where it is.
if(PROJECT_IS_TOP_LEVEL AND NOT TORVANE_SANITIZER AND NOT TORVANE_FUZZING AND
   NOT TORVANE_COVERAGE AND NOT TORVANE_PARTITION_ALLOC_DIR)
  set(torvane_installs ON)
  include(GNUInstallDirs)
  # Ours have names that others might have, too.
  set(torvane_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/torvane)
  set(torvane_proto_dir ${CMAKE_INSTALL_DATADIR}/torvane/proto)
  set(torvane_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/torvane)
else()
  set(torvane_installs OFF)
endif()

function(torvane_public target)
  cmake_parse_arguments(arg "INTERNAL" "COMPONENT" "HEADERS" ${ARGN})
  if(NOT arg_COMPONENT MATCHES "^(stream|transport|glib|grpc)$" OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "torvane_public(${target}): COMPONENT must be stream, transport, "
                        "glib or grpc; unknown: '${arg_UNPARSED_ARGUMENTS}'")
  endif()
  if(TARGET ${target}_messages)
    torvane_public_target(${target}_messages)
  endif()
  torvane_public_target(${target})
  if(torvane_installs AND NOT arg_INTERNAL)
    torvane_install_headers("${arg_HEADERS}")
    torvane_install_generated(${target})
  endif()
endfunction()

# Part of torvane_public().
function(torvane_public_target target)
  string(REGEX REPLACE "^torvane_" "" name ${target})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    add_executable(torvane::${name} ALIAS ${target})
  else()
    add_library(torvane::${name} ALIAS ${target})
  endif()
  if(NOT torvane_installs)
    return()
  endif()

  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  if(NOT type STREQUAL "EXECUTABLE")
    target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${torvane_include_dir}>)
    # The flags of our own sources, and Asio, of which only the compiled part is
    # used, are nobody else's business.
    get_target_property(libraries ${target} INTERFACE_LINK_LIBRARIES)
    if(libraries)
      list(FILTER libraries EXCLUDE REGEX torvane_options)
      list(TRANSFORM libraries REPLACE "^torvane_asio$"
           "$<BUILD_INTERFACE:torvane_asio>$<INSTALL_INTERFACE:Threads::Threads>")
      set_target_properties(${target} PROPERTIES INTERFACE_LINK_LIBRARIES "${libraries}")
    endif()
  endif()
  if(type STREQUAL "STATIC_LIBRARY" AND arg_COMPONENT MATCHES "^(stream|transport)$")
    set_property(GLOBAL APPEND PROPERTY TORVANE_LIBRARIES ${target})
  endif()
  install(TARGETS ${target} EXPORT torvane-${arg_COMPONENT}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)
  set_property(GLOBAL APPEND PROPERTY TORVANE_COMPONENTS ${arg_COMPONENT})
endfunction()

# Part of torvane_public(). Headers keep their place below src.
function(torvane_install_headers headers)
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR}/src
             OUTPUT_VARIABLE folder)
  foreach(header IN LISTS headers)
    cmake_path(GET header PARENT_PATH subfolder)
    install(FILES ${header} DESTINATION ${torvane_include_dir}/${folder}/${subfolder}
            COMPONENT dev)
  endforeach()
endfunction()

# Part of torvane_public().
function(torvane_install_generated target)
  get_target_property(protos ${target} TORVANE_PROTOS)
  if(NOT protos)
    return()
  endif()
  string(REGEX REPLACE "^torvane_" "" name ${target})
  set_property(GLOBAL APPEND PROPERTY TORVANE_PROTO_TARGETS ${name})
  get_target_property(import_root ${target} TORVANE_IMPORT_ROOT)
  get_target_property(generated_root ${target} TORVANE_GENERATED_ROOT)
  get_target_property(headers ${target} TORVANE_SERVICE_HEADERS)
  foreach(proto IN LISTS protos)
    cmake_path(GET proto PARENT_PATH folder)
    install(FILES ${import_root}/${proto} DESTINATION ${torvane_proto_dir}/${folder}
            COMPONENT dev)
    string(REGEX REPLACE "\\.proto$" ".pb.h" message_header ${proto})
    list(APPEND headers ${message_header})
  endforeach()
  foreach(header IN LISTS headers)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${generated_root}/${header} DESTINATION ${torvane_include_dir}/${folder}
            COMPONENT dev)
  endforeach()
endfunction()

function(torvane_program target)
  cmake_parse_arguments(arg "" "" "DESCRIBED_BY;LIBS" ${ARGN})
  if(NOT torvane_installs)
    return()
  endif()
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  set_property(GLOBAL APPEND PROPERTY TORVANE_PROGRAMS ${target})

  list(POP_FRONT arg_DESCRIBED_BY function header)
  configure_file(${PROJECT_SOURCE_DIR}/tools/cli/page.cc.in ${target}_page.cc @ONLY)
  add_executable(${target}_page ${CMAKE_CURRENT_BINARY_DIR}/${target}_page.cc)
  target_link_libraries(${target}_page PRIVATE torvane_options torvane_cli ${arg_LIBS})

  set(folder ${PROJECT_BINARY_DIR}/pages)
  set(pages)
  foreach(page IN ITEMS
      man|man1|${target}.1|${CMAKE_INSTALL_MANDIR}/man1
      bash|bash|${target}|${CMAKE_INSTALL_DATADIR}/bash-completion/completions
      zsh|zsh|_${target}|${CMAKE_INSTALL_DATADIR}/zsh/site-functions
      fish|fish|${target}.fish|${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
    string(REPLACE "|" ";" page ${page})
    list(POP_FRONT page kind subfolder name destination)
    set(file ${folder}/${subfolder}/${name})
    file(MAKE_DIRECTORY ${folder}/${subfolder})
    add_custom_command(
      OUTPUT ${file}
      COMMAND ${target}_page ${kind} > ${file}
      DEPENDS ${target}_page
      COMMENT "Describing ${target} (${kind})"
      VERBATIM)
    install(FILES ${file} DESTINATION ${destination} COMPONENT tools)
    list(APPEND pages ${file})
  endforeach()
  add_custom_target(${target}_pages ALL DEPENDS ${pages})
endfunction()
