# cmake --install: include/{tarn,ovo,vela}, lib/libvela.so, lib/libvela_picture.so, bin/vela, and
# the package files for find_package(Vela) and pkg-config. In components, which packages are made
# of: runtime (libvela and what it reads), picture (libvela_picture), devel, command.
include(CMakePackageConfigHelpers)

# An export set for each library: whoever finds one needs nothing of the other. INCLUDES tells the
# folder of the headers to CMake before 3.23 as well, which passes over file sets.
function(vela_install_library target export component)
  set(namelink NAMELINK_COMPONENT devel)
  if(VELA_PYTHON_WHEEL)
    set(namelink NAMELINK_SKIP)
  endif()
  install(TARGETS ${target} EXPORT ${export}
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component} ${namelink}
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT devel
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
  install(EXPORT ${export} NAMESPACE Vela:: COMPONENT devel
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vela")
endfunction()
set(_packages vela)
vela_install_library(vela VelaTargets runtime)
if(VELA_BUILD_PICTURE)
  list(APPEND _packages vela-picture)
  vela_install_library(vela_picture VelaPictureTargets picture)
endif()

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/VelaConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/VelaConfig.cmake" INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vela")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/VelaConfigVersion.cmake" COMPATIBILITY
  SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/VelaConfig.cmake"
  "${PROJECT_BINARY_DIR}/VelaConfigVersion.cmake"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vela" COMPONENT devel)

foreach(_package IN LISTS _packages)
  configure_file("${CMAKE_CURRENT_LIST_DIR}/${_package}.pc.in"
    "${PROJECT_BINARY_DIR}/${_package}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${_package}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT devel)
endforeach()
