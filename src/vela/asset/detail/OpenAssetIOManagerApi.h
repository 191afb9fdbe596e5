/// \file
/// The other side of OpenAssetIO 1.0, which managers implement: for the native plug-in of the
/// tests. The rules of OpenAssetIODeclarations.h hold here too; all virtual functions are declared,
/// so that the table has its full length.
#pragma once

#include "vela/asset/detail/OpenAssetIO.h"

#ifdef VELA_OPENASSETIO_HEADERS

#include <openassetio/managerApi/Host.hpp>
#include <openassetio/managerApi/HostSession.hpp>
#include <openassetio/managerApi/ManagerInterface.hpp>
#include <openassetio/managerApi/ManagerStateBase.hpp>
#include <openassetio/pluginSystem/CppPluginSystemManagerPlugin.hpp>
#include <openassetio/pluginSystem/CppPluginSystemPlugin.hpp>

#else

#include <functional>

#pragma GCC visibility push(default)

namespace openassetio {
inline namespace v1 {

namespace access {
enum class PolicyAccess : std::size_t { kRead, kWrite, kCreateRelated, kRequired, kManagerDriven };
enum class EntityTraitsAccess : std::size_t { kRead, kWrite };
enum class PublishingAccess : std::size_t { kWrite = 1, kCreateRelated };
enum class RelationsAccess : std::size_t { kRead, kWrite, kCreateRelated };
enum class DefaultEntityAccess : std::size_t { kRead, kWrite, kCreateRelated };
}  // namespace access

namespace trait {
using TraitSets = std::vector<TraitSet>;
using TraitsDatas = std::vector<TraitsDataPtr>;
}  // namespace trait

namespace managerApi {

class EntityReferencePagerInterface;

class Host final {
 public:
  Host() = delete;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  [[nodiscard]] Identifier identifier() const;
  [[nodiscard]] Str displayName() const;
  InfoDictionary info();
};
using HostPtr = std::shared_ptr<Host>;

class HostSession final {
 public:
  HostSession() = delete;
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;
  [[nodiscard]] const HostPtr& host() const;
};
using HostSessionPtr = std::shared_ptr<HostSession>;

/// 8 bytes and no key function: its table is made by whoever uses it.
class ManagerStateBase {
 public:
  virtual ~ManagerStateBase() = default;
};

class ManagerInterface {
 public:
  enum class Capability : std::size_t {
    kEntityReferenceIdentification,
    kManagementPolicyQueries,
    kStatefulContexts,
    kCustomTerminology,
    kResolution,
    kPublishing,
    kRelationshipQueries,
    kExistenceQueries,
    kDefaultEntityReferences,
    kEntityTraitIntrospection
  };
  using BatchElementErrorCallback = std::function<void(std::size_t, errors::BatchElementError)>;
  using ExistsSuccessCallback = std::function<void(std::size_t, bool)>;
  using EntityTraitsSuccessCallback = std::function<void(std::size_t, trait::TraitSet)>;
  using ResolveSuccessCallback = std::function<void(std::size_t, trait::TraitsDataPtr)>;
  using DefaultEntityReferenceSuccessCallback =
      std::function<void(std::size_t, std::optional<EntityReference>)>;
  using RelationshipQuerySuccessCallback =
      std::function<void(std::size_t, std::shared_ptr<EntityReferencePagerInterface>)>;
  using PreflightSuccessCallback = std::function<void(std::size_t, EntityReference)>;
  using RegisterSuccessCallback = std::function<void(std::size_t, EntityReference)>;

  ManagerInterface();
  virtual ~ManagerInterface() = default;

  [[nodiscard]] virtual Identifier identifier() const = 0;
  [[nodiscard]] virtual Str displayName() const = 0;
  virtual bool hasCapability(Capability capability) = 0;
  virtual InfoDictionary info();
  virtual StrMap updateTerminology(StrMap terms, const HostSessionPtr& session);
  virtual InfoDictionary settings(const HostSessionPtr& session);
  virtual void initialize(InfoDictionary settings, const HostSessionPtr& session);
  virtual void flushCaches(const HostSessionPtr& session);
  virtual trait::TraitsDatas managementPolicy(const trait::TraitSets& sets,
                                              access::PolicyAccess access,
                                              const ContextConstPtr& context,
                                              const HostSessionPtr& session);
  virtual ManagerStateBasePtr createState(const HostSessionPtr& session);
  virtual ManagerStateBasePtr createChildState(const ManagerStateBasePtr& parent,
                                               const HostSessionPtr& session);
  virtual Str persistenceTokenForState(const ManagerStateBasePtr& state,
                                       const HostSessionPtr& session);
  virtual ManagerStateBasePtr stateFromPersistenceToken(const Str& token,
                                                        const HostSessionPtr& session);
  virtual bool isEntityReferenceString(const Str& text, const HostSessionPtr& session);
  virtual void entityExists(const EntityReferences& references, const ContextConstPtr& context,
                            const HostSessionPtr& session, const ExistsSuccessCallback& success,
                            const BatchElementErrorCallback& error);
  virtual void entityTraits(const EntityReferences& references, access::EntityTraitsAccess access,
                            const ContextConstPtr& context, const HostSessionPtr& session,
                            const EntityTraitsSuccessCallback& success,
                            const BatchElementErrorCallback& error);
  virtual void resolve(const EntityReferences& references, const trait::TraitSet& traitSet,
                       access::ResolveAccess access, const ContextConstPtr& context,
                       const HostSessionPtr& session, const ResolveSuccessCallback& success,
                       const BatchElementErrorCallback& error);
  virtual void defaultEntityReference(const trait::TraitSets& sets,
                                      access::DefaultEntityAccess access,
                                      const ContextConstPtr& context, const HostSessionPtr& session,
                                      const DefaultEntityReferenceSuccessCallback& success,
                                      const BatchElementErrorCallback& error);
  virtual void getWithRelationship(const EntityReferences& references,
                                   const trait::TraitsDataPtr& relationship,
                                   const trait::TraitSet& resultTraits, std::size_t pageSize,
                                   access::RelationsAccess access, const ContextConstPtr& context,
                                   const HostSessionPtr& session,
                                   const RelationshipQuerySuccessCallback& success,
                                   const BatchElementErrorCallback& error);
  virtual void getWithRelationships(const EntityReference& reference,
                                    const trait::TraitsDatas& relationships,
                                    const trait::TraitSet& resultTraits, std::size_t pageSize,
                                    access::RelationsAccess access, const ContextConstPtr& context,
                                    const HostSessionPtr& session,
                                    const RelationshipQuerySuccessCallback& success,
                                    const BatchElementErrorCallback& error);
  virtual void preflight(const EntityReferences& references, const trait::TraitsDatas& hints,
                         access::PublishingAccess access, const ContextConstPtr& context,
                         const HostSessionPtr& session, const PreflightSuccessCallback& success,
                         const BatchElementErrorCallback& error);
  virtual void register_(const EntityReferences& references, const trait::TraitsDatas& datas,
                         access::PublishingAccess access, const ContextConstPtr& context,
                         const HostSessionPtr& session, const RegisterSuccessCallback& success,
                         const BatchElementErrorCallback& error);
};

}  // namespace managerApi

namespace pluginSystem {

class CppPluginSystemPlugin {
 public:
  virtual ~CppPluginSystemPlugin();
  [[nodiscard]] virtual Identifier identifier() const = 0;
};
using CppPluginSystemPluginPtr = std::shared_ptr<CppPluginSystemPlugin>;
using PluginFactory = CppPluginSystemPluginPtr (*)() noexcept;

class CppPluginSystemManagerPlugin : public CppPluginSystemPlugin {
 public:
  ~CppPluginSystemManagerPlugin() override;
  virtual managerApi::ManagerInterfacePtr interface() = 0;
};

}  // namespace pluginSystem

}  // namespace v1
}  // namespace openassetio

#pragma GCC visibility pop

static_assert(sizeof(openassetio::managerApi::ManagerInterface) == 8);
static_assert(sizeof(openassetio::managerApi::ManagerStateBase) == 8);

#endif
