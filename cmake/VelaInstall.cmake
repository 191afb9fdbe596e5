# cmake --install: include/{tarn,ovo,vela}, lib/libvela.so, bin/vela, and the package files for
# find_package(Vela) and pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS vela EXPORT VelaTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" FILE_SET HEADERS DESTINATION
  "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT VelaTargets NAMESPACE Vela:: DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vela")

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/VelaConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/VelaConfig.cmake" INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vela")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/VelaConfigVersion.cmake" COMPATIBILITY
  SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/VelaConfig.cmake"
  "${PROJECT_BINARY_DIR}/VelaConfigVersion.cmake"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vela")

configure_file("${CMAKE_CURRENT_LIST_DIR}/vela.pc.in" "${PROJECT_BINARY_DIR}/vela.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/vela.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
