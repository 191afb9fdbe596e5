// The native module: one submodule for each namespace of the library.
#include "Module.h"

#include "Calls.h"
#include "Values.h"
#include "vela/Version.h"

namespace nb = nanobind;

NB_MODULE(_vela, m) {
  using namespace vela::python;
  m.doc() = "The library's own names; import vela instead.";
  // Objects may well be alive when the interpreter ends; that is no fault of anybody.
  nb::set_leak_warnings(false);
  vela::python::followInterpreter();

  m.def(
      "version", [] { return std::string(vela::version()); },
      "The version of the library that is loaded, `major.minor.patch`.\n\n"
      ">>> len(vela.version().split('.'))\n3");
  m.def(
      "build_info",
      [] {
        std::vector<std::pair<std::string, std::string>> facts;
        for (const vela::BuildFact& fact : vela::buildInfo())
          facts.emplace_back(fact.name, fact.value);
        return facts;
      },
      "How the loaded library was built, as (name, value): for reports of faults.\n\n"
      ">>> any(name == 'compiler' for name, value in vela.build_info())\nTrue");

  nb::module_ tarn =
      m.def_submodule("tarn", "Mathematics: boxes, rays, frames, transforms, hashes.");
  bindTarn(tarn);
  nb::module_ ovo = m.def_submodule("ovo", "Scenes: stages, prims, attributes, subdivision.");
  bindAttributes(ovo);
  bindPrims(ovo);
  bindScenes(ovo);
  bindSubdivision(ovo);
  bindCamera(m);
  bindLenses(m);
  bindChannels(m);
  bindTracer(m);
  bindMeshes(m);
  bindIntersection(m);
  bindSampling(m);
  nb::module_ selection = m.def_submodule("selection", "Selections of objects, faces and points.");
  bindSelection(selection);
  nb::module_ log = m.def_submodule("log", "The library's log.");
  bindLog(log);
  nb::module_ asset = m.def_submodule("asset", "Asset references, by OpenAssetIO.");
  bindAssets(asset);
  nb::module_ look = m.def_submodule("look", "Preview materials and how they answer light.");
  bindLook(look);
  nb::module_ scene = m.def_submodule("scene", "What a picture of a scene shows.");
  bindSceneMeshes(scene);
  bindSceneRays(scene);
  nb::module_ picture = m.def_submodule("picture", "Pictures: rendered, shown, written.");
  bindPicture(picture);

  // The package has files of the submodules' names: importing all must not put these in their
  // place.
  nb::list names;
  for (const nb::handle name : nb::list(m.attr("__dict__").attr("keys")())) {
    const nb::object value = nb::getattr(m, name);
    if (std::string(nb::str(name).c_str())[0] != '_' && !PyModule_Check(value.ptr()))
      names.append(name);
  }
  m.attr("__all__") = names;
}
