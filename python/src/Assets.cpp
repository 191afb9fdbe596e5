// Asset references, by the manager that OpenAssetIO finds.
#include <optional>
#include <set>
#include <string>

#include "Calls.h"
#include "Logging.h"
#include "Module.h"
#include "Values.h"
#include "vela/asset/AssetInfo.h"
#include "vela/asset/AssetManager.h"

namespace vela::python {

namespace {

using asset::AssetInfo, asset::AssetMessage;

// Managers may be written in Python and take the interpreter's lock themselves.
template <class Call>
auto withoutLock(const Call& call) {
  followLog();
  const Unlocked unlocked;
  return call();
}

}  // namespace

void bindAssets(nb::module_& m) {
  m.attr("LOCATABLE_CONTENT_TRAIT") = asset::kLocatableContentTrait;
  m.def(
      "setup_manager",
      [](const std::optional<FileName>& config) {
        AssetMessage error, warning;
        const bool isMade = withoutLock([&] {
          return asset::setupManager(config ? config->text : std::string(), &error, &warning);
        });
        deliverLog();
        if (!error.reason.empty()) refuse(error.reason);
        if (!warning.reason.empty()) warn(warning.reason);
        return isMade;
      },
      nb::arg("config") = nb::none(),
      "Makes the manager that an OpenAssetIO configuration (TOML) names, and installs it. Without "
      "one "
      "`OPENASSETIO_DEFAULT_CONFIG` names it; when that is not set either nothing happens and the "
      "answer "
      "is False. ValueError with the reason when no manager can be made.\n\n"
      ">>> vela.asset.setup_manager('no-such-file.toml')  # doctest: +ELLIPSIS\n"
      "Traceback (most recent call last):\n    ...\nValueError: ...");
  m.def(
      "has_manager", [] { return asset::getManager() != nullptr; },
      "Whether a manager is installed.\n\n>>> vela.asset.has_manager()\nFalse");
  m.def(
      "remove_manager", [] { asset::setManager(nullptr); },
      "Installs no manager: nothing is a reference from then on.\n\n>>> "
      "vela.asset.remove_manager()");
  m.def(
      "clear_context", [] { withoutLock([] { asset::clearContext(); }); },
      "Replaces the context of the calls by a new one of the manager.");
  m.def(
      "clear_cache",
      [] {
        withoutLock([] { asset::clearCache(); });
        deliverLog();
      },
      "Forgets everything resolved, then makes the manager anew from the environment.");
  m.def(
      "openassetio_info", [] { return withoutLock([] { return asset::openAssetIOInfo(); }); },
      "Which OpenAssetIO is in use, or in one line why none is.");
  m.def(
      "is_asset_path",
      [](const std::string& text) {
        AssetMessage error;
        const bool is = withoutLock([&] { return asset::isAssetPath(text, &error); });
        // Where the plain call says nothing, nothing is wrong: there may be no manager.
        if (!error.text.empty()) refuse(error.reason);
        return is;
      },
      nb::arg("text"),
      "Whether the manager takes a text for one of its references; False without a manager.\n\n"
      ">>> vela.asset.is_asset_path('examples/demo/demo.usda')\nFalse");
  m.def(
      "resolve_location",
      [](const std::string& reference) {
        AssetMessage error;
        std::string path;
        const bool is =
            withoutLock([&] { return asset::resolveAssetLocation(reference, path, &error); });
        if (!is)
          refuse(error.reason.empty() ? "'" + reference + "' is no asset reference" : error.reason);
        return textOut(path);
      },
      nb::arg("reference"), nb::sig("def resolve_location(reference: str) -> str"),
      "From a reference straight to a file path; ValueError with the reason.");

  nb::class_<AssetInfo> info(m, "AssetInfo",
                             "A reference, or plain file path, with the traits to resolve it with. "
                             "Equal when their hashes "
                             "are.\n\n"
                             ">>> info = vela.asset.AssetInfo('examples/demo/demo.usda')\n"
                             ">>> info.resolve_location()\n(False, 'examples/demo/demo.usda')");
  info.def(
          "__init__",
          [](AssetInfo* self, const std::string& path,
             const std::optional<std::set<std::string>>& traits) {
            new (self) AssetInfo(
                path, traits ? *traits : std::set<std::string>{asset::kLocatableContentTrait});
          },
          nb::arg("path") = "", nb::arg("traits") = nb::none())
      .def_prop_ro("path", &AssetInfo::path, "The reference or path.")
      .def_prop_ro(
          "traits", [](const AssetInfo& a) { return a.traits(); }, "What to resolve it with.")
      .def_prop_ro(
          "is_asset", [](const AssetInfo& a) { return a.isAsset(); },
          "What the last resolve_location found.")
      .def(
          "resolve_location",
          [](AssetInfo& a, const std::optional<std::string>& path) {
            std::string out;
            const std::string wanted = path ? *path : a.path();
            const bool is = withoutLock([&] { return a.resolveLocation(wanted, out); });
            deliverLog();
            return nb::make_tuple(is, textOut(out));
          },
          nb::arg("path") = nb::none(),
          nb::sig("def resolve_location(self, path: str | None = None) -> tuple[bool, str]"),
          "(whether it is a reference with a location, its file): a plain path stays as it is.")
      .def(
          "has_data",
          [](const AssetInfo& a) {
            return withoutLock([&] { return a.getResolvedData().isValid(); });
          },
          "Whether the manager knows anything by these traits.")
      .def(
          "__eq__", [](const AssetInfo& a, const AssetInfo& b) { return a == b; },
          nb::is_operator())
      .def("__hash__", [](const AssetInfo& a) { return static_cast<Py_hash_t>(a.hash() >> 1); })
      .def(
          "__reduce__",
          [](nb::handle self) {
            const AssetInfo& a = nb::cast<const AssetInfo&>(self);
            return nb::make_tuple(self.type(), nb::make_tuple(a.path(), a.traits()));
          },
          nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"))
      .def("__repr__", [](const AssetInfo& a) { return textOut("<AssetInfo " + a.path() + ">"); });
}

}  // namespace vela::python
