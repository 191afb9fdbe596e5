#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <stdexcept>

#include "vela/Version.h"
#include "vela/asset/detail/OpenAssetIOCalls.h"

namespace vela::asset::detail {
namespace {

// Beside the library that this code is in, or the executable that has its objects.
std::filesystem::path modulePath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&modulePath), &info) == 0 || !info.dli_fname) return {};
  std::error_code failed;
  const std::filesystem::path file = std::filesystem::canonical(info.dli_fname, failed);
  if (failed) return {};
  return file.parent_path() / "vela" / "openassetio" / "vela_openassetio.so";
}

const OpenAssetIOCalls& load() {
  const std::filesystem::path path = modulePath();
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored))
    throw std::runtime_error("OpenAssetIO is not installed: " + path.string() + " is missing");
  // For this library alone: a host's own OpenAssetIO stays the host's.
  void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module) throw std::runtime_error(std::string("OpenAssetIO cannot be loaded: ") + dlerror());
  const auto entry = reinterpret_cast<OpenAssetIOCallsEntry>(dlsym(module, kOpenAssetIOCallsEntry));
  const OpenAssetIOCalls* const calls = entry ? entry() : nullptr;
  if (!calls || std::string_view(calls->version) != version())
    throw std::runtime_error("OpenAssetIO cannot be used: " + path.string() + " is of version " +
                             (calls ? calls->version : "unknown") + ", and " + version() +
                             " is needed");
  return *calls;
}

}  // namespace

const OpenAssetIOCalls& openAssetIO() {
  static std::atomic<const OpenAssetIOCalls*> known{nullptr};
  if (const OpenAssetIOCalls* const calls = known.load(std::memory_order_acquire)) return *calls;
  static std::mutex& mutex = *new std::mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  if (!known.load(std::memory_order_relaxed)) known.store(&load(), std::memory_order_release);
  return *known.load(std::memory_order_relaxed);
}

}  // namespace vela::asset::detail
