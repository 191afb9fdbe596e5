#include "vela/asset/detail/PythonBridge.h"

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <string>

namespace vela::asset::detail {
namespace {

using openassetio::hostApi::ManagerImplementationFactoryInterfacePtr;
using openassetio::log::LoggerInterfacePtr;

constexpr const char* kBridge = "libopenassetio-python.so.1.0";
constexpr const char* kFactory =
    "_ZN11openassetio2v16python7hostApi52createPythonPluginSystemManagerImplementationFactory"
    "ESt10shared_ptrINS0_3log15LoggerInterfaceEE";

template <typename Function>
Function functionOf(void* library, const char* name) {
  return reinterpret_cast<Function>(dlsym(library, name));
}

// Where a library of this process was loaded from, found by how its file name begins; empty
// without one.
std::string pathOfLoaded(const char* beginning) {
  struct Search {
    const char* beginning;
    std::string path;
  } search{beginning, {}};
  const auto visit = [](dl_phdr_info* info, std::size_t, void* data) -> int {
    auto& sought = *static_cast<Search*>(data);
    const char* const slash = std::strrchr(info->dlpi_name, '/');
    const char* const name = slash ? slash + 1 : info->dlpi_name;
    if (std::strncmp(name, sought.beginning, std::strlen(sought.beginning)) != 0) return 0;
    sought.path = info->dlpi_name;
    return 1;
  };
  dl_iterate_phdr(visit, &search);
  return search.path;
}

// Makes the symbols of a libpython visible that was loaded for its loader alone: the bridge needs
// to find them.
void promoteLibpython() {
  const std::string path = pathOfLoaded("libpython3.");
  if (!path.empty()) dlopen(path.c_str(), RTLD_NOLOAD | RTLD_NOW | RTLD_GLOBAL);
}

// Why there is no interpreter to use; null when there is one.
const char* whyNoInterpreter() {
  if (!dlsym(RTLD_DEFAULT, "Py_IsInitialized")) promoteLibpython();
  const auto isInitialized = functionOf<int (*)()>(RTLD_DEFAULT, "Py_IsInitialized");
  if (!isInitialized || !isInitialized()) return "no Python interpreter runs in this process";
#ifndef VELA_OPENASSETIO_PYTHON
  return "this OpenAssetIO was built without Python";
#else
  // The bridge is bound to one version of the interpreter, and its file name does not say which. In
  // another one it ends the process.
  const auto version = functionOf<const char* (*)()>(RTLD_DEFAULT, "Py_GetVersion");
  if (!version ||
      std::strncmp(version(), VELA_OPENASSETIO_PYTHON, std::strlen(VELA_OPENASSETIO_PYTHON)) != 0)
    return "the Python interpreter of this process is of another version than OpenAssetIO's";
  return nullptr;
#endif
}

// The bridge; null, with dlerror() saying why, when it cannot be loaded.
void* loadBridge() {
  // By its plain name: one that the process has already serves again, from whatever folder; else it
  // lies on this library's run path.
  if (void* const bridge = dlopen(kBridge, RTLD_LAZY | RTLD_LOCAL)) return bridge;
  // That run path is not followed where another library stands in for dlopen, as sanitizers and
  // profilers do.
  const std::string core = pathOfLoaded("libopenassetio.so.");
  return dlopen((core.substr(0, core.rfind('/') + 1) + kBridge).c_str(), RTLD_LAZY | RTLD_LOCAL);
}

}  // namespace

ManagerImplementationFactoryInterfacePtr makePythonFactory(const LoggerInterfacePtr& logger,
                                                           const OpenAssetIOCalls::Note& leftOut) {
  const char* reason = whyNoInterpreter();
  if (!reason) {
    // Loaded only now: without Python's symbols in the process it cannot be loaded at all, and
    // called without an interpreter it would crash.
    void* const bridge = loadBridge();
    using Make = ManagerImplementationFactoryInterfacePtr (*)(LoggerInterfacePtr);
    if (const auto make = bridge ? functionOf<Make>(bridge, kFactory) : nullptr)
      return make(logger);
    reason = dlerror();
  }
  leftOut(std::string("Python asset managers are left out: ") +
          (reason ? reason : "their bridge is incomplete"));
  return nullptr;
}

}  // namespace vela::asset::detail
