#include "Python.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>

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
const wchar_t* programName(const std::string& bytes) {
  static std::wstring& name = *new std::wstring;  // the interpreter keeps the pointer
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    name += static_cast<wchar_t>(byte < 0x80 ? byte : 0xdc00 + byte);
  }
  return name.c_str();
}

// Where a program lies, as a shell finds it; empty when nowhere.
std::string onPath(const std::string& program) {
  if (program.find('/') != std::string::npos)
    return access(program.c_str(), X_OK) == 0 ? program : "";
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string file = (folder.empty() ? "." : folder) + "/" + program;
    if (access(file.c_str(), X_OK) == 0) return file;
  }
  return "";
}

// The version of Python that the command was built for, such as "3.11".
std::string ourVersion() {
  return {VELA_COMMAND_PYTHON_VERSION, std::strlen(VELA_COMMAND_PYTHON_VERSION) - 1};
}

// An interpreter of another version would not find its own files, and end the process. Its name
// says which it is: environments' interpreters are links to python3.11.
bool isOfOurVersion(const std::string& program) {
  char real[PATH_MAX];
  if (!realpath(program.c_str(), real)) return false;
  const char* const slash = std::strrchr(real, '/');
  return slash && slash + 1 == "python" + ourVersion();
}

// The interpreter to start, or why there is none.
struct Choice {
  std::string program;
  std::string why;
};

Choice choosePython() {
  const char* const chosen = std::getenv("VELA_PYTHON");
  const bool isChosen = chosen && *chosen;
  const std::string name = isChosen ? chosen : VELA_COMMAND_PYTHON;
  std::string program = onPath(name);
  // An interpreter whose files are gone would end the process.
  if (program.empty()) return {"", "there is no " + name};
  if (!isOfOurVersion(program))
    return {"", (isChosen ? "VELA_PYTHON: " : "") + program + " is no Python " + ourVersion()};
  return {std::move(program), ""};
}

}  // namespace

std::string startPython() {
  const Choice choice = choosePython();
  if (choice.program.empty()) return choice.why;

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
  setProgramName(programName(choice.program));
  initialize(0);
  saveThread();
  return "";
}

std::string pythonInfo() {
  const Choice choice = choosePython();
  if (choice.program.empty()) return choice.why;
  return ourVersion() + ", " + choice.program + ", started for references alone";
}

#else

namespace {

constexpr const char* kNoPython = "this command was built without a Python environment";

}  // namespace

std::string startPython() { return kNoPython; }
std::string pythonInfo() { return kNoPython; }

#endif

}  // namespace command
