# Debian packages from the install components (cpack -G DEB in a build
# configured with CMAKE_INSTALL_PREFIX=/usr):
#   libkelvor1    (runtime) libkelvor.so.1*; dependencies from dpkg-shlibdeps
#   libkelvor-dev (dev)     headers, the libkelvor.so link, kelvor.pc, the
#                           CMake package; needs this very libkelvor1 and zlib1g-dev
#   kelvor-tools  (tools)   bin/kelvor; needs this very libkelvor1
# Package versions are the project version (1.0.0.1), so "=" pins the exact
# library build that the headers and the tool were made with.
set(CPACK_GENERATOR "DEB" CACHE STRING "CPack generators")
set(CPACK_PACKAGE_NAME "kelvor")
set(CPACK_PACKAGE_VENDOR "Kelvor")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "Kelvor maintainers <kelvor@localhost>")
set(CPACK_PACKAGE_INSTALL_DIRECTORY "kelvor")
# Each package's description: its first line is the synopsis.

set(KELVOR_PACK_COMPONENTS runtime dev)
# The tool's own CMakeLists installs it with COMPONENT tools; tested on the
# source tree rather than the target so that the order of add_subdirectory
# and this include does not matter.
if(KELVOR_BUILD_TOOLS AND EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/tools/kelvor/CMakeLists.txt")
  list(APPEND KELVOR_PACK_COMPONENTS tools)
endif()
set(CPACK_COMPONENTS_ALL ${KELVOR_PACK_COMPONENTS})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # <name>_<version>_<arch>.deb
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://localhost/kelvor")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
# A shlibs file in libkelvor1, so that packages built against it get
# "libkelvor1 (>= 1.0.0.1)" from their own dpkg-shlibdeps run.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# dpkg-shlibdeps of the tool must find libkelvor.so.1, which no installed
# package owns yet: it is searched for in this build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_CURRENT_BINARY_DIR}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libkelvor1")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION "libs")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "Kelvor C++ foundation class library (shared library)
Copy-on-write strings, byte buffers, lists and hash maps, a typed variant,
a named-element tree with a compact binary encoding, dates, files and byte
streams, an object tree persisted as XML, threads, sockets with a mini HTTP
server, MD5, SHA-1, base32 and GUIDs.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME "libkelvor-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION "libdevel")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libkelvor1 (= ${CPACK_PACKAGE_VERSION}), zlib1g-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
  "Kelvor C++ foundation class library (development files)
Headers, the link to the shared library, the pkg-config file kelvor.pc and
the CMake package (find_package(Kelvor), target Kelvor::kelvor).")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME "kelvor-tools")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION "utils")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkelvor1 (= ${CPACK_PACKAGE_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
  "Kelvor command-line tool
The kelvor program: blob, XML, digest, GUID and date helpers, a small HTTP
server and a narrated demonstration of the library.")

include(CPack)
