# OpenUSD for src/ovo, as one target: vela_openusd. The option says where it comes from; nothing
# else depends on that.
#
#   wheels  the binary packages that scripts/setup puts into the Python environment build/env: there
#           in seconds, for work
#   source  a prefix of static libraries built from the publisher's source packages
#           (VELA_OPENUSD_PREFIX), for what is shipped
#
# VELA_OPENUSD_LIBS is the folder that the installed library needs on its run path (empty with
# source), VELA_TBB_VERSION the version of the TBB that comes with it.
# vela_openusd_executable(<target>) gives an executable of the build tree what it needs to run with
# libvela.
set(VELA_OPENUSD "wheels" CACHE STRING "Where OpenUSD comes from: wheels or source")
set_property(CACHE VELA_OPENUSD PROPERTY STRINGS wheels source)
set(VELA_PYTHON_ENV "${PROJECT_SOURCE_DIR}/build/env" CACHE PATH
  "The Python environment with the OpenUSD packages")
set(VELA_OPENUSD_PREFIX "" CACHE PATH
  "With VELA_OPENUSD=source: where the static libraries are installed")
set(VELA_OPENUSD_VERSION 26.8)
set(VELA_OPENUSD_LIBS "")

add_library(vela_openusd INTERFACE)

if(VELA_OPENUSD STREQUAL "wheels")
  file(GLOB _site LIST_DIRECTORIES true "${VELA_PYTHON_ENV}/lib/python3.*/site-packages")
  if(NOT _site OR NOT EXISTS "${_site}/pxr-pcp/include/pxr/pcp/cache.h" OR NOT EXISTS
    "${_site}/pxr/.libs/libPxrPcp.so")
    message(FATAL_ERROR
      "OpenUSD was not found in ${VELA_PYTHON_ENV}. Run scripts/setup, which makes that "
      "environment, "
      "or name another with -DVELA_PYTHON_ENV=.")
  endif()
  if(NOT EXISTS "${_site}/pxr_pcp_dev-${VELA_OPENUSD_VERSION}.dist-info")
    message(FATAL_ERROR
      "${VELA_PYTHON_ENV} does not hold OpenUSD ${VELA_OPENUSD_VERSION}. Run scripts/setup.")
  endif()

  # The packages bring every library twice; the set in pxr/.libs is the one that the plug-in table
  # names, so that is the one to link and to load. Linked by file, since the packages' own targets
  # name the other set.
  set(VELA_OPENUSD_LIBS "${_site}/pxr/.libs")
  # A property as well: executables are made in folders that do not see this one's variables.
  set_property(GLOBAL PROPERTY VELA_OPENUSD_LIBS "${VELA_OPENUSD_LIBS}")
  file(GLOB _includes LIST_DIRECTORIES true "${_site}/pxr-*/include")
  target_include_directories(vela_openusd SYSTEM INTERFACE ${_includes} "${_site}/TBB/include")
  set(_tbb_headers "${_site}/TBB/include")
  # All of them, used directly or not: a linker finds a library's own needs by the run path, but not
  # the needs of those, and who links to libvela should not have to know of any of this.
  set(_libraries "")
  foreach(_name IN ITEMS Pcp Sdf Ar Plug Ts Vt Gf Work Trace Js Tf Arch BoostPython)
    list(APPEND _libraries "${VELA_OPENUSD_LIBS}/libPxr${_name}.so")
  endforeach()
  target_compile_definitions(vela_openusd INTERFACE PXR_BOOST_PYTHON_NO_PY_SIGNATURES)

  # They are built with Python bindings: their data symbols need libpython in the process, though no
  # interpreter ever starts. It must be that of the interpreter which made the environment, not just
  # any on the PATH.
  execute_process(COMMAND "${VELA_PYTHON_ENV}/bin/python3" -c
    "import sysconfig as s; v = s.get_config_var; \
print(s.get_path('include'), v('LIBDIR'), v('MULTIARCH') or '.', v('VERSION'), sep=';')"
    OUTPUT_VARIABLE _python OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  list(GET _python 0 _python_include)
  list(GET _python 1 _python_libdir)
  list(GET _python 2 _python_multiarch)
  list(GET _python 3 _python_version)
  find_library(VELA_LIBPYTHON NAMES "python${_python_version}" NO_DEFAULT_PATH
    PATHS "${_python_libdir}/${_python_multiarch}" "${_python_libdir}")
  mark_as_advanced(VELA_LIBPYTHON)
  if(NOT VELA_LIBPYTHON OR NOT EXISTS "${_python_include}/Python.h")
    message(FATAL_ERROR
      "The development files of Python ${_python_version} are missing (${_python_include}, "
      "${_python_libdir}). On Debian: apt-get install python3-dev, which scripts/setup does.")
  endif()
  target_include_directories(vela_openusd SYSTEM INTERFACE "${_python_include}")
  target_link_libraries(vela_openusd INTERFACE
    "-Wl,--push-state,--no-as-needed" ${_libraries} "${VELA_OPENUSD_LIBS}/libtbb.so"
    "${VELA_LIBPYTHON}" "-Wl,--pop-state")

  # The old kind of run path, which counts for the libraries' libraries too: theirs name no folder.
  target_link_options(vela_openusd INTERFACE "-Wl,--disable-new-dtags"
    "-Wl,-rpath-link,${VELA_OPENUSD_LIBS}")

  # One TBB in a process. Embree brings libtbb.so.12 of the system, which exports the same symbols
  # as the packages' libtbb.so: a link of that name, found first, lets one library serve both.
  set(_tbb_links "${PROJECT_BINARY_DIR}/one-tbb")
  file(MAKE_DIRECTORY "${_tbb_links}")
  file(CREATE_LINK "${VELA_OPENUSD_LIBS}/libtbb.so" "${_tbb_links}/libtbb.so.12" SYMBOLIC)
  function(vela_openusd_executable target)
    get_property(libs GLOBAL PROPERTY VELA_OPENUSD_LIBS)
    target_link_options(${target} PRIVATE "-Wl,--disable-new-dtags"
      "-Wl,-rpath,${PROJECT_BINARY_DIR}/one-tbb" "-Wl,-rpath,${libs}"
      "-Wl,-rpath-link,${PROJECT_BINARY_DIR}/one-tbb" "-Wl,-rpath-link,${libs}")
  endfunction()

elseif(VELA_OPENUSD STREQUAL "source")
  if(NOT EXISTS "${VELA_OPENUSD_PREFIX}/lib/libPxrPcp.a")
    message(FATAL_ERROR
      "VELA_OPENUSD=source needs VELA_OPENUSD_PREFIX: no lib/libPxrPcp.a in "
      "'${VELA_OPENUSD_PREFIX}'. scripts/build-static makes that folder and prints its name.")
  endif()
  # TBB comes from there as well: the machine's own must not take its place.
  find_package(TBB REQUIRED CONFIG PATHS "${VELA_OPENUSD_PREFIX}" NO_DEFAULT_PATH)

  # OpenUSD's own plug-in tables lie beside this project's. A table names the library that it speaks
  # for; here that is no file of its own.
  foreach(_name IN ITEMS ar sdf)
    file(READ "${VELA_OPENUSD_PREFIX}/lib/usd/${_name}/resources/plugInfo.json" _table)
    string(REGEX REPLACE "\"LibraryPath\": *\"[^\"]*\"" "\"LibraryPath\": \"\""
      _table "${_table}")
    set(_file "${PROJECT_BINARY_DIR}/src/vela/usd/${_name}/resources/plugInfo.json")
    file(CONFIGURE OUTPUT "${_file}" CONTENT "${_table}" @ONLY)
    install(FILES "${_file}" COMPONENT runtime
      DESTINATION "${CMAKE_INSTALL_LIBDIR}/vela/usd/${_name}/resources")
  endforeach()

  target_include_directories(vela_openusd SYSTEM INTERFACE "${VELA_OPENUSD_PREFIX}/include")
  set(_tbb_headers "${VELA_OPENUSD_PREFIX}/include")
  target_compile_definitions(vela_openusd INTERFACE PXR_STATIC=1 VELA_OPENUSD_STATIC=1)
  set(_archives "")
  foreach(_name IN ITEMS Pcp Sdf Ar Plug Ts Vt Gf Work Trace Js Tf Arch)
    list(APPEND _archives "${VELA_OPENUSD_PREFIX}/lib/libPxr${_name}.a")
  endforeach()
  # Whole archives: types register themselves from objects that nothing else refers to.
  list(JOIN _archives "," _archives)
  target_link_libraries(vela_openusd INTERFACE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${_archives}>"
    TBB::tbb ${CMAKE_DL_LIBS})
  # Where the build happens does not go into what is shipped.
  target_compile_options(vela_options INTERFACE
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=/vela"
    "-ffile-prefix-map=${VELA_OPENUSD_PREFIX}=/static")
  # TBB asks by weak names for parts that may be in the process. A host's would answer.
  foreach(_name IN ITEMS __TBB_call_with_my_server_info __TBB_make_rml_server
      __TBB_internal_allocate_binding_handler __TBB_internal_apply_affinity
      __TBB_internal_deallocate_binding_handler __TBB_internal_destroy_system_topology
      __TBB_internal_get_affinity_mask __TBB_internal_get_default_concurrency
      __TBB_internal_initialize_system_topology __TBB_internal_restore_affinity
      __TBB_internal_set_tbbbind_assertion_handler)
    target_link_options(vela_openusd INTERFACE "-Wl,--defsym=${_name}=0")
  endforeach()
  # TBB's threads outlive whatever a host does: the code they run in stays where it is.
  target_link_options(vela_openusd INTERFACE "-Wl,--exclude-libs,ALL" "-Wl,-z,nodelete")
  function(vela_openusd_executable target)
  endfunction()

else()
  message(FATAL_ERROR "VELA_OPENUSD: unknown value '${VELA_OPENUSD}', use wheels or source")
endif()

file(STRINGS "${_tbb_headers}/oneapi/tbb/version.h" _lines
  REGEX "define TBB_VERSION_(MAJOR|MINOR|PATCH) ")
string(REGEX REPLACE "[^0-9;]" "" _lines "${_lines}")
list(JOIN _lines "." VELA_TBB_VERSION)
