// A native manager plug-in for the tests. References start with "test:"; what follows says how it
// behaves:
//   test:url:U        a location that is the text U
//   test:number       a location that is a number
//   test:none         data without a location
//   test:null         no data at all
//   test:count        a location that counts the calls of resolve
//   test:host         a location with what the host said of itself
//   test:batch-error  an error of this one reference
//   test:throw-X      an exception: X is std, openassetio, bad-alloc or int
//   test-throws:      an exception from the question whether this is a reference
//
// Settings: "resolution" false takes the capability away; "fail" makes the start fail; "stateful"
// makes contexts fail.
#include <atomic>
#include <new>
#include <stdexcept>

#include "vela/asset/detail/OpenAssetIOManagerApi.h"

namespace {

using namespace openassetio;
using managerApi::HostSessionPtr;

constexpr const char* kLocatable = "openassetio-mediacreation:content.LocatableContent";

std::atomic<int> resolveCalls{0};

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

class TestManager final : public managerApi::ManagerInterface {
 public:
  [[nodiscard]] Identifier identifier() const override { return "org.vela.test.native"; }
  [[nodiscard]] Str displayName() const override { return "Test Manager \xc3\xa4"; }

  bool hasCapability(Capability capability) override {
    switch (capability) {
      case Capability::kEntityReferenceIdentification:
      case Capability::kManagementPolicyQueries:
      case Capability::kEntityTraitIntrospection: return true;
      case Capability::kResolution: return resolution_;
      case Capability::kStatefulContexts: return stateful_;
      default: return false;
    }
  }

  void initialize(InfoDictionary settings, const HostSessionPtr&) override {
    const auto flag = [&](const char* name) {
      const auto found = settings.find(name);
      return found != settings.end() && std::get_if<bool>(&found->second) &&
             std::get<bool>(found->second);
    };
    if (flag("fail")) throw std::runtime_error("this manager does not start");
    if (flag("fail-oddly")) throw 42;
    stateful_ = flag("stateful");
    resolution_ = settings.count("resolution") == 0 || flag("resolution");
  }

  managerApi::ManagerStateBasePtr createState(const HostSessionPtr&) override {
    throw std::runtime_error("no state to be had");
  }

  bool isEntityReferenceString(const Str& text, const HostSessionPtr&) override {
    if (startsWith(text, "test-throws:")) throw std::runtime_error("cannot look at it");
    return startsWith(text, "test:");
  }

  void resolve(const EntityReferences& references, const trait::TraitSet&,
               access::ResolveAccess access, const ContextConstPtr& context,
               const HostSessionPtr& session, const ResolveSuccessCallback& success,
               const BatchElementErrorCallback& error) override {
    const int call = ++resolveCalls;
    if (!context || !context->locale) throw std::runtime_error("no context");
    if (access != access::ResolveAccess::kRead) throw std::runtime_error("not for reading");
    for (std::size_t i = 0; i < references.size(); ++i) {
      const std::string what = references[i].toString().substr(5);
      if (what == "throw-std") throw std::runtime_error("a standard failure");
      if (what == "throw-openassetio")
        throw errors::ConfigurationException("a failure of its own kind");
      if (what == "throw-bad-alloc") throw std::bad_alloc();
      if (what == "throw-int") throw 42;
      if (what == "batch-error") {
        using Code = errors::BatchElementError::ErrorCode;
        error(i, errors::BatchElementError{Code::kEntityResolutionError, "not found"});
        continue;
      }
      if (what == "null") {
        success(i, nullptr);
        continue;
      }
      trait::TraitsDataPtr data = trait::TraitsData::make();
      if (startsWith(what, "url:"))
        data->setTraitProperty(kLocatable, "location", Str(what.substr(4)));
      if (what == "number") data->setTraitProperty(kLocatable, "location", Int{7});
      if (what == "count")
        data->setTraitProperty(kLocatable, "location", Str("file:///" + std::to_string(call)));
      if (what == "host") {
        const auto& host = *session->host();
        data->setTraitProperty(kLocatable, "location",
                               "file:///" + host.identifier() + "/" + host.displayName());
      }
      success(i, data);
    }
  }

 private:
  bool resolution_ = true;
  bool stateful_ = false;
};

class TestPlugin final : public pluginSystem::CppPluginSystemManagerPlugin {
 public:
  [[nodiscard]] Identifier identifier() const override { return "org.vela.test.native"; }
  managerApi::ManagerInterfacePtr interface() override { return std::make_shared<TestManager>(); }
};

pluginSystem::CppPluginSystemPluginPtr makePlugin() noexcept {
  return std::make_shared<TestPlugin>();
}

}  // namespace

extern "C" __attribute__((visibility("default"))) pluginSystem::PluginFactory
openassetioPlugin() noexcept {
  return &makePlugin;
}

// How often resolve was called in this process.
extern "C" __attribute__((visibility("default"))) int velaTestResolveCalls() {
  return resolveCalls;
}
