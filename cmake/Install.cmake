# Installs the library, its headers, and the files by which CMake and pkg-config find both.
include(CMakePackageConfigHelpers)

install(TARGETS WQZ_USBCam EXPORT WQZ_USBCamTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# The headers lie in folders with common names such as Video/, so they get a folder of their own. Both package files
# below name it, and programs write #include "USBCam_API/USBCam_API.h".
set(WQZ_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/wqz-usbcam)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${WQZ_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
target_include_directories(WQZ_USBCam INTERFACE $<INSTALL_INTERFACE:${WQZ_INSTALL_INCLUDEDIR}>)
install(EXPORT WQZ_USBCamTargets NAMESPACE WQZ_USBCam:: COMPONENT development
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/WQZ_USBCam)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/WQZ_USBCamConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/WQZ_USBCamConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/WQZ_USBCam)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/WQZ_USBCamConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/WQZ_USBCamConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/WQZ_USBCamConfigVersion.cmake
  COMPONENT development
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/WQZ_USBCam)

file(RELATIVE_PATH WQZ_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH WQZ_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH WQZ_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/wqz-usbcam)
# Who links the shared library needs nothing of its decoder.
set(WQZ_PC_TURBOJPEG "")
if(WQZ_USBCAM_WITH_TURBOJPEG AND NOT WQZ_USBCAM_SHARED)
  set(WQZ_PC_TURBOJPEG ", libturbojpeg")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/wqz-usbcam.pc.in ${CMAKE_CURRENT_BINARY_DIR}/wqz-usbcam.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/wqz-usbcam.pc COMPONENT development
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/wqz-camera.3 ${PROJECT_SOURCE_DIR}/docs/man/wqz-usbcam.3
  COMPONENT development DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
