// Which meshes a picture shows, materials, summaries, defects, what is left out.

#include "vela/scene/SceneMeshes.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "SceneLists.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/FrameRange.h"
#include "vela/scene/LeftOut.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/MeshDefects.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneFiles.h"
#include "vela/scene/SceneLights.h"
#include "vela/scene/ScenePrims.h"
#include "vela/scene/SceneSummary.h"
#include "vela/scene/Shape.h"
#include "vela/scene/ShapePrims.h"
#include "vela/scene/View.h"

namespace vela::python {

namespace {

using namespace vela::scene;
using StagePtr = std::shared_ptr<ovo::Stage>;

// Long work on a stage: without the interpreter's lock, stopped by Ctrl-C.
template <class Body>
auto workOn(const StagePtr& stage, const Body& body, nb::object progress = nb::none()) {
  const StageReader reader(stage);
  InterruptibleWork work(std::move(progress));
  auto result = [&] {
    const Unlocked unlocked;
    return body(work.work());
  }();
  work.rethrow();
  return result;
}

void bindProblem(nb::module_& m) {
  using P = Problem;
  nb::enum_<P::Kind>(m, "ProblemKind",
                     "What a problem is about.\n\n"
                     ">>> vela.scene.ProblemKind.NO_TEXTURE.name\n'NO_TEXTURE'")
      .value("NONE", P::Kind::none)
      .value("STOPPED", P::Kind::stopped)
      .value("BAD_OPTION", P::Kind::badOption)
      .value("NOTHING_SHOWN", P::Kind::nothingShown)
      .value("TOO_MANY_INSTANCES", P::Kind::tooManyInstances)
      .value("TOO_MANY_FACES", P::Kind::tooManyFaces)
      .value("NO_SUCH_CAMERA", P::Kind::noSuchCamera)
      .value("UNUSABLE_CAMERA", P::Kind::unusableCamera)
      .value("BAD_INSTANCES", P::Kind::badInstances)
      .value("NOT_SHOWN", P::Kind::notShown)
      .value("NOT_REFINED", P::Kind::notRefined)
      .value("NOT_CAST", P::Kind::notCast)
      .value("NOT_BOUND", P::Kind::notBound)
      .value("NO_TEXTURE", P::Kind::noTexture)
      .value("TEXTURE_REDUCED", P::Kind::textureReduced)
      .value("SHARED_ID", P::Kind::sharedId)
      .value("CHANGED_LIGHT", P::Kind::changedLight)
      .value("NO_EFFECT", P::Kind::noEffect);
  nb::enum_<P::Severity>(m, "Severity",
                         "How much a problem matters.\n\n"
                         ">>> vela.scene.Severity.NOTE.value\n0")
      .value("NOTE", P::Severity::note)
      .value("WARNING", P::Severity::warning)
      .value("ERROR", P::Severity::error);
  Record<P> r(m, "Problem",
              "One reason, as data.\n\n"
              ">>> str(vela.scene.Problem(subject='/A', reason='no points'))\n"
              "'/A: no points'");
  r.field("kind", &P::kind, "What it is about.")
      .field("severity", &P::severity, "How much it matters.")
      .field("subject", &P::subject, "A path, or a type name; may be empty.")
      .field("reason", &P::reason, "One line; may be empty.")
      .field("count", &P::count, "How many prims, instances or entries.")
      .field("level_that_fits", &P::levelThatFits, "TOO_MANY_FACES: the highest that would do.");
  r.type().def("__str__", [](const P& p) { return textOut(p.text()); });
}

void bindLists(nb::module_& m) {
  nb::enum_<Purpose>(m, "Purpose", "What a prim is for.\n\n>>> vela.scene.Purpose.PROXY.value\n2")
      .value("DEFAULT", Purpose::default_)
      .value("RENDER", Purpose::render)
      .value("PROXY", Purpose::proxy)
      .value("GUIDE", Purpose::guide);
  using F = MeshFilter;
  Record<F>(m, "MeshFilter",
            "Which meshes to take.\n\n"
            ">>> vela.scene.MeshFilter(excluded_paths=['/Demo/Room']).excluded_paths\n"
            "[Path('/Demo/Room')]")
      .time("time", &F::time, "Time code.")
      .field("purposes", &F::purposes, "Purposes that show.")
      .field("with_invisible", &F::withInvisible, "Takes invisible prims too.")
      .field("included_types", &F::includedTypes, "Type names; empty: every type.")
      .field("excluded_paths", &F::excludedPaths, "These and all below them are left out.")
      .field("subdivision_level", &F::subdivisionLevel, "How often to refine surfaces.")
      .field("mask_paths", &F::maskPaths, "When not empty: nothing but these and all below.");
  nb::class_<Shape> shape(
      m, "Shape",
      "A mesh as it is at one time, refined or not. Arrays are read-only views.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> shape = vela.scene.read_shape(stage.meshes()[0])\n>>> shape.points.shape[1]\n3");
  shape
      .def_prop_ro(
          "prim", [](const Shape& s) { return s.prim; }, "Not valid for shape prims.")
      .def_prop_ro(
          "points", [](const Shape& s) { return shareOut(s.points); }, "(n, 3).")
      .def_prop_ro(
          "counts", [](const Shape& s) { return shareOut(s.counts); }, "(faces,).")
      .def_prop_ro(
          "indices", [](const Shape& s) { return shareOut(s.indices); }, "(n,).")
      .def_prop_ro(
          "normals", [](const Shape& s) { return shareOut(s.normals); },
          "Of a shape prim's mesh, one a face-vertex; else empty.")
      .def_prop_ro(
          "radii",
          [](const Shape& s) -> std::optional<NumpyArray<float>> {
            if (!s.tubes) return std::nullopt;
            return shareOut(s.tubes->radii);
          },
          "Of curves and points, one a point, (n,); a negative one shows nothing. None for a mesh.")
      .def_ro("left_handed", &Shape::leftHanded, "By the prim's orientation.")
      .def_prop_ro(
          "is_refined", [](const Shape& s) { return s.refinement != nullptr; },
          "Whether it is a refined surface.")
      .def_prop_ro(
          "source_faces",
          [](const Shape& s) -> std::optional<NumpyArray<int>> {
            if (!s.refinement) return std::nullopt;
            return shareOut(s.refinement->sourceFaces);
          },
          "Of each refined face the scene's, (faces,); None for a mesh as the scene has it.")
      .def(
          "scene_face",
          [](const Shape& s, Py_ssize_t face) {
            return s.sceneFace(static_cast<int>(indexOf(face, s.counts.size(), "faces")));
          },
          nb::arg("face"), "The scene's index of a face.")
      .def("__repr__", [](const Shape& s) {
        return "<Shape of " + std::to_string(s.counts.size()) +
               (s.tubes ? s.tubes->arePoints ? " points>" : " curves>" : " faces>");
      });
  refusePickle(shape, "it shares the scene's arrays; pickle them");
  m.def(
      "read_shape",
      [](const ovo::MeshPrim& prim, Time time) {
        requireOpen(prim);
        return readShape(prim, time);
      },
      nb::arg("mesh"), nb::arg("time") = Time(), "The mesh of a prim at the time, unrefined.");
  m.def(
      "read_curves",
      [](const ovo::Prim& prim, Time time) {
        requireOpen(prim);
        std::optional<Shape> read = readCurves(prim, time);
        if (!read) refuse(prim.getPath().asString() + ": neither BasisCurves nor Points");
        return *std::move(read);
      },
      nb::arg("prim"), nb::arg("time") = Time(),
      "The tubes of curves or points at the time: each face is a curve, or a point, and `counts` "
      "says of how many points its middle line is.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> dust = stage.define_prim('/Dust', 'Points')\n"
      ">>> vela.scene.read_curves(dust).radii.shape\n(0,)");
  m.def(
      "make_shape",
      [](const ovo::Prim& prim, Time time) {
        requireOpen(prim);
        ShapePrims shapes;
        MadeMesh mesh;
        if (!shapes.make(prim, time, mesh))
          refuse(prim.getPath().asString() +
                 ": not a cube, sphere, cylinder, cone, capsule or plane");
        Shape out;
        out.points = mesh.points;
        out.counts = mesh.counts;
        out.indices = mesh.indices;
        out.normals = mesh.normals;
        return out;
      },
      nb::arg("prim"), nb::arg("time") = Time(),
      "The mesh of a shape prim; ValueError for other prims.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> len(vela.scene.make_shape(stage.define_prim('/Box', 'Cube')).counts)\n6");

  Record<MeshEntry>(m, "MeshEntry",
                    "A shape and where it stands.\n\n>>> vela.scene.MeshEntry().shape\n0")
      .field("prim", &MeshEntry::prim, "The prim.")
      .field("world_from_object", &MeshEntry::worldFromObject, "(4, 4).")
      .field("shape", &MeshEntry::shape, "Index in MeshList.shapes.")
      .field("instance", &MeshEntry::instance, "Of a point instancer; 4294967295: none.");
  using L = MeshListRef;
  nb::class_<L> list(
      m, "MeshList",
      "The meshes of a scene, and what of it could not be taken; made by list_meshes.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n>>> meshes = "
      "vela.scene.list_meshes(stage)\n"
      ">>> len(meshes) == len(meshes.entries), meshes.name(0).startswith('/Demo')\n(True, True)");
  list.def("__len__", [](const L& l) { return l.list->entries.size(); })
      .def_prop_ro(
          "entries", [](const L& l) { return l.list->entries; },
          "In the order of the scene, parents first; copies.")
      .def_prop_ro(
          "shapes", [](const L& l) { return l.list->shapes; }, "Each once.")
      .def(
          "shape",
          [](const L& l, Py_ssize_t i) {
            return l.list->shapeOf(indexOf(i, l.list->entries.size(), "entries"));
          },
          nb::arg("entry"), "The shape of an entry.")
      .def(
          "name",
          [](const L& l, Py_ssize_t i) {
            return textOut(nameOf(*l.list, indexOf(i, l.list->entries.size(), "entries")));
          },
          nb::arg("entry"), nb::sig("def name(self, entry: int) -> str"),
          "The prim's path, with the indices of instances behind it.")
      .def(
          "instance",
          [](const L& l, Py_ssize_t i) -> std::optional<std::tuple<ovo::Path, int>> {
            const MeshEntry& entry = l.list->entries[indexOf(i, l.list->entries.size(), "entries")];
            if (entry.instance == kNoInstance) return std::nullopt;
            const Instance& instance = l.list->instances[entry.instance];
            return std::tuple(l.list->instancers[instance.instancer].getPath(), instance.index);
          },
          nb::arg("entry"), "(instancer, index) of an instance; None for all others.")
      .def_prop_ro(
          "not_shown", [](const L& l) { return l.list->notShown; },
          "Prims that have a shape but no faces to trace, by type name.")
      .def(
          "problems", [](const L& l) { return l.list->problems(); }, "What was left out.")
      .def_prop_ro(
          "stage", [](const L& l) { return l.stage; }, "The stage.")
      .def("__repr__", [](const L& l) {
        return "<MeshList of " + std::to_string(l.list->entries.size()) + " entries>";
      });
  refusePickle(list, "it refers to a scene");
  m.def(
      "list_meshes",
      [](const StagePtr& stage, const std::optional<F>& filter, nb::object progress) {
        const F wanted = filter ? *filter : F();
        Problem problem;
        auto found = workOn(
            stage, [&](const Work& work) { return listMeshes(*stage, wanted, &problem, work); },
            std::move(progress));
        if (!found) refuseProblem(problem);
        return L{std::make_shared<const MeshList>(std::move(*found)), stage, wanted.time};
      },
      nb::arg("stage"), nb::arg("filter") = nb::none(), nb::arg("progress") = nb::none(),
      nb::sig("def list_meshes(stage: vela._vela.ovo.Stage, filter: MeshFilter | None = None, "
              "progress: typing.Callable[[float], object] | None = None) -> MeshList"),
      "The meshes that a picture at the filter's time shows. MemoryError for more instances or "
      "faces "
      "than memory is likely to hold.");
}

void bindExtent(nb::module_& m) {
  Record<Extent> r(m, "Extent",
                   "How far meshes reach, in world space.\n\n"
                   ">>> stage = vela.open('examples/demo/demo.usda')\n"
                   ">>> vela.scene.extent_of(vela.scene.list_meshes(stage)).box.is_empty\nFalse");
  r.part("box", &Extent::box, "Empty without a finite point.")
      .list("outermost", &Extent::outermost, "The farthest points in 98 directions, (n, 3).");
  r.type().def_prop_ro("center", &Extent::center, "The middle of the box, (3,).");
  m.def(
      "extent_of",
      [](const MeshListRef& list) {
        return workOn(list.stage, [&](const Work& work) { return extentOf(*list.list, work); });
      },
      nb::arg("meshes"), "The extent of the meshes' points.");
}

void bindPrimWalks(nb::module_& m) {
  m.def(
      "all_prims",
      [](const StagePtr& stage) {
        requireOpen(stage);
        std::vector<ovo::Prim> out;
        forEachPrim(*stage, [&out](const ovo::Prim& prim) {
          out.push_back(prim);
          return true;
        });
        return out;
      },
      nb::arg("stage"),
      "The prims of a scene, those below instances too: the root first, parents before "
      "children.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n>>> vela.scene.all_prims(stage)[0].path\n"
      "Path('/')");
  m.def(
      "list_cameras",
      [](const StagePtr& stage) {
        requireOpen(stage);
        return listCameras(*stage);
      },
      nb::arg("stage"),
      "All cameras in the scene's order.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n>>> "
      "vela.scene.list_cameras(stage)[0].name\n"
      "'Camera'");
  m.def(
      "find_cameras",
      [](const StagePtr& stage, const std::string& text) {
        requireOpen(stage);
        return findCameras(*stage, text);
      },
      nb::arg("stage"), nb::arg("text"),
      "The cameras that a text stands for: a path, else a name, else a part of paths.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> [camera.path for camera in vela.scene.find_cameras(stage, 'Camera')]\n"
      "[Path('/Demo/Camera')]");
  m.def(
      "scene_files",
      [](const StagePtr& stage, nb::object progress) {
        const auto files = workOn(
            stage, [&](const Work& work) { return sceneFiles(*stage, work); }, std::move(progress));
        if (!files) refuse("stopped");
        nb::list out;
        for (const std::string& file : *files) out.append(textOut(file));
        return out;
      },
      nb::arg("stage"), nb::arg("progress") = nb::none(),
      nb::sig("def scene_files(stage: vela._vela.ovo.Stage, progress: typing.Callable[[float], "
              "object] | None = None) -> list[str]"),
      "Every file that is there of a scene, absolute, in order of their names: its layers, and "
      "what attributes name, such as textures.\n\n"
      ">>> files = vela.scene.scene_files(vela.open('examples/demo/demo.usda'))\n"
      ">>> any(file.endswith('demo.usda') for file in files)\nTrue");
  Record<NamedFile>(m, "NamedFile",
                    "A file that a scene names, and whether it is there.\n\n"
                    ">>> vela.scene.NamedFile().tiles\n[]")
      .property(
          "name", [](const NamedFile& f) { return textOut(f.name); },
          [](NamedFile& f, const FileName& name) { f.name = name.text; },
          "As it is written in the scene; of a layer where it is looked for.")
      .field("by", &NamedFile::by, "What names it: an attribute, or the prim of an arc.")
      .field("is_there", &NamedFile::isThere, "That it can be read; of tiles: one of them.")
      .field("tiles", &NamedFile::tiles, "Of a name with `<UDIM>` those that can be read.");
  m.def(
      "named_files",
      [](const StagePtr& stage, nb::object progress) {
        auto files = workOn(
            stage, [&](const Work& work) { return namedFiles(*stage, work); }, std::move(progress));
        if (!files) refuse("stopped");
        return *std::move(files);
      },
      nb::arg("stage"), nb::arg("progress") = nb::none(),
      nb::sig("def named_files(stage: vela._vela.ovo.Stage, progress: typing.Callable[[float], "
              "object] | None = None) -> list[NamedFile]"),
      "Every file that an attribute names, there or not, each once by the first that names it; in "
      "front of them the layers that cannot be read.\n\n"
      ">>> files = vela.scene.named_files(vela.open('examples/demo/demo.usda'))\n"
      ">>> all(file.is_there for file in files), files[0].by\n"
      "(True, '/Demo/Room/Alcove/Terracotta/Colour.inputs:file')");
  m.def(
      "parse_frames",
      [](const std::string& text) {
        std::string why;
        const auto frames = parseFrames(text, &why);
        if (!frames) refuse(why);
        return *frames;
      },
      nb::arg("text"),
      "Reads `1-10x2,24`; ValueError with the reason for other texts.\n\n"
      ">>> vela.scene.parse_frames('1-10x4,24')\n[1.0, 5.0, 9.0, 24.0]");
  m.def("has_frame_place", &hasFramePlace, nb::arg("name"),
        "Whether a file name has a place for the frame.\n\n"
        ">>> vela.scene.has_frame_place('a.####.exr')\nTrue");
  m.def("name_of_frame", &nameOfFrame, nb::arg("name"), nb::arg("frame"),
        "The name with the frame in its places.\n\n"
        ">>> vela.scene.name_of_frame('a.####.exr', 7)\n'a.0007.exr'");
}

void bindLeftOut(nb::module_& m) {
  nb::enum_<LeftOutConcern>(
      m, "LeftOutConcern",
      "Whom something left out concerns.\n\n>>> vela.scene.LeftOutConcern.LOOK.value\n1")
      .value("SHAPE", LeftOutConcern::shape)
      .value("LOOK", LeftOutConcern::look)
      .value("CAMERA", LeftOutConcern::camera);
  Record<LeftOut>(m, "LeftOut",
                  "Things of one kind that are left out.\n\n>>> vela.scene.LeftOut().count\n0")
      .field("what", &LeftOut::what, "The kind, by the count.")
      .field("count", &LeftOut::count, "How many.")
      .field("first", &LeftOut::first, "Path of the first.")
      .field("concern", &LeftOut::concern, "Whom it concerns.");
  m.def(
      "left_out_kinds",
      [] {
        std::vector<std::tuple<std::string, std::string, LeftOutConcern>> out;
        for (const LeftOutKind& kind : leftOutKinds())
          out.emplace_back(kind.one, kind.many, kind.concern);
        return out;
      },
      "The kinds that find_left_out tells, as (one, many, concern).\n\n"
      ">>> ('light', 'lights') in [kind[:2] for kind in vela.scene.left_out_kinds()]\nTrue");
  m.def(
      "find_left_out",
      [](const MeshListRef& list, const std::optional<MeshFilter>& filter, const View* view) {
        const MeshFilter wanted = filter ? *filter : MeshFilter();
        return workOn(list.stage, [&](const Work& work) {
          return findLeftOut(*list.stage, *list.list, wanted, view, work);
        });
      },
      nb::arg("meshes"), nb::arg("filter") = nb::none(), nb::arg("view") = nb::none(),
      "Counts what is left out of a picture of a list, made by that filter.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n>>> way = stage.define_prim('/Way', "
      "'PortalLight')\n"
      ">>> [(kind.what, kind.first) for kind in "
      "vela.scene.find_left_out(vela.scene.list_meshes(stage))]\n[('light', '/Way')]");
  m.def(
      "is_light",
      [](const ovo::Prim& prim) {
        requireOpen(prim);
        return isLight(prim);
      },
      nb::arg("prim"),
      "True for a prim of a type of light.\n\n>>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.scene.is_light(stage.define_prim('/Sun', 'DistantLight'))\nTrue");
  m.def(
      "is_shown_light",
      [](const ovo::Prim& prim) {
        requireOpen(prim);
        return isShownLight(prim);
      },
      nb::arg("prim"),
      "True for a light that pictures show.\n\n>>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.scene.is_shown_light(stage.define_prim('/Way', 'PortalLight'))\nFalse");
}

void bindSceneLights(nb::module_& m) {
  using L = SceneLight;
  nb::class_<L> light(m, "SceneLight",
                      "A light of a scene, and which meshes it falls on.\n\n"
                      ">>> stage = vela.open('examples/demo/demo.usda')\n"
                      ">>> meshes = vela.scene.list_meshes(stage)\n"
                      ">>> [light.falls_on(0) for light in "
                      "vela.scene.list_lights(meshes).lights[:1]] in ([], [True])\nTrue");
  const auto asksEntry = [](const std::shared_ptr<const std::vector<bool>>& which,
                            Py_ssize_t entry) {
    if (!which) return true;
    return static_cast<bool>((*which)[indexOf(entry, which->size(), "entries")]);
  };
  light
      .def_prop_ro(
          "prim", [](const L& l) { return l.prim; }, "The light's prim.")
      .def_prop_ro(
          "source", [](const L& l) { return l.source; }, "What shines; a copy.")
      .def(
          "falls_on", [asksEntry](const L& l, Py_ssize_t entry) { return asksEntry(l.lit, entry); },
          nb::arg("entry"), "Whether it lights that entry of the list.")
      .def(
          "is_stopped_by",
          [asksEntry](const L& l, Py_ssize_t entry) { return asksEntry(l.casting, entry); },
          nb::arg("entry"), "Whether that entry throws shadows in its light.")
      .def("__repr__", [](const L& l) {
        return "<SceneLight " + std::string(l.prim.getPath().asString()) + ">";
      });
  refusePickle(light, "it refers to a scene; pickle its `source`");
  using S = SceneLights;
  nb::class_<S> lights(m, "SceneLights",
                       "The lights of a scene that pictures show.\n\n"
                       ">>> stage = vela.open('examples/demo/demo.usda')\n"
                       ">>> lights = vela.scene.list_lights(vela.scene.list_meshes(stage))\n"
                       ">>> len(lights) == len(lights.lights)\nTrue");
  lights.def("__len__", [](const S& s) { return s.lights.size(); })
      .def_prop_ro(
          "lights", [](const S& s) { return s.lights; }, "In the order of the scene.")
      .def_prop_ro(
          "problems", [](const S& s) { return s.problems; }, "What counts otherwise than it says.")
      .def("__repr__", [](const S& s) {
        return "<SceneLights: " + std::to_string(s.lights.size()) + " lights>";
      });
  refusePickle(lights, "they refer to a scene");
  m.def(
      "list_lights",
      [](const MeshListRef& list, const std::optional<MeshFilter>& filter) {
        return workOn(list.stage, [&](const Work& work) {
          return listLights(*list.stage, *list.list, filter ? *filter : MeshFilter(), work);
        });
      },
      nb::arg("meshes"), nb::arg("filter") = nb::none(),
      "The lights that shine in the scene of a list of meshes, at the filter's time; take the "
      "filter that the list was made with.");
}

void bindMaterials(nb::module_& m) {
  nb::enum_<MaterialPurpose>(
      m, "MaterialPurpose",
      "What materials are for.\n\n>>> vela.scene.MaterialPurpose.FULL.value\n0")
      .value("FULL", MaterialPurpose::full)
      .value("PREVIEW", MaterialPurpose::preview)
      .value("ALL", MaterialPurpose::all);
  Record<MaterialBinding>(
      m, "MaterialBinding",
      "A binding that won.\n\n>>> bool(vela.scene.MaterialBinding().material)\nFalse")
      .field("material", &MaterialBinding::material, "Not valid: none.")
      .field("relationship", &MaterialBinding::relationship, "The binding's own; empty: none.");
  m.def(
      "find_material",
      [](const ovo::Prim& prim, MaterialPurpose purpose) {
        requireOpen(prim);
        if (!prim.getStage()) return MaterialBinding();
        MaterialFinder finder(*prim.getStage(), purpose);
        return finder.find(prim);
      },
      nb::arg("prim"), nb::arg("purpose") = MaterialPurpose::full,
      "The binding of a prim: of a mesh, or of a subset. For many prims take find_materials.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> bool(vela.scene.find_material(stage.define_prim('/Ball', 'Mesh')).material)\nFalse");
  m.def(
      "material_subsets",
      [](const ovo::Prim& prim, Time time) {
        requireOpen(prim);
        std::vector<std::tuple<ovo::Prim, NumpyArray<int>>> out;
        for (const MaterialSubset& subset : materialSubsets(prim, time))
          out.emplace_back(subset.prim, shareOut(subset.faces));
        return out;
      },
      nb::arg("prim"), nb::arg("time") = Time(),
      "The subsets of a prim that materials are bound to, as (prim, faces (n,)).\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.scene.material_subsets(stage.define_prim('/Ball', 'Mesh'))\n[]");
  using M = SceneMaterials;
  nb::class_<M> materials(
      m, "SceneMaterials",
      "The materials of a list of meshes.\n\n>>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> meshes = vela.scene.list_meshes(stage)\n"
      ">>> len(vela.scene.find_materials(meshes)) == len(meshes)\nTrue");
  materials.def("__len__", [](const M& s) { return s.entries.size(); })
      .def_prop_ro(
          "materials", [](const M& s) { return s.materials; }, "Each once.")
      .def(
          "material_of",
          [](const M& s, Py_ssize_t entry, int face) -> std::optional<ovo::Prim> {
            const std::uint32_t i = s.entries[indexOf(entry, s.entries.size(), "entries")].of(face);
            if (i == kNoMaterial) return std::nullopt;
            return s.materials[i];
          },
          nb::arg("entry"), nb::arg("scene_face") = -1,
          "The material of an entry, or of one of the scene's faces of it; None without.")
      .def(
          "problems", [](const M& s) { return s.problems; }, "Bindings that cannot be read.")
      .def("__repr__", [](const M& s) {
        return "<SceneMaterials: " + std::to_string(s.materials.size()) + " materials>";
      });
  refusePickle(materials, "it refers to a scene");
  m.def(
      "find_materials",
      [](const MeshListRef& list, MaterialPurpose purpose) {
        return workOn(list.stage, [&](const Work& work) {
          return findMaterials(*list.stage, *list.list, purpose, list.time, work);
        });
      },
      nb::arg("meshes"), nb::arg("purpose") = MaterialPurpose::full,
      "The materials of all entries.");
}

void bindReports(nb::module_& m) {
  using D = MeshDefect;
  nb::enum_<D::Kind>(m, "MeshDefectKind",
                     "Kinds of defects.\n\n"
                     ">>> vela.scene.describe_defect(vela.scene.MeshDefectKind.FOLDED_FACE)\n"
                     "'folded face'")
      .value("SMALL_FACE", D::Kind::smallFace)
      .value("COUNTS_OFF", D::Kind::countsOff)
      .value("INDEX_OUT_OF_RANGE", D::Kind::indexOutOfRange)
      .value("POINT_TWICE", D::Kind::pointTwice)
      .value("FOLDED_FACE", D::Kind::foldedFace)
      .value("FLAT_FACE", D::Kind::flatFace)
      .value("SAME_WAY_EDGE", D::Kind::sameWayEdge)
      .value("BAD_POINT", D::Kind::badPoint)
      .value("UNUSED_POINT", D::Kind::unusedPoint)
      .value("PRIMVAR_COUNT", D::Kind::primvarCount);
  m.def(
      "describe_defect", [](D::Kind kind) { return std::string(describe(kind)); }, nb::arg("kind"),
      "A few words for a kind of defect.");
  Record<D>(m, "MeshDefect",
            "One kind of defect: how often, and where first.\n\n"
            ">>> vela.scene.MeshDefect().count\n0")
      .field("kind", &D::kind, "The kind.")
      .field("count", &D::count, "How often.")
      .field("first", &D::first, "Where first.");
  Record<PrimvarReport>(m, "PrimvarReport",
                        "A primvar's size beside what its interpolation asks for.\n\n"
                        ">>> vela.scene.PrimvarReport().fits\nTrue")
      .field("name", &PrimvarReport::name, "Its name.")
      .field("type", &PrimvarReport::type, "Its declared type.")
      .field("interpolation", &PrimvarReport::interpolation, "Its interpolation.")
      .field("elements", &PrimvarReport::elements, "How many.")
      .field("is_indexed", &PrimvarReport::isIndexed, "With indices.")
      .field("fits", &PrimvarReport::fits, "Whether that is the right number.");
  using R = MeshReport;
  Record<R>(m, "MeshReport",
            "A mesh in numbers, and what is wrong with it.\n\n"
            ">>> vela.scene.MeshReport().triangles\n0")
      .field("path", &R::path, "Of the prim.")
      .field("scheme", &R::scheme, "Subdivision scheme.")
      .field("orientation", &R::orientation, "Of the prim.")
      .field("points", &R::points, "How many.")
      .field("faces", &R::faces, "How many.")
      .field("face_vertices", &R::faceVertices, "How many.")
      .field("triangles", &R::triangles, "How many faces are triangles.")
      .field("quads", &R::quads, "How many faces are quadrilaterals.")
      .field("edges", &R::edges, "How many.")
      .field("border_edges", &R::borderEdges, "With one face.")
      .field("crowded_edges", &R::crowdedEdges, "With more than two faces.")
      .part("bounds", &R::bounds, "Of the points.")
      .field("primvars", &R::primvars, "A report each.")
      .field("defects", &R::defects, "Each kind once.");
  m.def(
      "inspect_mesh",
      [](const MeshTopology& mesh) {
        InterruptibleWork work;
        auto report = [&] {
          const Unlocked unlocked;
          return inspectMesh(mesh, work.work());
        }();
        work.rethrow();
        return *report;
      },
      nb::arg("topology"),
      "The report of points and faces alone.\n\n"
      ">>> bow = vela.MeshTopology(points=[[0, 0, 0], [1, 1, 0], [1, 0, 0], [0, 1, 0]], "
      "verts_per_face=[4], face_vert_point_indices=[0, 1, 2, 3])\n"
      ">>> [defect.kind.name for defect in vela.scene.inspect_mesh(bow).defects]\n['FOLDED_FACE']");
  m.def(
      "inspect_mesh",
      [](const ovo::MeshPrim& prim, Time time) {
        requireOpen(prim);
        if (!prim.getStage()) refuse("the prim is not valid");
        auto report = workOn(prim.getStage(),
                             [&](const Work& work) { return inspectMesh(prim, time, work); });
        return *report;
      },
      nb::arg("mesh"), nb::arg("time") = Time(), "The report of a prim's mesh at a time.");

  using S = SceneSummary;
  Record<S::Node>(m, "SummaryNode", "A prim of the tree.\n\n>>> vela.scene.SummaryNode().depth\n1")
      .field("path", &S::Node::path, "Its path.")
      .field("type", &S::Node::type, "Empty for a prim without one.")
      .field("depth", &S::Node::depth, "1 for a top prim.")
      .field("below", &S::Node::below, "How many prims are below it.")
      .field("is_instance", &S::Node::isInstance, "An instance.")
      .part("box", &S::Node::box, "Of its meshes and those below, in world space.");
  Record<S::VariantSet>(m, "SummaryVariantSet",
                        "A variant set.\n\n>>> vela.scene.SummaryVariantSet().variants\n[]")
      .field("prim", &S::VariantSet::prim, "The prim.")
      .field("set", &S::VariantSet::set, "The set.")
      .field("selected", &S::VariantSet::selected, "Empty: nothing.")
      .field("variants", &S::VariantSet::variants, "What can be chosen.");
  Record<S::Light>(m, "SummaryLight", "A light.\n\n>>> vela.scene.SummaryLight().visible\nTrue")
      .field("path", &S::Light::path, "Its path.")
      .field("type", &S::Light::type, "Its type.")
      .field("visible", &S::Light::visible, "Whether it is visible.");
  Record<S::Texture>(m, "SummaryTexture", "A texture.\n\n>>> vela.scene.SummaryTexture().uses\n0")
      .field("file", &S::Texture::file, "As it is written in the scene.")
      .field("resolved", &S::Texture::resolved, "Empty: it is missing.")
      .field("shader", &S::Texture::shader, "The first that names it.")
      .field("uses", &S::Texture::uses, "Shaders and lights that name it.");
  Record<S::Instancer>(m, "SummaryInstancer",
                       "A point instancer.\n\n>>> vela.scene.SummaryInstancer().instances\n0")
      .field("path", &S::Instancer::path, "Its path.")
      .field("instances", &S::Instancer::instances, "How many.");
  Record<S>(m, "SceneSummary", "What a scene holds.\n\n>>> vela.scene.SceneSummary().lights\n[]")
      .part("box", &S::box, "Of what a picture shows, in world space.")
      .field("tree", &S::tree, "In the scene's order, parents first.")
      .field("variants", &S::variants, "Variant sets.")
      .field("lights", &S::lights, "Lights.")
      .field("textures", &S::textures, "Textures.")
      .field("instances", &S::instances, "Prims that are instances.")
      .field("instancers", &S::instancers, "Point instancers outside of prototypes.");
  m.def(
      "summarize",
      [](const StagePtr& stage, Time time, int depth) {
        const SummaryOptions options{time, depth};
        auto summary =
            workOn(stage, [&](const Work& work) { return summarize(*stage, options, work); });
        if (!summary) {
          PyErr_SetString(PyExc_MemoryError, "more instances than memory is likely to hold");
          throw nb::python_error();
        }
        return *summary;
      },
      nb::arg("stage"), nb::arg("time") = Time(), nb::arg("depth") = 3,
      "What a scene holds; `depth` 1 is the top prims alone.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> vela.scene.summarize(stage).tree[0].path\nPath('/Demo')");
}

}  // namespace

void bindSceneMeshes(nb::module_& m) {
  bindProblem(m);
  bindLists(m);
  bindExtent(m);
  bindPrimWalks(m);
  bindSceneLights(m);
  bindMaterials(m);
  bindReports(m);
  // Takes a View, which SceneRays.cpp tells.
  nb::class_<View>(m, "View",
                   "A camera placed in the world, its lens and the size of the picture; made by "
                   "make_view. Pixel (0, 0) is top left; NDC y has x's unit.\n\n"
                   ">>> stage = vela.open('examples/demo/demo.usda')\n"
                   ">>> view = vela.scene.make_view(stage, width=640, height=360)\n"
                   ">>> view.width, view.lens.name, view.ndc(320, 180).tolist()\n"
                   "(640, 'PERSPECTIVE', [0.0, 0.0])");
  bindLeftOut(m);
}

}  // namespace vela::python
