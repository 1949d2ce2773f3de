# Install rules: `cmake --install BUILD [--prefix P]`, DESTDIR honoured. Four
# components, one Debian package each (cmake/GdsPackage.cmake):
#   server        gds, gdsctl, libgds, the handler libraries, the unit, the
#                 sample configuration and property files, the logrotate rule
#   dev           public headers (include/gds), gds.pc, the CMake package
#   platform-sim  the platform stand-ins (same library names as the
#                 controller's own libraries, which replace them there)
#   sim           the simulated controller (sim/) and its tools
# `--prefix P` moves every file below P, but the paths written into the
# unit, the sample dataserver.conf and gds.pc are the configure-time ones:
# configure with the prefix the files will really live under (the package
# targets use /usr) and stage with DESTDIR.
include(CMakePackageConfigHelpers)

set(GDS_HANDLER_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/gds)
# Overridable with -D: where dataserver.conf, default.properties and
# map.properties go (the unit names them there), the unit and the logrotate
# rule. Below the prefix (so --prefix moves them), except that the prefix
# /usr keeps its configuration in /etc.
if(CMAKE_INSTALL_FULL_SYSCONFDIR STREQUAL "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SYSCONFDIR}")
  set(gds_sysconf ${CMAKE_INSTALL_SYSCONFDIR})
else()
  set(gds_sysconf ${CMAKE_INSTALL_FULL_SYSCONFDIR})
endif()
if(NOT DEFINED GDS_CONFIG_INSTALL_DIR)
  set(GDS_CONFIG_INSTALL_DIR ${gds_sysconf}/gds)
endif()
if(NOT DEFINED GDS_UNIT_INSTALL_DIR)
  set(GDS_UNIT_INSTALL_DIR lib/systemd/system)
endif()
if(NOT DEFINED GDS_LOGROTATE_INSTALL_DIR)
  set(GDS_LOGROTATE_INSTALL_DIR ${gds_sysconf}/logrotate.d)
endif()
foreach(dir CONFIG LOGROTATE)
  if(IS_ABSOLUTE ${GDS_${dir}_INSTALL_DIR})
    set(GDS_FULL_${dir}_DIR ${GDS_${dir}_INSTALL_DIR})
  else()
    set(GDS_FULL_${dir}_DIR ${CMAKE_INSTALL_PREFIX}/${GDS_${dir}_INSTALL_DIR})
  endif()
endforeach()
set(GDS_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/gds)
# Absolute forms for the files that name installed paths.
set(GDS_FULL_HANDLER_DIR ${CMAKE_INSTALL_FULL_LIBDIR}/gds)
set(GDS_FULL_SBINDIR ${CMAKE_INSTALL_FULL_SBINDIR})

# --- server ---------------------------------------------------------------
# Installed programs carry no RUNPATH (the build tree's is dropped): libgds
# lives in the standard library folder, and the server loads handler
# libraries by the path dataserver.conf names.
install(TARGETS gdscore LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT server NAMELINK_COMPONENT dev)
install(TARGETS gds RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT server)
install(TARGETS gdsctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT server)
install(TARGETS ${GDS_HANDLER_TARGETS} LIBRARY DESTINATION ${GDS_HANDLER_INSTALL_DIR} COMPONENT server)

set(GDS_PACKAGING_DIR ${CMAKE_SOURCE_DIR}/packaging)
set(GDS_GENERATED_DIR ${CMAKE_BINARY_DIR}/packaging)
configure_file(${GDS_PACKAGING_DIR}/dataserver.conf.in ${GDS_GENERATED_DIR}/dataserver.conf @ONLY)
configure_file(${GDS_PACKAGING_DIR}/gds.service.in ${GDS_GENERATED_DIR}/gds.service @ONLY)
install(FILES ${GDS_GENERATED_DIR}/dataserver.conf ${CMAKE_SOURCE_DIR}/sim/root/usr/local/etc/appweb/default.properties
              ${CMAKE_SOURCE_DIR}/sim/root/usr/local/etc/appweb/map.properties
        DESTINATION ${GDS_CONFIG_INSTALL_DIR} COMPONENT server)
install(FILES ${GDS_GENERATED_DIR}/gds.service DESTINATION ${GDS_UNIT_INSTALL_DIR} COMPONENT server)
install(FILES ${GDS_PACKAGING_DIR}/gds.logrotate DESTINATION ${GDS_LOGROTATE_INSTALL_DIR} RENAME gds
        COMPONENT server)

# --- dev ------------------------------------------------------------------
# The module's headers, flat under include/gds, and beside them the platform
# interface headers libgds was compiled against (include/gds/platform).
file(GLOB GDS_PUBLIC_HEADERS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/include/*.h)
file(GLOB GDS_PLATFORM_HEADERS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/*/include/*.h)
install(FILES ${GDS_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gds COMPONENT dev)
install(FILES ${GDS_PLATFORM_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gds/platform COMPONENT dev)

# On 32-bit targets libgds is compiled with 64-bit off_t and time_t; a
# handler library must see the same class layouts.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(GDS_ABI_DEFINITIONS _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  set(GDS_ABI_CFLAGS " -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
else()
  set(GDS_ABI_DEFINITIONS "")
  set(GDS_ABI_CFLAGS "")
endif()
configure_file(${GDS_PACKAGING_DIR}/gds.pc.in ${GDS_GENERATED_DIR}/gds.pc @ONLY)
install(FILES ${GDS_GENERATED_DIR}/gds.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The CMake package finds everything relative to its own folder, so an
# extracted or staged tree works wherever it lies.
configure_package_config_file(${GDS_PACKAGING_DIR}/gdsConfig.cmake.in ${GDS_GENERATED_DIR}/gdsConfig.cmake
                              INSTALL_DESTINATION ${GDS_CMAKE_INSTALL_DIR}
                              PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR GDS_HANDLER_INSTALL_DIR)
write_basic_package_version_file(${GDS_GENERATED_DIR}/gdsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${GDS_GENERATED_DIR}/gdsConfig.cmake ${GDS_GENERATED_DIR}/gdsConfigVersion.cmake
        DESTINATION ${GDS_CMAKE_INSTALL_DIR} COMPONENT dev)

# --- platform-sim ---------------------------------------------------------
install(TARGETS ${GDS_PLATFORM_LIBS} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform-sim)

# --- sim ------------------------------------------------------------------
install(TARGETS aimctl biossim simhw RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT sim)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/sim/ DESTINATION ${CMAKE_INSTALL_DATADIR}/gds/sim USE_SOURCE_PERMISSIONS
        COMPONENT sim)
