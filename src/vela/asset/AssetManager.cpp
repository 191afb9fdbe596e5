#include "vela/asset/AssetManager.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "vela/asset/detail/AssetState.h"
#include "vela/asset/detail/OpenAssetIOCalls.h"
#include "vela/log/Log.h"

namespace vela::asset {
namespace {

using detail::ContextPtr;
using detail::ManagerPtr;
using detail::TraitsDataPtr;

// Never destroyed: managers of Python plug-ins would reach for an interpreter that is gone by
// then.
struct State {
  std::mutex mutex;  // held to read and write these, never across a call into the manager
  ManagerPtr manager;
  ContextPtr context;
  std::unordered_map<std::string, TraitsDataPtr> resolved;
};

State& state() {
  static State& instance = *new State;
  return instance;
}

unsigned logChannel() {
  static const unsigned channel = Halden::Log::channel("Asset System");
  return channel;
}

// A message as part of a sentence: without the traceback that Python's messages end with.
std::string oneLine(std::string_view message) {
  std::string line(message.substr(0, message.find("\n\nAt:")));
  while (!line.empty() && (line.back() == '\n' || line.back() == '.')) line.pop_back();
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

}  // namespace

// ---- State

namespace detail {

ContextPtr contextForCalls() {
  if (ContextPtr context = getContext()) return context;
  return openAssetIO().emptyContext();
}

bool findResolved(const std::string& key, TraitsDataPtr& data) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  const auto known = s.resolved.find(key);
  if (known == s.resolved.end()) return false;
  data = known->second;
  return true;
}

void storeResolved(const std::string& key, const TraitsDataPtr& data) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  s.resolved[key] = data;
}

void tellError(AssetMessage* to, std::string_view head, std::string_view reason) {
  std::string text(head);
  text += reason;
  if (to)
    *to = {oneLine(reason), std::move(text)};
  else
    Halden::Log::write(Halden::Log::error, text, logChannel());
}

void tellWarning(AssetMessage* to, std::string_view text) {
  if (to)
    *to = {oneLine(text), std::string(text)};
  else
    Halden::Log::write(Halden::Log::warning, text, logChannel());
}

void tellQuietly(AssetMessage* to, std::string_view reason) {
  if (to) *to = {oneLine(reason), std::string()};
}

void logVerbose(std::string_view text) {
  Halden::Log::write(Halden::Log::verbose, text, logChannel());
}

}  // namespace detail

// ---- Manager and context

void setupManager(const std::string& configPath) { setupManager(configPath, nullptr); }

bool setupManager(const std::string& configPath, AssetMessage* error, AssetMessage* warning) {
  if (error) *error = {};
  if (warning) *warning = {};
  if (!std::getenv("OPENASSETIO_DEFAULT_CONFIG") && configPath.empty()) {
    detail::tellQuietly(error, "no configuration is named");
    return false;
  }

  const char* const head = "Failed to create the default OpenAssetIO Manager (Unexpected): ";
  return detail::guarded(error, head, false, [&] {
    const detail::OpenAssetIOCalls& calls = detail::openAssetIO();
    const ManagerPtr manager = calls.makeManager(configPath, detail::logVerbose);
    if (!manager) {
      detail::tellError(error, "", "Failed to create the default OpenAssetIO Manager");
    } else if (!calls.canResolve(*manager)) {
      // KEEP(asset-unresolving-manager): it is installed all the same. It may know its references,
      // and a host must not take those for file names.
      detail::tellWarning(warning, "Loaded manager " + calls.displayName(*manager) +
                                       ", but it does not support asset resolution and will be "
                                       "ignored");
    }
    setManager(manager);
    return manager != nullptr;
  });
}

std::shared_ptr<openassetio::hostApi::Manager> getManager() {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  return s.manager;
}

void setManager(const std::shared_ptr<openassetio::hostApi::Manager>& manager) {
  // KEEP(asset-cache-outlives-manager): only clearCache forgets what was resolved; hosts swap
  // managers in mid-session and call it when the answers may differ.
  ManagerPtr previous = manager;
  State& s = state();
  {
    const std::lock_guard lock(s.mutex);
    s.manager.swap(previous);
  }
  // The previous one dies here, outside the lock: a plug-in runs as it goes.
}

std::shared_ptr<openassetio::Context> getContext() {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  return s.context;
}

void clearContext() {
  const ManagerPtr manager = getManager();
  if (!manager) return;
  detail::guarded(nullptr, "Failed to create a context: ", false, [&] {
    ContextPtr context = detail::openAssetIO().createContext(*manager);
    State& s = state();
    const std::lock_guard lock(s.mutex);
    s.context.swap(context);
    return true;
  });
}

void clearCache() {
  {
    std::unordered_map<std::string, TraitsDataPtr> previous;
    State& s = state();
    const std::lock_guard lock(s.mutex);
    s.resolved.swap(previous);
  }
  setupManager(std::string());
}

std::string openAssetIOInfo() {
  try {
    const detail::OpenAssetIOCalls& calls = detail::openAssetIO();
    const std::string python = calls.pythonVersion;
    Dl_info file{};
    dladdr(calls.libraryAddress(), &file);
    return std::string(calls.openAssetIOVersion) + ", " + (file.dli_fname ? file.dli_fname : "") +
           (python.empty() ? ", native managers alone" : ", managers of Python " + python);
  } catch (const std::exception& exception) {
    return exception.what();
  }
}

}  // namespace vela::asset
