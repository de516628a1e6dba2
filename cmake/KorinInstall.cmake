# What an installation holds: headers, the libraries, a CMake package and a
# pkg-config file, the command.
include(CMakePackageConfigHelpers)

install(TARGETS korinimage EXPORT KorinImageTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET korinimage_io)
  install(TARGETS korinimage_io EXPORT KorinImageTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
if(TARGET korinimage_command)
  install(TARGETS korinimage_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(EXPORT KorinImageTargets NAMESPACE KorinImage::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KorinImage)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KorinImageConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KorinImageConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KorinImage)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KorinImageConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KorinImageConfig.cmake
              ${PROJECT_BINARY_DIR}/KorinImageConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KorinImage)

cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE KORIN_PC_INCLUDE)
configure_file(${PROJECT_SOURCE_DIR}/cmake/korinimage.pc.in
  ${PROJECT_BINARY_DIR}/korinimage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/korinimage.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
