# Finds OpenSubdiv's CPU library: OpenSubdiv::osdCPU.
#
# A module, because Debian's own package files name static libraries that Debian does not ship, and
# stop the configuration. With VELA_OPENUSD=source it is the static library beside OpenUSD's.
find_path(OpenSubdiv_INCLUDE_DIR opensubdiv/far/topologyRefiner.h
  HINTS "${VELA_OPENUSD_PREFIX}/include")
find_library(OpenSubdiv_CPU_LIBRARY osdCPU HINTS "${VELA_OPENUSD_PREFIX}/lib")
mark_as_advanced(OpenSubdiv_INCLUDE_DIR OpenSubdiv_CPU_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenSubdiv REQUIRED_VARS OpenSubdiv_CPU_LIBRARY
  OpenSubdiv_INCLUDE_DIR)

if(OpenSubdiv_FOUND AND NOT TARGET OpenSubdiv::osdCPU)
  add_library(OpenSubdiv::osdCPU UNKNOWN IMPORTED)
  set_target_properties(OpenSubdiv::osdCPU PROPERTIES
    IMPORTED_LOCATION "${OpenSubdiv_CPU_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES
    "${OpenSubdiv_INCLUDE_DIR}")
endif()
