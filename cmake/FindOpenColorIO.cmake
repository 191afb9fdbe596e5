# Finds OpenColorIO: OpenColorIO::OpenColorIO.
#
# A module, because Debian's own package files name a folder of headers that is not there, and stop
# the configuration.
find_path(OpenColorIO_INCLUDE_DIR OpenColorIO/OpenColorIO.h)
find_library(OpenColorIO_LIBRARY OpenColorIO)
mark_as_advanced(OpenColorIO_INCLUDE_DIR OpenColorIO_LIBRARY)
if(OpenColorIO_INCLUDE_DIR)
  file(STRINGS "${OpenColorIO_INCLUDE_DIR}/OpenColorIO/OpenColorABI.h" version
    REGEX "#define OCIO_VERSION_STR ")
  string(REGEX MATCH "[0-9.]+" OpenColorIO_VERSION "${version}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenColorIO REQUIRED_VARS OpenColorIO_LIBRARY
  OpenColorIO_INCLUDE_DIR VERSION_VAR OpenColorIO_VERSION)

if(OpenColorIO_FOUND AND NOT TARGET OpenColorIO::OpenColorIO)
  add_library(OpenColorIO::OpenColorIO UNKNOWN IMPORTED)
  set_target_properties(OpenColorIO::OpenColorIO PROPERTIES
    IMPORTED_LOCATION "${OpenColorIO_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES
    "${OpenColorIO_INCLUDE_DIR}")
endif()
