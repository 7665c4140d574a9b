# What `cmake --install` lays out, the CMake package that host implementers find_package, and
# the Debian package cpack makes of the same tree:
#   bin/kalvo-devhost                       the stand-in host as a program
#   lib/kalvo/kalvo.securitymonitor.so      the sensor (.dylib on macOS)
#   include/kalvo/host/                     the host interfaces, which include only each other
#   share/doc/kalvo-securitymonitor/        README, docs/, examples/
#   <libdir>/cmake/KalvoSecurityMonitor/    KalvoSecurityMonitorConfig.cmake and its version file
# kalvo-devhost looks for the sensor at ../lib/kalvo/ from its own directory, so the program
# and the plug-in keep these two folders whatever GNUInstallDirs would choose (under /usr it
# would put libraries in a multiarch folder); a sensor is a private plug-in, not a library to
# link, and Debian keeps those in /usr/lib/<package>/ too.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(KALVO_INSTALL_PLUGINDIR lib/kalvo)
set(KALVO_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/kalvo)
set(KALVO_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/kalvo-securitymonitor)
set(KALVO_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/KalvoSecurityMonitor)

# The host interfaces as a target: #include "host/IPackage.h" and the like.
add_library(kalvo_host INTERFACE)
target_include_directories(kalvo_host INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${KALVO_INSTALL_INCLUDEDIR}>)
target_compile_features(kalvo_host INTERFACE cxx_std_17)
set_target_properties(kalvo_host PROPERTIES EXPORT_NAME host)
add_library(Kalvo::host ALIAS kalvo_host)
set_target_properties(kalvo.securitymonitor PROPERTIES EXPORT_NAME securitymonitor)

install(TARGETS kalvo_host kalvo.securitymonitor EXPORT KalvoSecurityMonitorTargets
  LIBRARY DESTINATION ${KALVO_INSTALL_PLUGINDIR}
  RUNTIME DESTINATION ${KALVO_INSTALL_PLUGINDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/host/" DESTINATION ${KALVO_INSTALL_INCLUDEDIR}/host
  FILES_MATCHING PATTERN "*.h" PATTERN "README.md")
if(TARGET kalvo-devhost)
  install(TARGETS kalvo-devhost RUNTIME DESTINATION bin)
endif()
install(FILES "${PROJECT_SOURCE_DIR}/README.md" DESTINATION ${KALVO_INSTALL_DOCDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" "${PROJECT_SOURCE_DIR}/examples"
  DESTINATION ${KALVO_INSTALL_DOCDIR})

install(EXPORT KalvoSecurityMonitorTargets NAMESPACE Kalvo:: DESTINATION ${KALVO_INSTALL_CMAKEDIR})
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/KalvoSecurityMonitorConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/KalvoSecurityMonitorConfig.cmake" INSTALL_DESTINATION ${KALVO_INSTALL_CMAKEDIR})
# A 1.x consumer takes any later 1.y; the plug-in's interfaces keep their slots within a major.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KalvoSecurityMonitorConfigVersion.cmake"
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KalvoSecurityMonitorConfig.cmake"
  "${PROJECT_BINARY_DIR}/KalvoSecurityMonitorConfigVersion.cmake"
  DESTINATION ${KALVO_INSTALL_CMAKEDIR})

# cpack -G DEB: the same tree under /usr, its shared-library dependencies (SQLite, libbpf, the
# C++ runtime) found by dpkg-shlibdeps from the binaries themselves.
set(CPACK_PACKAGE_NAME kalvo-securitymonitor)
set(CPACK_PACKAGE_VENDOR "kalvo")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Process and shell-command sensor plug-in with its stand-in host")
set(CPACK_PACKAGE_CONTACT "kalvo securitymonitor developers <securitymonitor@kalvo.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
# No maintainer scripts: CPack would add an ldconfig call for any library under /usr/lib, but
# the sensor is a plug-in in its own folder, not in the linker's path, and a postrm script
# would keep the package's record after `dpkg -r` until a purge. Naming (absent) scripts here
# is how CPack is told to generate none.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/no-maintainer-scripts/postinst"
  "${PROJECT_BINARY_DIR}/no-maintainer-scripts/postrm")
set(CPACK_GENERATOR DEB)
include(CPack)
