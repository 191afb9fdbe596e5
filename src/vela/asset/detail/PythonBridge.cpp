#include "vela/asset/detail/PythonBridge.h"

#include "vela/asset/detail/AssetState.h"

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

/// Makes the symbols of a libpython visible that was loaded for its loader alone: the bridge needs to find them.
void promoteLibpython() {
  std::string path;
  const auto visit = [](dl_phdr_info* info, std::size_t, void* found) -> int {
    const char* const slash = std::strrchr(info->dlpi_name, '/');
    const char* const name = slash ? slash + 1 : info->dlpi_name;
    if (std::strncmp(name, "libpython3.", 11) != 0) return 0;
    *static_cast<std::string*>(found) = info->dlpi_name;
    return 1;
  };
  dl_iterate_phdr(visit, &path);
  if (!path.empty()) dlopen(path.c_str(), RTLD_NOLOAD | RTLD_NOW | RTLD_GLOBAL);
}

/// Why there is no interpreter to use; null when there is one.
const char* whyNoInterpreter() {
  if (!dlsym(RTLD_DEFAULT, "Py_IsInitialized")) promoteLibpython();
  const auto isInitialized = functionOf<int (*)()>(RTLD_DEFAULT, "Py_IsInitialized");
  if (!isInitialized || !isInitialized()) return "no Python interpreter runs in this process";
#ifdef VELA_OPENASSETIO_PYTHON
  // The bridge is bound to one version of the interpreter, and its file name does not say which.
  const auto version = functionOf<const char* (*)()>(RTLD_DEFAULT, "Py_GetVersion");
  if (!version || std::strncmp(version(), VELA_OPENASSETIO_PYTHON, std::strlen(VELA_OPENASSETIO_PYTHON)) != 0)
    return "the Python interpreter of this process is of another version than OpenAssetIO's";
#endif
  return nullptr;
}

}  // namespace

ManagerImplementationFactoryInterfacePtr makePythonFactory(const LoggerInterfacePtr& logger) {
  const char* reason = whyNoInterpreter();
  if (!reason) {
    // Loaded only now: without Python's symbols in the process it cannot be loaded at all, and called without an
    // interpreter it would crash. Found by its plain name along this library's run path.
    void* const bridge = dlopen(kBridge, RTLD_LAZY | RTLD_LOCAL);
    using Make = ManagerImplementationFactoryInterfacePtr (*)(LoggerInterfacePtr);
    if (const auto make = bridge ? functionOf<Make>(bridge, kFactory) : nullptr) return make(logger);
    reason = dlerror();
  }
  logVerbose(std::string("Python asset managers are left out: ") + (reason ? reason : "their bridge is incomplete"));
  return nullptr;
}

}  // namespace vela::asset::detail
