// Stages: opened, made, written, closed; variants and layers.
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "ovo/LayerUses.h"
#include "ovo/MeshPrim.h"
#include "ovo/OpenOptions.h"
#include "ovo/SceneTrial.h"
#include "ovo/Stage.h"
#include "ovo/Variants.h"
#include "vela/scene/ScenePrims.h"

namespace vela::python {

namespace {

using ovo::Stage;
using StagePtr = std::shared_ptr<Stage>;

constexpr const char* kOpenDoc =
    "Opens a scene file: .usd, .usda, .usdc or .usdz.\n\n"
    "`limits` bounds how much it may hold, `options` that and where its files may lie. `variants` "
    "are choices stronger than those of the "
    "files, texts such as `/World/Chair:colour=red` or VariantChoice. FileNotFoundError, another "
    "OSError or ValueError with the reason when the root file cannot be used; trouble with files "
    "that it names is no failure, see `problems`.\n\n"
    ">>> stage = vela.open('examples/demo/demo.usda')\n"
    ">>> stage.default_prim.path\nPath('/Demo')";

std::vector<ovo::VariantChoice> choicesOf(nb::handle variants) {
  std::vector<ovo::VariantChoice> choices;
  if (variants.is_none()) return choices;
  if (PyUnicode_Check(variants.ptr()))
    throw nb::type_error("variants: expected a list of texts, found one text");
  for (const nb::handle item : nb::iter(variants)) {
    ovo::VariantChoice choice;
    std::string text;
    if (nb::isinstance<ovo::VariantChoice>(item)) {
      choice = nb::cast<ovo::VariantChoice>(item);
    } else if (!readText(item, text)) {
      throw nb::type_error(
          (std::string("variants: expected texts, found ") + Py_TYPE(item.ptr())->tp_name).c_str());
    } else if (!ovo::readVariantChoice(text, choice)) {
      refuse("variants: '" + text + "' has not the form /PRIM:SET=NAME");
    }
    choices.push_back(choice);
  }
  return choices;
}

StagePtr openStage(const FileName& file, const std::optional<ovo::StageLimits>& limits,
                   nb::handle variants, const std::optional<ovo::OpenOptions>& given) {
  ovo::OpenOptions options = given ? *given : ovo::OpenOptions();
  if (limits) options.prims = limits->prims;
  for (const ovo::VariantChoice& choice : choicesOf(variants)) options.variants.push_back(choice);
  std::string why;
  StagePtr stage;
  {
    const Unlocked unlocked;
    stage = ovo::openScene(file.text, options, &why);
  }
  if (!stage) refuseFile(file.text, why);
  return admit(stage);
}

template <class R>
auto ask(R (Stage::*call)() const) {
  return [call](const Stage& stage) -> std::decay_t<R> {
    requireOpen(stage);
    return (stage.*call)();
  };
}
template <class A>
auto tell(bool (Stage::*call)(A), const char* name) {
  return [call, name](Stage& stage, std::decay_t<A> value) {
    requireIdle(&stage);
    if (!(stage.*call)(value)) refuse(std::string(name) + ": no scene may have this value");
  };
}

}  // namespace

void bindScenes(nb::module_& m) {
  Record<ovo::StageLimits>(m, "StageLimits",
                           "How much a scene may hold, so that a small file cannot use up a "
                           "machine.\n\n>>> vela.ovo.StageLimits().prims\n2000000")
      .field("prims", &ovo::StageLimits::prims, "Prims; the rest is left out.");
  Record<ovo::VariantChoice>(
      m, "VariantChoice",
      "What is chosen in one variant set of one prim.\n\n"
      ">>> vela.ovo.VariantChoice(prim='/Demo', set='look', name='night').set"
      "\n'look'")
      .field("prim", &ovo::VariantChoice::prim, "The prim's path.")
      .field("set", &ovo::VariantChoice::set, "The variant set.")
      .field("name", &ovo::VariantChoice::name, "The variant.");
  using O = ovo::OpenOptions;
  Record<O>(m, "OpenOptions",
            "How a scene is opened, and what it may make this process do: for files that come from "
            "anywhere.\n\n"
            ">>> options = vela.ovo.OpenOptions(root='examples/demo/assets')\n"
            ">>> vela.open('examples/demo/demo.usda', options=options)  # doctest: +ELLIPSIS\n"
            "Traceback (most recent call last):\n    ...\nValueError: ...outside...")
      .field("prims", &O::prims, "Prims; the rest is left out.")
      .field("layers", &O::layers, "Files that it may be composed of.")
      .field("arcs", &O::arcs, "Places in files that have a say about prims.")
      .field("arc_chain", &O::arcChain, "Arcs that lead from one to the next.")
      .field("depth", &O::depth, "Prims within prims, 1000 at the most.")
      .field("instances", &O::instances, "Instances, and the meshes that they place.")
      .field("faces", &O::faces, "Faces of refined surfaces.")
      .field("texture_pixels", &O::texturePixels, "Pixels of a texture.")
      .property(
          "root", [](const O& o) { return textOut(o.root); },
          [](O& o, const FileName& f) { o.root = f.text; },
          "When not empty: the folder that files are found in alone.")
      .field("variants", &O::variants, "Stronger than the choices of the files.");
  m.def(
      "open_options_of",
      [](const Stage& stage) {
        requireOpen(stage);
        return O(ovo::openOptionsOf(stage));
      },
      nb::arg("stage"),
      "What a stage was opened with.\n\n"
      ">>> vela.ovo.open_options_of(vela.Stage.create_in_memory()).prims\n2000000");
  using T = ovo::TrialOptions;
  nb::enum_<ovo::Trial::Outcome>(
      m, "TrialOutcome", "What came of a trial.\n\n>>> vela.ovo.TrialOutcome.OPENS.value\n0")
      .value("OPENS", ovo::Trial::Outcome::opens)
      .value("REFUSED", ovo::Trial::Outcome::refused)
      .value("CRASHED", ovo::Trial::Outcome::crashed)
      .value("OUT_OF_MEMORY", ovo::Trial::Outcome::outOfMemory)
      .value("TOO_SLOW", ovo::Trial::Outcome::tooSlow)
      .value("NOT_TRIED", ovo::Trial::Outcome::notTried);
  Record<T>(m, "TrialOptions",
            "How a scene is tried.\n\n>>> vela.ovo.TrialOptions(seconds=5).seconds\n5.0")
      .part("open", &T::open, "How it is opened.")
      .field("read_values", &T::readValues, "Also reads every value of every layer.")
      .field("seconds", &T::seconds, "How long it may take; 0: as long as it takes.")
      .field("memory", &T::memory, "Bytes that it may take; 0: as this process may.");
  Record<ovo::Trial>(m, "Trial",
                     "What came of a trial.\n\n>>> vela.ovo.Trial().outcome.name\n'NOT_TRIED'")
      .field("outcome", &ovo::Trial::outcome, "The outcome.")
      .field("reason", &ovo::Trial::reason, "One line; empty when the scene opens.");
  m.def(
      "try_scene",
      [](const FileName& file, const std::optional<T>& options) {
        const T wanted = options ? *options : T();
        const Unlocked unlocked;
        return ovo::tryScene(file.text, wanted);
      },
      nb::arg("file"), nb::arg("options") = nb::none(),
      "Tries a scene in a process of its own, before it is opened in this one: some damaged files "
      "end "
      "the process that reads them.\n\n"
      ">>> vela.ovo.try_scene('examples/demo/demo.usda').outcome.name\n'OPENS'");
  m.def(
      "read_every_value",
      [](const StagePtr& stage) {
        const StageReader reader(stage);
        const Unlocked unlocked;
        ovo::readEveryValue(*stage);
      },
      nb::arg("stage"),
      "Reads every value of every layer, and keeps none.\n\n"
      ">>> vela.ovo.read_every_value(vela.Stage.create_in_memory())");
  m.def(
      "read_variant_choice",
      [](const std::string& text) {
        ovo::VariantChoice choice;
        if (!ovo::readVariantChoice(text, choice))
          refuse("'" + text + "' has not the form /PRIM:SET=NAME");
        return choice;
      },
      nb::arg("text"),
      "Reads `/World/Chair:colour=red`; ValueError for anything else.\n\n"
      ">>> vela.ovo.read_variant_choice('/Demo:look=night').name\n'night'");
  Record<ovo::LayerUse>(m, "LayerUse",
                        "A layer that has something to say, by one kind of arc.\n\n"
                        ">>> vela.ovo.LayerUse().arc\n''")
      .property(
          "file", [](const ovo::LayerUse& u) { return textOut(u.file); },
          [](ovo::LayerUse& u, const FileName& f) { u.file = f.text; }, "Absolute.")
      .field("arc", &ovo::LayerUse::arc, "`root`, `sublayer`, `reference` ...")
      .property(
          "from_file", [](const ovo::LayerUse& u) { return textOut(u.from); },
          [](ovo::LayerUse& u, const FileName& f) { u.from = f.text; },
          "The file that has the arc; empty for the root.")
      .field("prims", &ovo::LayerUse::prims, "That have opinions by it.");

  nb::class_<Stage> stage(
      m, "Stage",
      "A scene as its files compose it. Edits are kept in memory and seen by this stage alone; "
      "`export_to` writes them.\n\n"
      "Threads: reads are safe from several threads. A change while another call reads without the "
      "interpreter's lock (a render, say) is a RuntimeError. After `close`, or at the end of a "
      "`with` block, every use of the stage and of what was taken from it is a ValueError. "
      "Equality "
      "is identity.\n\n"
      ">>> with vela.open('examples/demo/demo.usda') as stage:\n"
      "...     stage.up_axis, len(stage.problems())\n('Y', 0)\n"
      ">>> stage.up_axis\nTraceback (most recent call last):\n    ...\n"
      "ValueError: the stage is closed");
  stage
      .def_static(
          "open",
          [](const FileName& file, const std::optional<ovo::StageLimits>& limits,
             nb::object variants, const std::optional<ovo::OpenOptions>& options) {
            return openStage(file, limits, variants, options);
          },
          nb::arg("file"), nb::kw_only(), nb::arg("limits") = nb::none(),
          nb::arg("variants") = nb::none(), nb::arg("options") = nb::none(),
          nb::sig("def open(file: str | bytes | os.PathLike[typing.Any], *, limits: StageLimits | "
                  "None = None, variants: typing.Iterable[str | VariantChoice] | None = None, "
                  "options: OpenOptions | None = None) -> Stage"),
          kOpenDoc)
      .def_static(
          "open_text",
          [](const std::string& text) {
            std::string why;
            StagePtr made = Stage::openText(text, &why);
            if (!made) refuse(why);
            return admit(made);
          },
          nb::arg("text"),
          "Opens a scene given as text, as a .usda file has it. ValueError with the reason.\n\n"
          ">>> vela.Stage.open_text('#usda 1.0\\ndef Scope \"A\" "
          "{}').prim('/A').type_name\n'Scope'")
      .def_static(
          "create_in_memory",
          [] {
            StagePtr made = Stage::createInMemory();
            if (!made) refuse("the installation is incomplete: scenes cannot be made");
            return admit(made);
          },
          "A new, empty scene.\n\n"
          ">>> vela.Stage.create_in_memory().root_prim.children()\n[]")
      .def(
          "close",
          [](const Stage& s) {
            if (!isClosed(s)) closeStage(s);
          },
          "Ends the use of the stage. Calling it again does nothing.")
      .def_prop_ro(
          "is_closed", [](const Stage& s) { return isClosed(s); }, "True after `close`.")
      .def(
          "__enter__",
          [](nb::handle self) {
            requireOpen(nb::cast<const Stage&>(self));
            return nb::borrow(self);
          },
          nb::sig("def __enter__(self) -> Stage"))
      .def(
          "__exit__",
          [](const Stage& s, nb::args) {
            if (!isClosed(s)) closeStage(s);
          },
          nb::sig("def __exit__(self, *args: object) -> None"))
      .def_prop_ro("root_prim", ask(&Stage::getRootPrim), "The root of all prims, at `/`.")
      .def_prop_ro("default_prim", ask(&Stage::getDefaultPrim),
                   "The prim that the file names as its own; may be not valid.")
      .def(
          "prim",
          [](const Stage& s, const ovo::Path& path) {
            requireOpen(s);
            return s.getPrimAtPath(path);
          },
          nb::arg("path"), "The prim there; not valid when nothing is.")
      .def(
          "define_prim",
          [](Stage& s, const ovo::Path& path, const ovo::Token& type) {
            requireIdle(&s);
            const ovo::Prim made = s.definePrim(path, type);
            if (!made.isValid()) refuse(path.asString() + ": no prim can be defined there");
            return made;
          },
          nb::arg("path"), nb::arg("type_name") = "",
          "Makes sure that a prim of that type is defined there, and those above it. ValueError "
          "for "
          "what is no absolute path, or lies inside an instance or below an inactive prim.")
      .def(
          "find_descendent_prims",
          [](const Stage& s, const std::vector<ovo::Path>& paths) {
            requireOpen(s);
            std::vector<ovo::Prim> out;
            s.findDescendentPrims(paths, out);
            return out;
          },
          nb::arg("paths") = std::vector<ovo::Path>{ovo::Path("/")},
          nb::sig("def find_descendent_prims(self, paths: typing.Sequence[str] = ('/',)) -> "
                  "list[Prim]"),
          "All prims below the given ones, in the order of the paths and then of the scene. "
          "Everything composed comes, inactive and abstract prims too.")
      .def(
          "meshes",
          [](const Stage& s, const ovo::Path& below) {
            requireOpen(s);
            std::vector<ovo::MeshPrim> out;
            scene::forEachPrim(s, [&](const ovo::Prim& prim) {
              const ovo::MeshPrim mesh(prim);
              if (mesh.isValid() && prim.getPath().hasPrefix(below)) out.push_back(mesh);
              return true;
            });
            return out;
          },
          nb::arg("below") = "/", "The mesh prims at and below a path, in the scene's order.")
      .def(
          "export_to",
          [](const Stage& s, const FileName& file) {
            requireOpen(s);
            std::string why;
            if (!s.exportTo(file.text, &why)) {
              PyErr_SetString(PyExc_OSError, why.c_str());
              throw nb::python_error();
            }
          },
          nb::arg("file"),
          "Writes the root layer with this stage's edits, as .usda, .usdc or .usd (binary), whole "
          "or not at all. OSError with the reason.")
      .def(
          "problems",
          [](const Stage& s) {
            requireOpen(s);
            nb::list out;
            for (const std::string& problem : s.problems()) out.append(textOut(problem));
            return out;
          },
          nb::sig("def problems(self) -> list[str]"),
          "Why parts of the scene are missing or cannot be read, each reason once.")
      .def_prop_ro(
          "file",
          [](const Stage& s) {
            requireOpen(s);
            return textOut(s.getFile());
          },
          nb::sig("def file(self) -> str"), "The opened file; empty for a scene in memory.")
      .def(
          "layer_files",
          [](const Stage& s) {
            requireOpen(s);
            nb::list out;
            for (const std::string& file : s.layerFiles()) out.append(textOut(file));
            return out;
          },
          nb::sig("def layer_files(self) -> list[str]"),
          "The files that the scene is composed of, absolute and sorted.")
      .def(
          "layer_uses",
          [](const Stage& s) {
            requireOpen(s);
            return ovo::layerUses(s);
          },
          "What each file brings in, and by which arc.")
      .def_prop_rw("up_axis", ask(&Stage::getUpAxis), tell(&Stage::setUpAxis, "up_axis"),
                   "`Y` or `Z`.")
      .def_prop_rw("meters_per_unit", ask(&Stage::getMetersPerUnit),
                   tell(&Stage::setMetersPerUnit, "meters_per_unit"),
                   "0.01 where the file does not say.")
      .def_prop_rw("time_codes_per_second", ask(&Stage::getTimeCodesPerSecond),
                   tell(&Stage::setTimeCodesPerSecond, "time_codes_per_second"),
                   "Falls back to frames per second, then 24.")
      .def_prop_rw("frames_per_second", ask(&Stage::getFramesPerSecond),
                   tell(&Stage::setFramesPerSecond, "frames_per_second"),
                   "24 where the file does not say.")
      .def_prop_rw(
          "time_code_range",
          [](const Stage& s) {
            requireOpen(s);
            return std::tuple(s.getStartTimeCode(), s.getEndTimeCode());
          },
          [](Stage& s, std::tuple<double, double> range) {
            requireIdle(&s);
            if (!s.setTimeCodeRange(std::get<0>(range), std::get<1>(range)))
              refuse("time_code_range: expected finite numbers");
          },
          "(start, end), 0 where the file does not say.")
      .def_prop_rw("default_prim_name", ask(&Stage::getDefaultPrimName),
                   tell(&Stage::setDefaultPrim, "default_prim_name"), "The name of a top prim.")
      .def_prop_ro("has_up_axis", ask(&Stage::hasUpAxis), "True when the file says it.")
      .def_prop_ro("has_meters_per_unit", ask(&Stage::hasMetersPerUnit),
                   "True when the file says it.")
      .def_prop_ro("has_time_codes_per_second", ask(&Stage::hasTimeCodesPerSecond),
                   "True when the file says it.")
      .def_prop_ro("has_frames_per_second", ask(&Stage::hasFramesPerSecond),
                   "True when the file says it.")
      .def_prop_ro("has_time_code_range", ask(&Stage::hasTimeCodeRange),
                   "True when both ends are given.")
      .def("__repr__", [](const Stage& s) {
        if (isClosed(s)) return textOut("<Stage closed>");
        return textOut(s.getFile().empty() ? "<Stage in memory>" : "<Stage " + s.getFile() + ">");
      });
  refusePickle(stage, "it is an open scene; pickle the name of its file");
  m.def(
      "open",
      [](const FileName& file, const std::optional<ovo::StageLimits>& limits, nb::object variants,
         const std::optional<ovo::OpenOptions>& options) {
        return openStage(file, limits, variants, options);
      },
      nb::arg("file"), nb::kw_only(), nb::arg("limits") = nb::none(),
      nb::arg("variants") = nb::none(), nb::arg("options") = nb::none(),
      nb::sig("def open(file: str | bytes | os.PathLike[typing.Any], *, limits: StageLimits | None "
              "= None, variants: typing.Iterable[str | VariantChoice] | None = None, options: "
              "OpenOptions | None = None) -> Stage"),
      kOpenDoc);
}

}  // namespace vela::python
