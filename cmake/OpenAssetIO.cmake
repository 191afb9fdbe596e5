# OpenAssetIO for src/vela/asset, as one target: vela_openassetio.
#
# A full C++ install is used when find_package finds one. Else it is the binary package that
# scripts/setup puts into build/env: it holds the libraries, made to be linked, but no headers, so
# detail/OpenAssetIODeclarations.h declares what is used. That is sound only for the versions it was
# written for, which is checked here: the version, the soname, the symbols.
#
# VELA_OPENASSETIO_LIBS is the folder that the installed module needs on its run path (empty with a
# full install), VELA_OPENASSETIO_VERSION its version and VELA_OPENASSETIO_PYTHON the version of
# Python that its bridge to Python managers was built for ("3.11"; empty when it has none).
find_package(OpenAssetIO 1.0 CONFIG QUIET)
add_library(vela_openassetio INTERFACE)
set(VELA_OPENASSETIO_LIBS "")
set(VELA_OPENASSETIO_PYTHON "")

if(OpenAssetIO_FOUND)
  target_link_libraries(vela_openassetio INTERFACE OpenAssetIO::openassetio-core)
  target_compile_definitions(vela_openassetio INTERFACE VELA_OPENASSETIO_HEADERS=1)
  set(VELA_OPENASSETIO_VERSION "${OpenAssetIO_VERSION}")
  if(DEFINED OpenAssetIO_Python_VERSION_MAJOR AND DEFINED OpenAssetIO_Python_VERSION_MINOR)
    set(VELA_OPENASSETIO_PYTHON
      "${OpenAssetIO_Python_VERSION_MAJOR}.${OpenAssetIO_Python_VERSION_MINOR}")
  endif()
  message(STATUS "OpenAssetIO: ${OpenAssetIO_DIR}")
else()
  foreach(_config _is IN ZIP_LISTS OpenAssetIO_CONSIDERED_CONFIGS OpenAssetIO_CONSIDERED_VERSIONS)
    message(STATUS
      "OpenAssetIO: ${_config} is passed over: it is version ${_is}, and 1.0 is needed")
  endforeach()
  set(VELA_PYTHON_ENV "${PROJECT_SOURCE_DIR}/build/env" CACHE PATH
    "The Python environment with the OpenAssetIO package")
  set(_advice
    "Run scripts/setup, which makes that environment, name another with -DVELA_PYTHON_ENV=, or "
    "give a C++ install "
    "of OpenAssetIO 1.0 with -DOpenAssetIO_DIR=.")

  # The version, from the folder that every installed package has.
  file(GLOB _info LIST_DIRECTORIES true
    "${VELA_PYTHON_ENV}/lib/python3.*/site-packages/openassetio-*.dist-info")
  if(NOT _info)
    message(FATAL_ERROR "OpenAssetIO was not found in ${VELA_PYTHON_ENV}. " ${_advice})
  endif()
  list(GET _info 0 _info)
  if(NOT _info MATCHES "/openassetio-(1\\.0\\.[0-9]+)\\.dist-info$")
    message(FATAL_ERROR "OpenAssetIO 1.0 is needed and ${_info} is another version. " ${_advice})
  endif()
  set(VELA_OPENASSETIO_VERSION "${CMAKE_MATCH_1}")
  get_filename_component(_site "${_info}" DIRECTORY)
  set(VELA_OPENASSETIO_LIBS "${_site}/openassetio")

  # The library under the very name of its soname: the package holds three copies of it, and a
  # process that loads two of them has two sets of everything.
  set(_library "${VELA_OPENASSETIO_LIBS}/libopenassetio.so.1.0")
  if(NOT EXISTS "${_library}" OR NOT EXISTS "${VELA_OPENASSETIO_LIBS}/libopenassetio-python.so.1.0")
    message(FATAL_ERROR "The OpenAssetIO package in ${_site} holds no libopenassetio.so.1.0. "
      ${_advice})
  endif()
  execute_process(COMMAND "${CMAKE_READELF}" -d "${_library}" OUTPUT_VARIABLE _dynamic
    COMMAND_ERROR_IS_FATAL ANY)
  if(NOT _dynamic MATCHES "SONAME[^\n]*\\[libopenassetio\\.so\\.1\\.0\\]")
    message(FATAL_ERROR "${_library} has another soname than its name. " ${_advice})
  endif()

  # A sample of each class that is declared by hand, in the string ABI of today's libstdc++.
  execute_process(COMMAND "${CMAKE_NM}" -D --defined-only "${_library}" OUTPUT_VARIABLE _symbols
    COMMAND_ERROR_IS_FATAL ANY)
  set(_ns _ZN11openassetio2v1)
  set(_nsc _ZNK11openassetio2v1)
  foreach(_symbol IN ITEMS
      ${_ns}3log13ConsoleLogger4makeEb
      ${_ns}3log14SeverityFilter4makeE
      ${_ns}12pluginSystem43CppPluginSystemManagerImplementationFactory4makeE
      ${_ns}12pluginSystem46HybridPluginSystemManagerImplementationFactory4makeE
      ${_ns}7hostApi14ManagerFactory26defaultManagerForInterfaceE
      ${_ns}7hostApi7Manager13createContextEv
      ${_ns}7hostApi7Manager13hasCapabilityE
      ${_ns}7hostApi7Manager23isEntityReferenceStringE
      ${_ns}7hostApi7Manager28createEntityReferenceIfValidE
      ${_ns}7hostApi7Manager7resolveE
      ${_nsc}7hostApi7Manager11displayNameB5cxx11Ev
      ${_nsc}5trait10TraitsData16getTraitPropertyE
      ${_ns}7Context4makeE
      ${_nsc}5utils20FileUrlPathConverter11pathFromUrlB5cxx11E
      ${_ns}7hostApi13HostInterface4infoB5cxx11Ev
      _ZTIN11openassetio2v17hostApi13HostInterfaceE)
    if(NOT _symbols MATCHES "${_symbol}")
      message(FATAL_ERROR
        "${_library} lacks ${_symbol}: it is not the OpenAssetIO this was written for. " ${_advice})
    endif()
  endforeach()

  file(GLOB _module "${VELA_OPENASSETIO_LIBS}/_openassetio.cpython-*.so")
  if(NOT _module MATCHES "cpython-3([0-9]+)-")
    message(FATAL_ERROR "The OpenAssetIO package in ${_site} holds no Python module. " ${_advice})
  endif()
  set(VELA_OPENASSETIO_PYTHON "3.${CMAKE_MATCH_1}")

  add_library(vela_openassetio_core SHARED IMPORTED)
  set_target_properties(vela_openassetio_core PROPERTIES
    IMPORTED_LOCATION "${_library}" IMPORTED_SONAME libopenassetio.so.1.0)
  target_link_libraries(vela_openassetio INTERFACE vela_openassetio_core)
  message(STATUS
    "OpenAssetIO: ${VELA_OPENASSETIO_VERSION}, Python ${VELA_OPENASSETIO_PYTHON}, in ${_site}")
endif()

# The bridge to Python managers is loaded at run time, and only into a process of the Python version
# it was built for.
if(VELA_OPENASSETIO_PYTHON)
  target_compile_definitions(vela_openassetio INTERFACE
    "VELA_OPENASSETIO_PYTHON=\"${VELA_OPENASSETIO_PYTHON}.\"")
endif()
