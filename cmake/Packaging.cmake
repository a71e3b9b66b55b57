# What `cmake --install` puts where, the CMake package and pkg-config file
# other projects find the library with, and the Debian package (cpack -G DEB).
include(CMakePackageConfigHelpers)

set(velqorCMakeDir ${CMAKE_INSTALL_LIBDIR}/cmake/VelqorCamera)
set(velqorDataDir ${CMAKE_INSTALL_DATADIR}/velqor-camera)

install(TARGETS velqor_camera EXPORT VelqorCameraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/velqor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS velqor-camera RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY resources/Velqor.bundle DESTINATION ${velqorDataDir})
install(DIRECTORY web/page/ DESTINATION ${velqorDataDir}/page)
# The page API module and its declarations; its unit tests and typed example stay in the sources.
install(DIRECTORY web/api/ DESTINATION ${velqorDataDir}/api OPTIONAL
  FILES_MATCHING PATTERN "*.js" PATTERN "*.d.ts" PATTERN "test" EXCLUDE)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${CMAKE_BINARY_DIR}/velqor-camera.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${CMAKE_BINARY_DIR}/velqor-camera.bash-completion
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME velqor-camera)

install(EXPORT VelqorCameraTargets NAMESPACE VelqorCamera:: DESTINATION ${velqorCMakeDir})
configure_package_config_file(cmake/VelqorCameraConfig.cmake.in
  ${CMAKE_BINARY_DIR}/VelqorCameraConfig.cmake INSTALL_DESTINATION ${velqorCMakeDir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/VelqorCameraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/VelqorCameraConfig.cmake ${CMAKE_BINARY_DIR}/VelqorCameraConfigVersion.cmake
  DESTINATION ${velqorCMakeDir})
# The .pc file finds its prefix from where it lies, so the Debian package (/usr)
# and any --prefix agree.
file(RELATIVE_PATH velqorPcToPrefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/velqor-camera.pc.in ${CMAKE_BINARY_DIR}/velqor-camera.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/velqor-camera.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The man page and the bash completion come from the program itself, so they
# always describe the options it has.
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/velqor-camera.1
  COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0
          bash ${CMAKE_SOURCE_DIR}/scripts/manpage.sh $<TARGET_FILE:velqor-camera> ${CMAKE_BINARY_DIR}/velqor-camera.1
  DEPENDS velqor-camera ${CMAKE_SOURCE_DIR}/scripts/manpage.sh VERBATIM)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/velqor-camera.bash-completion
  COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0
          $<TARGET_FILE:velqor-camera> completion bash > ${CMAKE_BINARY_DIR}/velqor-camera.bash-completion
  DEPENDS velqor-camera VERBATIM)
add_custom_target(velqor_cli_docs ALL DEPENDS ${CMAKE_BINARY_DIR}/velqor-camera.1
  ${CMAKE_BINARY_DIR}/velqor-camera.bash-completion)

# One Debian package with the program, the library and its headers; the
# runtime dependencies are read from the binaries by dpkg-shlibdeps.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velqor-camera)
set(CPACK_PACKAGE_VENDOR "VelqorCamera")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "VelqorCamera plug-in, its CLI and its embedding library")
set(CPACK_PACKAGE_CONTACT "VelqorCamera developers <velqor-camera@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
include(CPack)
