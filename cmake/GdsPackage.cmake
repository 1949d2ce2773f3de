# Debian packages, one per install component (cmake/GdsInstall.cmake):
#   gds               server          Depends on the platform interfaces (gds-platform)
#   gds-dev           dev             headers, gds.pc, the CMake package
#   gds-platform-sim  platform-sim    Provides gds-platform (the stand-ins)
#   gds-sim           sim             the simulated controller and its tools
# `cpack -G DEB` in a build folder configured with -DCMAKE_INSTALL_PREFIX=/usr
# (make package, make package-arm) writes them to BUILD/packages.
set(GDS_PACKAGE_CONTACT "gds developers <gds-dev@bmc.example.com>" CACHE STRING "Maintainer field of the packages")

# The Debian architecture of what was compiled (the cross build's too).
if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "arm-linux-gnueabihf")
  set(GDS_DEB_ARCH armhf)
elseif(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "aarch64-linux-gnu")
  set(GDS_DEB_ARCH arm64)
elseif(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "x86_64-linux-gnu")
  set(GDS_DEB_ARCH amd64)
else()
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE GDS_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

# Every package carries its copyright file and changelog.
configure_file(${GDS_PACKAGING_DIR}/deb/changelog.in ${GDS_GENERATED_DIR}/changelog @ONLY)
execute_process(COMMAND gzip -9n -c ${GDS_GENERATED_DIR}/changelog OUTPUT_FILE ${GDS_GENERATED_DIR}/changelog.gz)
configure_file(${GDS_PACKAGING_DIR}/deb/conffiles.in ${GDS_GENERATED_DIR}/deb-server/conffiles @ONLY)
configure_file(${GDS_PACKAGING_DIR}/deb/shlibs.in ${GDS_GENERATED_DIR}/deb-server/shlibs @ONLY)
foreach(pair server:gds dev:gds-dev platform-sim:gds-platform-sim sim:gds-sim)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES ${GDS_PACKAGING_DIR}/deb/copyright ${GDS_GENERATED_DIR}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()
install(FILES ${CMAKE_SOURCE_DIR}/docs/integration.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/gds COMPONENT server)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME gds)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${GDS_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL server dev platform-sim sim)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${GDS_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")

# Run-time libraries of everything compiled here: the C and C++ runtimes
# and cJSON (Debian 12's versions; the armhf ones have the same names).
set(GDS_RUNTIME_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1 (>= 3.0), libcjson1 (>= 1.7.10)")
set(GDS_EXACT "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME gds)
set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "${GDS_RUNTIME_DEPENDS}, gds-platform")
set(CPACK_DEBIAN_SERVER_PACKAGE_SUGGESTS "logrotate")
# shlibs: what a package linking libgds.so.1 depends on; triggers: ldconfig
# runs once libraries in the library folder change (no maintainer script
# calls it).
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA
    ${GDS_GENERATED_DIR}/deb-server/conffiles ${GDS_GENERATED_DIR}/deb-server/shlibs
    ${GDS_PACKAGING_DIR}/deb/triggers ${GDS_PACKAGING_DIR}/deb/postinst ${GDS_PACKAGING_DIR}/deb/prerm
    ${GDS_PACKAGING_DIR}/deb/postrm)
set(CPACK_COMPONENT_SERVER_DESCRIPTION
    "GUI data server of the baseboard-management controller
The long-lived process that answers the web server's data requests on
127.0.0.1, with libgds (the module handler libraries build on), the
inventory, adapter and canned-data handler libraries, gdsctl, the systemd
unit gds.service, a sample configuration and a logrotate rule.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME gds-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "gds ${GDS_EXACT}")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "GUI data server - files for building handler libraries
Headers of libgds and of the platform interfaces it was compiled with,
the link to libgds, the pkg-config file gds.pc and the CMake package
(find_package(gds) gives the imported target gds::gds).")

set(CPACK_DEBIAN_PLATFORM-SIM_PACKAGE_NAME gds-platform-sim)
set(CPACK_DEBIAN_PLATFORM-SIM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM-SIM_PACKAGE_DEPENDS "${GDS_RUNTIME_DEPENDS}")
set(CPACK_DEBIAN_PLATFORM-SIM_PACKAGE_PROVIDES "gds-platform")
set(CPACK_DEBIAN_PLATFORM-SIM_PACKAGE_CONTROL_EXTRA ${GDS_PACKAGING_DIR}/deb/triggers)
set(CPACK_COMPONENT_PLATFORM-SIM_DESCRIPTION
    "GUI data server - platform stand-ins for a development machine
Stand-ins for the controller's platform libraries (property service,
application framework, session manager, SMBIOS, sensor and FRU data, card
configuration, power, IPMI, safe execution) with the same library names.
They keep their state below GDS_ROOT. Never install this on a controller:
there the controller's own libraries provide gds-platform.")

set(CPACK_DEBIAN_SIM_PACKAGE_NAME gds-sim)
set(CPACK_DEBIAN_SIM_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_SIM_PACKAGE_DEPENDS "${GDS_RUNTIME_DEPENDS}, gds ${GDS_EXACT}, gds-platform-sim ${GDS_EXACT}")
if(TARGET gdsweb)
  # The web front door (web/) and its explorer page go into gds-sim too.
  string(APPEND CPACK_DEBIAN_SIM_PACKAGE_DEPENDS ", libcpp-httplib0.11, libcrypt1")
endif()
set(CPACK_COMPONENT_SIM_DESCRIPTION
    "GUI data server - simulated controller for development
The simulated controller root and platforms (/usr/share/gds/sim) and the
tools that drive it: aimctl (property service), biossim (BIOS token
region), simhw and the other simulator tools, and gdsweb, the development
web front door with its explorer page (/usr/share/gds/web).")

include(CPack)
