// The module that knows OpenAssetIO; see OpenAssetIOCalls.h.
#include "vela/asset/detail/OpenAssetIOCalls.h"

#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

#include "vela/asset/AssetInfo.h"
#include "vela/asset/detail/OpenAssetIO.h"
#include "vela/asset/detail/PythonBridge.h"

namespace vela::asset::detail {
namespace {

using openassetio::EntityReference;
using openassetio::hostApi::Manager;
using openassetio::hostApi::ManagerFactory;
using FactoryPtr = openassetio::hostApi::ManagerImplementationFactoryInterfacePtr;

// Tells managers which application they serve.
class BraeHostInterface final : public openassetio::hostApi::HostInterface {
 public:
  [[nodiscard]] openassetio::Identifier identifier() const override { return "org.vela.host"; }
  [[nodiscard]] openassetio::Str displayName() const override { return "Asset System"; }
};

ManagerPtr makeManager(const std::string& configPath, const OpenAssetIOCalls::Note& leftOut) {
  // Console output of OpenAssetIO's own, filtered by OPENASSETIO_LOGGING_SEVERITY.
  const openassetio::log::LoggerInterfacePtr logger =
      openassetio::log::SeverityFilter::make(openassetio::log::ConsoleLogger::make(true));

  // Native and Python plug-ins side by side. Native ones first: they answer where both have an
  // identifier.
  const FactoryPtr python = makePythonFactory(logger, leftOut);
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

std::string displayName(const Manager& manager) { return manager.displayName(); }

bool canResolve(Manager& manager) {
  return manager.hasCapability(Manager::Capability::kResolution);
}

bool isReference(Manager& manager, const std::string& text) {
  return manager.isEntityReferenceString(text);
}

ContextPtr createContext(Manager& manager) { return manager.createContext(); }

ContextPtr emptyContext() {
  return openassetio::Context::make(openassetio::trait::TraitsData::make(), nullptr);
}

std::shared_ptr<const void> makeReference(Manager& manager, const std::string& text) {
  std::optional<EntityReference> reference = manager.createEntityReferenceIfValid(text);
  if (!reference) return nullptr;
  return std::make_shared<const EntityReference>(*std::move(reference));
}

TraitsDataPtr resolve(Manager& manager, const void* reference,
                      const std::set<std::string>& traitSet, const ContextPtr& context) {
  return manager.resolve(*static_cast<const EntityReference*>(reference), traitSet,
                         openassetio::access::ResolveAccess::kRead, context);
}

LocationKind locationOf(const openassetio::trait::TraitsData& data, std::string& text) {
  // Never destroyed, for callers that resolve while the process ends.
  static const auto& converter = *new openassetio::utils::FileUrlPathConverter;

  openassetio::trait::property::Value value;
  if (!data.getTraitProperty(&value, kLocatableContentTrait, "location"))
    return LocationKind::kNone;
  const std::string* const url = std::get_if<std::string>(&value);
  if (!url) throw std::runtime_error("Invalid stored value type: should be 'openassetio::Str'.");
  try {
    text = converter.pathFromUrl(*url);
    return LocationKind::kPath;
  } catch (const openassetio::errors::InputValidationException&) {
    text = *url;
    return LocationKind::kBadUrl;
  }
}

const void* libraryAddress() { return reinterpret_cast<const void*>(&openassetio::Context::make); }

constexpr OpenAssetIOCalls kCalls{VELA_VERSION_TEXT,
                                  VELA_OPENASSETIO_VERSION,
                                  VELA_OPENASSETIO_PYTHON_VERSION,
                                  libraryAddress,
                                  makeManager,
                                  displayName,
                                  canResolve,
                                  isReference,
                                  createContext,
                                  emptyContext,
                                  makeReference,
                                  resolve,
                                  locationOf};

}  // namespace
}  // namespace vela::asset::detail

extern "C" __attribute__((visibility("default"))) const vela::asset::detail::OpenAssetIOCalls*
velaOpenAssetIOCalls() {
  return &vela::asset::detail::kCalls;
}
