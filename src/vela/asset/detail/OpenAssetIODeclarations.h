/// \file
/// Declarations of the part of OpenAssetIO 1.0 that the asset layer calls, for its binary package,
/// which holds no headers.
///
/// They agree with the library in names, layouts, vtable order and exception types; nothing else
/// matters to a linker. cmake/OpenAssetIO.cmake refuses other versions, the assertions below hold
/// the layouts, and the tests run every virtual call against a plug-in of their own. Rules that
/// must not be broken: no data members beyond these (sizes are known to inlined code), no
/// object of a class whose constructors are deleted here (OpenAssetIO's are larger),
/// HostInterface::info() stays its first function that is neither inline nor pure (the vtable lives
/// with it), and this header is never installed nor included beside OpenAssetIO's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

// Visible, as OpenAssetIO's are: type information of exceptions and interfaces is shared with
// plug-ins.
#pragma GCC visibility push(default)

namespace openassetio {
inline namespace v1 {

// ---- Values

using Bool = bool;
using Int = std::int64_t;
using Float = double;
using Str = std::string;
using Identifier = Str;
using Identifiers = std::vector<Identifier>;
using StrMap = std::unordered_map<Str, Str>;
using InfoDictionaryValue = std::variant<Bool, Int, Float, Str>;
using InfoDictionary = std::unordered_map<Str, InfoDictionaryValue>;

class EntityReference final {
 public:
  explicit EntityReference(Str text) : text_(std::move(text)) {}
  [[nodiscard]] const Str& toString() const { return text_; }

 private:
  Str text_;
};
using EntityReferences = std::vector<EntityReference>;

namespace access {
enum class ResolveAccess : std::size_t { kRead = 0, kManagerDriven = 4 };
}

namespace errors {

// An aggregate, as OpenAssetIO's: made with braces.
struct BatchElementError final {
  enum class ErrorCode {
    kUnknown = 128,
    kInvalidEntityReference,
    kMalformedEntityReference,
    kEntityAccessError,
    kEntityResolutionError,
    kInvalidPreflightHint,
    kInvalidTraitSet,
    kAuthError
  };
  ErrorCode code = ErrorCode::kUnknown;
  Str message;
};

struct OpenAssetIOException : std::runtime_error {
  using runtime_error::runtime_error;
};
struct InputValidationException : OpenAssetIOException {
  using OpenAssetIOException::OpenAssetIOException;
};
struct ConfigurationException : InputValidationException {
  using InputValidationException::InputValidationException;
};

}  // namespace errors

namespace trait {

using TraitId = Str;
using TraitSet = std::set<TraitId>;
namespace property {
using Key = Str;
using Value = std::variant<Bool, Int, Float, Str>;
}  // namespace property

class TraitsData;
using TraitsDataPtr = std::shared_ptr<TraitsData>;

class TraitsData final {
 public:
  static TraitsDataPtr make();
  ~TraitsData();
  [[nodiscard]] bool getTraitProperty(property::Value* out, const TraitId& traitId,
                                      const property::Key& key) const;
  void setTraitProperty(const TraitId& traitId, const property::Key& key, property::Value value);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace trait

// ---- Contexts

namespace managerApi {
class ManagerStateBase;
using ManagerStateBasePtr = std::shared_ptr<ManagerStateBase>;
class ManagerInterface;
using ManagerInterfacePtr = std::shared_ptr<ManagerInterface>;
}  // namespace managerApi

class Context;
using ContextPtr = std::shared_ptr<Context>;
using ContextConstPtr = std::shared_ptr<const Context>;

class Context final {
 public:
  trait::TraitsDataPtr locale;
  managerApi::ManagerStateBasePtr managerState;
  static ContextPtr make(trait::TraitsDataPtr locale, managerApi::ManagerStateBasePtr managerState);
};

// ---- Logging of the library itself

namespace log {

class LoggerInterface {
 public:
  LoggerInterface(const LoggerInterface&) = delete;
  LoggerInterface& operator=(const LoggerInterface&) = delete;
  enum class Severity { kDebugApi, kDebug, kInfo, kProgress, kWarning, kError, kCritical };
  virtual ~LoggerInterface();
  virtual void log(Severity severity, const Str& message) = 0;
  [[nodiscard]] virtual bool isSeverityLogged(Severity severity) const;

  void debug(const Str& message);
};
using LoggerInterfacePtr = std::shared_ptr<LoggerInterface>;

class ConsoleLogger;
class SeverityFilter;

class ConsoleLogger final : public LoggerInterface {
 public:
  ConsoleLogger() = delete;
  static std::shared_ptr<ConsoleLogger> make(bool shouldColorOutput);
  void log(Severity severity, const Str& message) override;
};

class SeverityFilter final : public LoggerInterface {
 public:
  SeverityFilter() = delete;
  static std::shared_ptr<SeverityFilter> make(LoggerInterfacePtr upstream);
  void log(Severity severity, const Str& message) override;
  [[nodiscard]] bool isSeverityLogged(Severity severity) const override;
};

}  // namespace log

// ---- Hosts and managers

namespace hostApi {

class HostInterface {
 public:
  virtual ~HostInterface() = default;
  [[nodiscard]] virtual Identifier identifier() const = 0;
  [[nodiscard]] virtual Str displayName() const = 0;
  virtual InfoDictionary info();
};
using HostInterfacePtr = std::shared_ptr<HostInterface>;

class ManagerImplementationFactoryInterface {
 public:
  ManagerImplementationFactoryInterface() = delete;
  ManagerImplementationFactoryInterface(const ManagerImplementationFactoryInterface&) = delete;
  ManagerImplementationFactoryInterface& operator=(const ManagerImplementationFactoryInterface&) =
      delete;
  virtual ~ManagerImplementationFactoryInterface();
  virtual Identifiers identifiers() = 0;
  virtual managerApi::ManagerInterfacePtr instantiate(const Identifier& identifier) = 0;

 private:
  log::LoggerInterfacePtr logger_;
};
using ManagerImplementationFactoryInterfacePtr =
    std::shared_ptr<ManagerImplementationFactoryInterface>;

class Manager final {
 public:
  enum class Capability : std::size_t {
    kStatefulContexts = 2,
    kCustomTerminology,
    kResolution,
    kPublishing,
    kRelationshipQueries,
    kExistenceQueries,
    kDefaultEntityReferences
  };
  struct BatchElementErrorPolicyTag {
    struct Exception {};
  };

  Manager() = delete;
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  [[nodiscard]] Identifier identifier() const;
  [[nodiscard]] Str displayName() const;
  bool hasCapability(Capability capability);
  bool isEntityReferenceString(const Str& text);
  std::optional<EntityReference> createEntityReferenceIfValid(Str text);
  ContextPtr createContext();
  trait::TraitsDataPtr resolve(const EntityReference& reference, const trait::TraitSet& traitSet,
                               access::ResolveAccess access, const ContextConstPtr& context,
                               const BatchElementErrorPolicyTag::Exception& policy = {});
};
using ManagerPtr = std::shared_ptr<Manager>;

class ManagerFactory {
 public:
  ManagerFactory() = delete;
  ManagerFactory(const ManagerFactory&) = delete;
  ManagerFactory& operator=(const ManagerFactory&) = delete;
  static ManagerPtr defaultManagerForInterface(
      const HostInterfacePtr& host, const ManagerImplementationFactoryInterfacePtr& factory,
      const log::LoggerInterfacePtr& logger);
  static ManagerPtr defaultManagerForInterface(
      std::string_view configPath, const HostInterfacePtr& host,
      const ManagerImplementationFactoryInterfacePtr& factory,
      const log::LoggerInterfacePtr& logger);
};

}  // namespace hostApi

namespace pluginSystem {

class CppPluginSystemManagerImplementationFactory final
    : public hostApi::ManagerImplementationFactoryInterface {
 public:
  CppPluginSystemManagerImplementationFactory() = delete;
  static std::shared_ptr<CppPluginSystemManagerImplementationFactory> make(
      log::LoggerInterfacePtr logger);
  Identifiers identifiers() override;
  managerApi::ManagerInterfacePtr instantiate(const Identifier& identifier) override;
};

class HybridPluginSystemManagerImplementationFactory final
    : public hostApi::ManagerImplementationFactoryInterface {
 public:
  HybridPluginSystemManagerImplementationFactory() = delete;
  static std::shared_ptr<HybridPluginSystemManagerImplementationFactory> make(
      std::vector<hostApi::ManagerImplementationFactoryInterfacePtr> factories,
      log::LoggerInterfacePtr logger);
  Identifiers identifiers() override;
  managerApi::ManagerInterfacePtr instantiate(const Identifier& identifier) override;
};

}  // namespace pluginSystem

// ---- Locations

namespace utils {

enum class PathType : std::uint8_t { kSystem = 0, kPOSIX, kWindows };

class FileUrlPathConverter {
 public:
  FileUrlPathConverter();
  ~FileUrlPathConverter();
  FileUrlPathConverter(const FileUrlPathConverter&) = delete;
  FileUrlPathConverter& operator=(const FileUrlPathConverter&) = delete;
  [[nodiscard]] Str pathFromUrl(std::string_view url, PathType pathType = PathType::kSystem) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace utils

}  // namespace v1
}  // namespace openassetio

#pragma GCC visibility pop

// ---- Layouts

#if !defined(__GLIBCXX__) || _GLIBCXX_USE_CXX11_ABI != 1 || !defined(__x86_64__)
// clang-format off
#error "The declarations of OpenAssetIO hold for x86-64 and libstdc++ with its new string ABI: \
give a full C++ install of OpenAssetIO"
// clang-format on
#endif

static_assert(sizeof(openassetio::Str) == 32);
static_assert(sizeof(openassetio::EntityReference) == 32);
static_assert(sizeof(std::optional<openassetio::EntityReference>) == 40);
static_assert(sizeof(openassetio::trait::property::Value) == 40);
static_assert(sizeof(openassetio::trait::TraitSet) == 48);
static_assert(sizeof(openassetio::InfoDictionary) == 56);
static_assert(sizeof(openassetio::errors::BatchElementError) == 40);
static_assert(sizeof(openassetio::errors::BatchElementError::ErrorCode) == 4);
static_assert(offsetof(openassetio::errors::BatchElementError, message) == 8);
static_assert(sizeof(openassetio::Context) == 32);
static_assert(offsetof(openassetio::Context, managerState) == 16);
static_assert(sizeof(openassetio::hostApi::HostInterface) == 8);
static_assert(sizeof(openassetio::hostApi::ManagerImplementationFactoryInterface) == 24);
static_assert(sizeof(openassetio::hostApi::Manager::Capability) == 8);
static_assert(sizeof(openassetio::access::ResolveAccess) == 8);
static_assert(sizeof(openassetio::log::LoggerInterface) == 8);
static_assert(sizeof(openassetio::log::LoggerInterface::Severity) == 4);
static_assert(sizeof(openassetio::trait::TraitsData) == 8);
static_assert(sizeof(openassetio::utils::FileUrlPathConverter) == 8);
static_assert(sizeof(openassetio::utils::PathType) == 1);
