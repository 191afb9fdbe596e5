# The libpython of the interpreter in VELA_PYTHON_ENV, for programs that load it at run time:
# VELA_LIBPYTHON_RUNTIME is its file (NOTFOUND when there is none), VELA_PYTHON_RUNTIME_VERSION the
# interpreter's version ("3.11"). Nothing links to it.
set(VELA_PYTHON_ENV "${PROJECT_SOURCE_DIR}/build/env" CACHE PATH
  "The Python environment with the OpenAssetIO package")
set(VELA_PYTHON_RUNTIME_VERSION "")
if(EXISTS "${VELA_PYTHON_ENV}/bin/python3")
  execute_process(COMMAND "${VELA_PYTHON_ENV}/bin/python3" -c
    "import sysconfig as s; v = s.get_config_var; \
print(v('LIBDIR') + '/' + (v('MULTIARCH') or '.'), v('LIBDIR'), v('INSTSONAME'), v('VERSION'), \
sep=';')"
    OUTPUT_VARIABLE _python OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  list(GET _python 0 _multiarch)
  list(GET _python 1 _libdir)
  list(GET _python 2 _soname)
  list(GET _python 3 VELA_PYTHON_RUNTIME_VERSION)
  find_file(VELA_LIBPYTHON_RUNTIME NAMES "${_soname}" PATHS "${_multiarch}" "${_libdir}"
    NO_DEFAULT_PATH)
  mark_as_advanced(VELA_LIBPYTHON_RUNTIME)
endif()
