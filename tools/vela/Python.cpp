#include "Python.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace command {

#ifdef VELA_COMMAND_PYTHON

namespace {

// Found by name at run time, all of them in Python's stable ABI: the command starts without Python
// where nothing asks for it.
template <class Function>
bool find(const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
  return function != nullptr;
}

// The interpreter finds its packages by its own name. Bytes beyond ASCII go the way by which Python
// itself keeps bytes of file names that it cannot decode, so that any locale gives the same path
// back.
const wchar_t* programName() {
  static wchar_t name[sizeof VELA_COMMAND_PYTHON];
  const char* const bytes = VELA_COMMAND_PYTHON;
  for (std::size_t i = 0; i < sizeof name / sizeof name[0]; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    name[i] = static_cast<wchar_t>(byte < 0x80 ? byte : 0xdc00 + byte);
  }
  return name;
}

}  // namespace

std::string startPython() {
  // An interpreter whose files are gone would end the process.
  if (access(VELA_COMMAND_PYTHON, X_OK) != 0)
    return std::string("there is no ") + VELA_COMMAND_PYTHON;

  // Libraries of the command may have brought a libpython; there must not be two.
  int (*isInitialized)() = nullptr;
  if (!find("Py_IsInitialized", isInitialized)) {
    if (!dlopen(VELA_COMMAND_LIBPYTHON, RTLD_NOW | RTLD_GLOBAL)) return dlerror();
  }
  const char* (*getVersion)() = nullptr;
  void (*setProgramName)(const wchar_t*) = nullptr;
  void (*initialize)(int) = nullptr;
  void* (*saveThread)() = nullptr;
  if (!find("Py_IsInitialized", isInitialized) || !find("Py_GetVersion", getVersion) ||
      !find("Py_SetProgramName", setProgramName) || !find("Py_InitializeEx", initialize) ||
      !find("PyEval_SaveThread", saveThread))
    return std::string(VELA_COMMAND_LIBPYTHON) + " is no libpython";
  if (isInitialized()) return "";
  if (std::strncmp(getVersion(), VELA_COMMAND_PYTHON_VERSION,
                   std::strlen(VELA_COMMAND_PYTHON_VERSION)) != 0)
    return std::string("the libpython of this process is no ") + VELA_COMMAND_PYTHON_VERSION + "x";

  unsetenv("PYTHONHOME");
  setProgramName(programName());
  initialize(0);
  saveThread();
  return "";
}

#else

std::string startPython() { return "this command was built without a Python environment"; }

#endif

}  // namespace command
