#include "vela/asset/AssetManager.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "vela/asset/detail/AssetState.h"
#include "vela/asset/detail/OpenAssetIO.h"
#include "vela/asset/detail/PythonBridge.h"
#include "vela/log/Log.h"

namespace vela::asset {
namespace {

using openassetio::hostApi::Manager;
using openassetio::hostApi::ManagerFactory;
using FactoryPtr = openassetio::hostApi::ManagerImplementationFactoryInterfacePtr;

// Tells managers which application they serve.
class BraeHostInterface final : public openassetio::hostApi::HostInterface {
 public:
  [[nodiscard]] openassetio::Identifier identifier() const override { return "org.vela.host"; }
  [[nodiscard]] openassetio::Str displayName() const override { return "Asset System"; }
};

// Never destroyed: managers of Python plug-ins would reach for an interpreter that is gone by
// then.
struct State {
  std::mutex mutex;  // held to read and write these, never across a call into the manager
  std::shared_ptr<Manager> manager;
  std::shared_ptr<openassetio::Context> context;
  std::unordered_map<std::string, openassetio::trait::TraitsDataPtr> resolved;
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

std::shared_ptr<Manager> makeManager(const std::string& configPath) {
  // Console output of OpenAssetIO's own, filtered by OPENASSETIO_LOGGING_SEVERITY.
  const openassetio::log::LoggerInterfacePtr logger =
      openassetio::log::SeverityFilter::make(openassetio::log::ConsoleLogger::make(true));

  // Native and Python plug-ins side by side. Native ones first: they answer where both have an
  // identifier.
  const FactoryPtr python = detail::makePythonFactory(logger);
  const FactoryPtr native =
      openassetio::pluginSystem::CppPluginSystemManagerImplementationFactory::make(logger);
  std::vector<FactoryPtr> factories{native};
  if (python) factories.push_back(python);
  const FactoryPtr factory =
      openassetio::pluginSystem::HybridPluginSystemManagerImplementationFactory::make(
          std::move(factories), logger);

  const auto host = std::make_shared<BraeHostInterface>();
  return configPath.empty()
             ? ManagerFactory::defaultManagerForInterface(host, factory, logger)
             : ManagerFactory::defaultManagerForInterface(configPath, host, factory, logger);
}

}  // namespace

// ---- State

namespace detail {

std::shared_ptr<openassetio::Context> contextForCalls() {
  if (auto context = getContext()) return context;
  return openassetio::Context::make(openassetio::trait::TraitsData::make(), nullptr);
}

bool findResolved(const std::string& key, openassetio::trait::TraitsDataPtr& data) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  const auto known = s.resolved.find(key);
  if (known == s.resolved.end()) return false;
  data = known->second;
  return true;
}

void storeResolved(const std::string& key, const openassetio::trait::TraitsDataPtr& data) {
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
    const std::shared_ptr<Manager> manager = makeManager(configPath);
    if (!manager) {
      detail::tellError(error, "", "Failed to create the default OpenAssetIO Manager");
    } else if (!manager->hasCapability(Manager::Capability::kResolution)) {
      // KEEP(asset-unresolving-manager): it is installed all the same. It may know its references,
      // and a host must not take those for file names.
      detail::tellWarning(warning, "Loaded manager " + manager->displayName() +
                                       ", but it does not support asset resolution and will be "
                                       "ignored");
    }
    setManager(manager);
    return manager != nullptr;
  });
}

std::shared_ptr<Manager> getManager() {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  return s.manager;
}

void setManager(const std::shared_ptr<Manager>& manager) {
  // KEEP(asset-cache-outlives-manager): only clearCache forgets what was resolved; hosts swap
  // managers in mid-session and call it when the answers may differ.
  std::shared_ptr<Manager> previous = manager;
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
  const std::shared_ptr<Manager> manager = getManager();
  if (!manager) return;
  detail::guarded(nullptr, "Failed to create a context: ", false, [&] {
    std::shared_ptr<openassetio::Context> context = manager->createContext();
    State& s = state();
    const std::lock_guard lock(s.mutex);
    s.context.swap(context);
    return true;
  });
}

void clearCache() {
  {
    std::unordered_map<std::string, openassetio::trait::TraitsDataPtr> previous;
    State& s = state();
    const std::lock_guard lock(s.mutex);
    s.resolved.swap(previous);
  }
  setupManager(std::string());
}

}  // namespace vela::asset
