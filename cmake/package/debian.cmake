# Debian packages: "cpack -G DEB" in the build folder.

# As libraries and packages of the same release of protobuf are numbered.
string(REGEX MATCH "^[0-9]+\\.[0-9]+" protobuf_series ${Protobuf_VERSION})
set(dev_depends "libprotobuf-dev (>= ${protobuf_series}), protobuf-compiler")
if(NOT has_private_abseil)
  string(APPEND dev_depends ", libabsl-dev")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME torvane)
set(CPACK_PACKAGE_CONTACT "The maintainers of torvane <maintainers@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL tools dev)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME torvane-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION x11)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "programs that serve browser windows and drive them
 window_host serves windows on a Unix socket; windowctl and rpcctl call it.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtorvane-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${dev_depends}")
set(dev_suggests)
if("glib" IN_LIST components)
  list(APPEND dev_suggests libglib2.0-dev pkg-config)
endif()
if("grpc" IN_LIST components)
  list(APPEND dev_suggests libgrpc++-dev)
endif()
list(JOIN dev_suggests ", " CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS)
set(CPACK_COMPONENT_DEV_DESCRIPTION "service of browser windows, for programs of one's own
 Static libraries, headers, proto files, the generator of service classes, and
 documents.")
include(CPack)
