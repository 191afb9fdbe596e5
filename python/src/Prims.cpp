// Prims and what they are: transforms, meshes, cameras, point instancers, networks.
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "ovo/CameraPrim.h"
#include "ovo/MeshPrim.h"
#include "ovo/PointInstancerPrim.h"
#include "ovo/Prim.h"
#include "ovo/PropertyLinks.h"
#include "ovo/Stage.h"
#include "ovo/Xform.h"

namespace vela::python {

namespace {

using ovo::Prim;

// A const call of a prim that takes nothing, once its scene is open.
template <class C, class R>
auto open(R (C::*call)() const) {
  return [call](const C& prim) -> std::decay_t<R> {
    requireOpen(prim);
    return (prim.*call)();
  };
}
template <class C, class R>
auto open(R (C::*call)() const noexcept) {
  return [call](const C& prim) -> std::decay_t<R> {
    requireOpen(prim);
    return (prim.*call)();
  };
}
// A change that answers whether it happened.
void require(bool isDone, const char* what) {
  if (!isDone) refuse(what);
}

constexpr const char* kNotChanged =
    "the prim cannot be changed: it is not valid, is the stage's root or lies inside an instance";

void bindPrim(nb::module_& m) {
  nb::class_<Prim> prim(
      m, "Prim",
      "A handle to an object of a scene; it keeps the stage alive. One that is not valid answers "
      "with nothing, False or empty values. Equal and ordered by stage and path.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> chair = stage.define_prim('/World/Chair', 'Xform')\n"
      ">>> chair.create_attr('price', 'float').set(120)\n"
      ">>> chair.attr('price').get(), chair.parent.children()\n"
      "(120.0, [<Prim /World/Chair>])");
  prim.def(nb::init<>())
      .def("__bool__", open(&Prim::isValid))
      .def_prop_ro("is_valid", open(&Prim::isValid), "False for a prim that is not there.")
      .def_prop_ro(
          "stage",
          [](const Prim& p) {
            requireOpen(p);
            return p.getStage();
          },
          "The stage; None for a prim that is not valid.")
      .def_prop_ro("path", open(&Prim::getPath), "The address.")
      .def_prop_ro("name", open(&Prim::getName), "The last name of the path.")
      .def_prop_rw(
          "type_name", open(&Prim::getTypeName),
          [](const Prim& p, const ovo::Token& type) {
            requireIdle(p);
            require(p.setTypeName(type), kNotChanged);
          },
          "`Mesh`, `Xform` ...; empty without a type.")
      .def_prop_rw(
          "is_active", open(&Prim::isActive),
          [](const Prim& p, bool active) {
            requireIdle(p);
            require(p.setActive(active), kNotChanged);
          },
          "False when the scene switches the prim off, with all below it.")
      .def_prop_ro("is_abstract", open(&Prim::isAbstract), "True for a class and all below it.")
      .def_prop_ro("is_defined", open(&Prim::isDefined), "False for what has only overs.")
      .def_prop_ro("is_instance", open(&Prim::isInstance), "True for an instance.")
      .def_prop_ro("is_instance_proxy", open(&Prim::isInstanceProxy), "True below an instance.")
      .def_prop_ro("parent", open(&Prim::parent), "The prim above.")
      .def(
          "children",
          [](const Prim& p, bool activeOnly, bool abstract, bool instanced) {
            requireOpen(p);
            std::vector<Prim> out;
            p.getChildren(out, activeOnly, abstract, instanced);
            return out;
          },
          nb::arg("active_only") = true, nb::arg("include_abstract") = false,
          nb::arg("include_instanced") = true, "The defined children in the scene's order.")
      .def(
          "child",
          [](const Prim& p, const ovo::Token& name) {
            requireOpen(p);
            return p.getChild(name);
          },
          nb::arg("name"), "The child of that name; not valid when there is none.")
      .def(
          "attr",
          [](const Prim& p, const ovo::Token& name) {
            requireOpen(p);
            return p.getAttr(name);
          },
          nb::arg("name"), "The attribute of that full name; not valid when there is none.")
      .def(
          "create_attr",
          [](const Prim& p, const ovo::Token& name, const ovo::Token& type) {
            requireIdle(p);
            const ovo::Attribute made = p.createAttr(name, type);
            if (!made.isValid())
              refuse(name.asString() + ": no attribute of the type " + type.asString() +
                     " can be declared here");
            return made;
          },
          nb::arg("name"), nb::arg("type"),
          "The attribute of that name, declared where the scene has none. `type` is a word of "
          "scene "
          "files: `float`, `point3f[]`, `token` ... ValueError when it cannot be declared.")
      .def("attr_names", open(&Prim::getAttrNames),
           "Names of the attributes that the scene has opinions about.")
      .def(
          "primvar",
          [](const Prim& p, const ovo::Token& name) {
            requireOpen(p);
            return p.getPrimvar(name);
          },
          nb::arg("name"), "The primvar of that name, else the attribute; may be not valid.")
      .def(
          "find_inherited_primvar",
          [](const Prim& p, const ovo::Token& name) {
            requireOpen(p);
            return p.findInheritedPrimvar(name);
          },
          nb::arg("name"), "As `primvar`; constant ones of prims above apply.")
      .def(
          "create_primvar",
          [](const Prim& p, const ovo::Token& name, const ovo::Token& type,
             const ovo::Token& interpolation) {
            requireIdle(p);
            const ovo::Primvar made = p.createPrimvar(name, type, interpolation);
            if (!made.isValid())
              refuse(name.asString() + ": no primvar of the type " + type.asString() +
                     " can be declared here");
            return made;
          },
          nb::arg("name"), nb::arg("type"), nb::arg("interpolation") = "",
          "Declares `primvars:` + name with an interpolation. ValueError when it cannot be.")
      .def("primvar_names", open(&Prim::getPrimvarNames), "Names without the prefix.")
      .def(
          "relationship_targets",
          [](const Prim& p, const ovo::Token& name) -> std::optional<std::vector<ovo::Path>> {
            requireOpen(p);
            std::vector<ovo::Path> targets;
            if (!p.getRelationshipTargets(name, targets)) return std::nullopt;
            return targets;
          },
          nb::arg("name"), "The targets of a relationship; None when there is no such one.")
      .def(
          "set_relationship_targets",
          [](const Prim& p, const ovo::Token& name, const std::vector<ovo::Path>& targets) {
            requireIdle(p);
            require(p.setRelationshipTargets(name, targets), kNotChanged);
          },
          nb::arg("name"), nb::arg("targets"), "Writes the targets of a relationship.")
      .def(
          "is_visible",
          [](const Prim& p, Time time) {
            requireOpen(p);
            return p.isVisible(time);
          },
          nb::arg("time") = Time(), "False when it, or a prim above, is invisible at the time.")
      .def_prop_ro("purpose", open(&Prim::purpose), "`default`, `render`, `proxy` or `guide`.")
      .def_prop_ro("kind", open(&Prim::kind), "`component`, `group` ...; may be empty.")
      .def("variant_sets", open(&Prim::getVariantSets), "Names of the variant sets.")
      .def(
          "variants",
          [](const Prim& p, const ovo::Token& set) {
            requireOpen(p);
            return p.getVariants(set);
          },
          nb::arg("set"), "What can be chosen in a variant set.")
      .def(
          "variant_selection",
          [](const Prim& p, const ovo::Token& set) {
            requireOpen(p);
            return p.getVariantSelection(set);
          },
          nb::arg("set"), "What is chosen in a variant set; empty: nothing.")
      .def(
          "__eq__", [](const Prim& a, const Prim& b) { return a == b; }, nb::is_operator())
      .def(
          "__lt__", [](const Prim& a, const Prim& b) { return a < b; }, nb::is_operator())
      .def("__hash__", [](const Prim& p) { return static_cast<Py_hash_t>(p.hash() >> 1); })
      .def("__repr__", [](nb::handle self) {
        const Prim& p = nb::cast<const Prim&>(self);
        const std::string type = nb::str(self.type().attr("__name__")).c_str();
        if (!p.isValid()) return textOut("<" + type + " not valid>");
        return textOut("<" + type + " " + p.getPath().asString() + ">");
      });
  refusePickle(prim, "it is a handle into a scene; pickle its path");
}

void bindXform(nb::module_& m) {
  using ovo::XformablePrim;
  nb::class_<XformablePrim, Prim> xformable(
      m, "XformablePrim",
      "A prim that has a transform. Matrices have shape (4, 4) and act on columns.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> chair = vela.ovo.XformablePrim(stage.define_prim('/Chair', 'Xform'))\n"
      ">>> chair.set_local_xform(vela.tarn.translation([1, 2, 3]))\n"
      ">>> chair.local_xform()[:3, 3].tolist()\n[1.0, 2.0, 3.0]");
  xformable.def(nb::init<const Prim&>(), nb::arg("prim"))
      .def("__bool__", open(&XformablePrim::isValid))
      .def_prop_ro("is_valid", open(&XformablePrim::isValid), "True for a prim of such a type.")
      .def(
          "local_xform",
          [](const XformablePrim& p, Time time) {
            requireOpen(p);
            return p.getLocalXform(time);
          },
          nb::arg("time") = Time(), "Local to parent, (4, 4); the identity when not valid.")
      .def(
          "set_local_xform",
          [](const XformablePrim& p, const tarn::Mat4d& local, Time time) {
            requireIdle(p);
            require(p.setLocalXform(local, time), kNotChanged);
          },
          nb::arg("matrix"), nb::arg("time") = Time(),
          "Replaces the prim's operations by one matrix, as a sample where a time is given.")
      .def_prop_ro("resets_xform_stack", open(&XformablePrim::resetsXformStack),
                   "True when the prim stands in world space, whatever is above it.")
      .def_prop_ro("might_be_time_varying", open(&XformablePrim::mightBeTimeVarying),
                   "True when the local transform may differ between two times.");

  nb::class_<ovo::XformCache> cache(
      m, "XformCache",
      "Local-to-world matrices at one time, each computed once. One thread at a time; it does not "
      "see later changes of the scene.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> vela.ovo.XformCache().local_to_world(stage.root_prim)[0].tolist()\n"
      "[1.0, 0.0, 0.0, 0.0]");
  nb::enum_<ovo::XformCache::Reading>(cache, "Reading", "What counts without a time.")
      .value("FIRST_SAMPLE", ovo::XformCache::firstSample)
      .value("AUTHORED", ovo::XformCache::authored);
  cache
      .def(
          "__init__",
          [](ovo::XformCache* self, Time time, ovo::XformCache::Reading reading) {
            new (self) ovo::XformCache(time, reading);
          },
          nb::arg("time") = Time(), nb::arg("reading") = ovo::XformCache::firstSample)
      .def_prop_ro(
          "time", [](const ovo::XformCache& c) { return Time(c.time()); }, "Its time.")
      .def(
          "local_to_world",
          [](ovo::XformCache& c, const Prim& prim) {
            requireOpen(prim);
            return c.getLocalToWorld(prim);
          },
          nb::arg("prim"), "The prim's matrix to world space, (4, 4).");
  refusePickle(cache, "it belongs to one scene and one thread");
}

void bindMesh(nb::module_& m) {
  using ovo::MeshPrim;
  nb::class_<MeshPrim, ovo::XformablePrim> mesh(
      m, "MeshPrim",
      "A polygon mesh of a scene. Faces follow one another in the index array, the length of each "
      "is in the count array; points are in the prim's own space.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> mesh = vela.ovo.MeshPrim.define(stage, '/Triangle')\n"
      ">>> mesh.set_points([[0, 0, 0], [2, 0, 0], [0, 1, 0]])\n"
      ">>> mesh.set_faces([3], [0, 1, 2])\n"
      ">>> mesh.bounds_box().max.tolist(), mesh.points().shape\n([2.0, 1.0, 0.0], (3, 3))");
  mesh.def(nb::init<const Prim&>(), nb::arg("prim"))
      .def_static(
          "define",
          [](const std::shared_ptr<ovo::Stage>& stage, const ovo::Path& path) {
            requireIdle(stage.get());
            const MeshPrim made = MeshPrim::define(stage, path);
            if (!made.isValid()) refuse(path.asString() + ": no prim can be defined there");
            return made;
          },
          nb::arg("stage"), nb::arg("path"), "Makes sure that a Mesh is defined there.")
      .def("__bool__", open(&MeshPrim::isValid))
      .def_prop_ro("is_valid", open(&MeshPrim::isValid), "True for a prim of the type Mesh.")
      .def(
          "points",
          [](const MeshPrim& p, Time time) {
            requireOpen(p);
            ovo::Array<tarn::Vec3f> points;
            p.getPoints(points, time);
            return shareOut(points);
          },
          nb::arg("time") = Time(), "Positions (n, 3), read-only; no rows without any.")
      .def(
          "set_points",
          [](const MeshPrim& p, const In<tarn::Vec3f>& points, Time time) {
            requireIdle(p);
            require(p.setPoints(points.read("points").array(), time), kNotChanged);
          },
          nb::arg("points"), nb::arg("time") = Time(), "Writes positions (n, 3); copied once.")
      .def(
          "faces",
          [](const MeshPrim& p, Time time) {
            requireOpen(p);
            ovo::Array<int> counts, indices;
            bool reverse = false;
            p.getFaceTopology(counts, indices, reverse, time);
            return std::tuple(shareOut(counts), shareOut(indices));
          },
          nb::arg("time") = Time(),
          "(counts, indices) with their stored winding, read-only; empty ones without.")
      .def(
          "set_faces",
          [](const MeshPrim& p, const In<int>& counts, const In<int>& indices, Time time) {
            requireIdle(p);
            const auto c = counts.read("counts"), i = indices.read("indices");
            require(p.createFaceVertexCountsAttr().set(c.array(), time) &&
                        p.createFaceVertexIndicesAttr().set(i.array(), time),
                    kNotChanged);
          },
          nb::arg("counts"), nb::arg("indices"), nb::arg("time") = Time(),
          "Writes counts (faces,) and indices (face-vertices,); nothing is checked.")
      .def(
          "create_points_attr",
          [](const MeshPrim& p) {
            requireIdle(p);
            return p.createPointsAttr();
          },
          "The attribute, declared where the scene has none yet.")
      .def(
          "create_face_vertex_counts_attr",
          [](const MeshPrim& p) {
            requireIdle(p);
            return p.createFaceVertexCountsAttr();
          },
          "The attribute, declared where the scene has none yet.")
      .def(
          "create_face_vertex_indices_attr",
          [](const MeshPrim& p) {
            requireIdle(p);
            return p.createFaceVertexIndicesAttr();
          },
          "The attribute, declared where the scene has none yet.")
      .def(
          "bounds_box",
          [](const MeshPrim& p, Time time, bool useExtent) {
            requireOpen(p);
            return p.getBoundsBox(time, useExtent);
          },
          nb::arg("time") = Time(), nb::arg("use_extent") = true,
          "The box of the points, or the authored extent, in the prim's own space.")
      .def(
          "write_extent",
          [](const MeshPrim& p, Time time) {
            requireIdle(p);
            return p.writeExtent(time);
          },
          nb::arg("time") = Time(), "Writes the box of the points; False without points.")
      .def_prop_rw(
          "subdivision_scheme", open(&MeshPrim::getSubdivisionScheme),
          [](const MeshPrim& p, const ovo::Token& scheme) {
            requireIdle(p);
            require(p.setSubdivisionScheme(scheme), kNotChanged);
          },
          "`catmullClark` where the scene does not say.")
      .def_prop_rw(
          "orientation", open(&MeshPrim::getOrientation),
          [](const MeshPrim& p, const ovo::Token& orientation) {
            requireIdle(p);
            require(p.setOrientation(orientation), kNotChanged);
          },
          "`rightHanded` where the scene does not say.")
      .def_prop_ro("is_double_sided", open(&MeshPrim::isDoubleSided), "As the scene says.")
      .def_prop_ro("normals_primvar", open(&MeshPrim::getNormalsPrimvar),
                   "`primvars:normals`, else `normals`; may be not valid.")
      .def(
          "normals",
          [](const MeshPrim& p,
             Time time) -> std::optional<std::tuple<NumpyArray<float>, ovo::Token>> {
            requireOpen(p);
            ovo::Array<tarn::Vec3f> normals;
            ovo::Token interpolation;
            if (!p.getNormals(normals, interpolation, time)) return std::nullopt;
            return std::tuple(shareOut(normals), interpolation);
          },
          nb::arg("time") = Time(), "(normals (n, 3), interpolation), or None without any.")
      .def(
          "set_normals",
          [](const MeshPrim& p, const In<tarn::Vec3f>& normals, const ovo::Token& interpolation,
             Time time) {
            requireIdle(p);
            require(p.setNormals(normals.read("normals").array(), interpolation, time),
                    kNotChanged);
          },
          nb::arg("normals"), nb::arg("interpolation"), nb::arg("time") = Time(),
          "Writes the attribute `normals` with that interpolation.");
}

void bindCameraPrim(nb::module_& m) {
  using ovo::CameraParameters;
  Record<CameraParameters>(
      m, "CameraParameters",
      "A camera's optics at one time; lengths in scene units.\n\n"
      ">>> vela.ovo.CameraParameters(focal_length=3.5).horizontal_aperture\n2.0955")
      .field("perspective", &CameraParameters::perspective, "False: orthographic.")
      .field("focal_length", &CameraParameters::focalLength, "Scene units.")
      .field("horizontal_aperture", &CameraParameters::horizontalAperture, "Film width.")
      .field("vertical_aperture", &CameraParameters::verticalAperture, "Film height.")
      .field("horizontal_aperture_offset", &CameraParameters::horizontalApertureOffset,
             "To the right.")
      .field("vertical_aperture_offset", &CameraParameters::verticalApertureOffset, "Up.")
      .field("clipping_near", &CameraParameters::clippingNear, "Distance of the near plane.")
      .field("clipping_far", &CameraParameters::clippingFar, "Distance of the far plane.")
      .field("f_stop", &CameraParameters::fStop, "0: everything is in focus.")
      .field("focus_distance", &CameraParameters::focusDistance, "From the camera.")
      .field("shutter_open", &CameraParameters::shutterOpen, "Time codes, relative to the frame.")
      .field("shutter_close", &CameraParameters::shutterClose, "Time codes, relative to the frame.")
      .field("exposure", &CameraParameters::exposure, "Powers of two.")
      .field("clipping_planes", &CameraParameters::clippingPlanes,
             "(n, 4): a x + b y + c z + d < 0 is cut off, in the camera's space.");
  using ovo::CameraPrim;
  nb::class_<CameraPrim, ovo::XformablePrim>(
      m, "CameraPrim",
      "A camera of a scene. It looks along its local -z, with +y up.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> camera = vela.ovo.CameraPrim.define(stage, '/Camera')\n"
      ">>> camera.set_parameters(vela.ovo.CameraParameters(focal_length=3.5))\n"
      ">>> camera.parameters().focal_length, camera.attr('focalLength').get()\n(3.5, 35.0)")
      .def(nb::init<const Prim&>(), nb::arg("prim"))
      .def_static(
          "define",
          [](const std::shared_ptr<ovo::Stage>& stage, const ovo::Path& path) {
            requireIdle(stage.get());
            const CameraPrim made = CameraPrim::define(stage, path);
            if (!made.isValid()) refuse(path.asString() + ": no prim can be defined there");
            return made;
          },
          nb::arg("stage"), nb::arg("path"), "Makes sure that a Camera is defined there.")
      .def("__bool__", open(&CameraPrim::isValid))
      .def_prop_ro("is_valid", open(&CameraPrim::isValid), "True for a prim of the type Camera.")
      .def(
          "parameters",
          [](const CameraPrim& p, Time time) {
            requireOpen(p);
            return p.getParameters(time);
          },
          nb::arg("time") = Time(), "The parameters at a time; the defaults when not valid.")
      .def(
          "set_parameters",
          [](const CameraPrim& p, const CameraParameters& parameters, Time time) {
            requireIdle(p);
            require(p.setParameters(parameters, time), kNotChanged);
          },
          nb::arg("parameters"), nb::arg("time") = Time(), "Writes all parameters.");
}

void bindInstancer(nb::module_& m) {
  using ovo::PointInstancerPrim;
  nb::class_<PointInstancerPrim, ovo::XformablePrim> instancer(
      m, "PointInstancerPrim",
      "A prim that places copies of its prototypes at many points.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> trees = vela.ovo.PointInstancerPrim.define(stage, '/Trees')\n"
      ">>> trees.create_attr('protoIndices', 'int[]').set([0, 0, 1])\n"
      ">>> trees.set_inactive_ids([1])\n>>> trees.compute_mask().tolist()\n[True, False, True]");
  nb::enum_<PointInstancerPrim::Reason>(instancer, "Reason", "What takes instances away.")
      .value("INACTIVE", PointInstancerPrim::inactive)
      .value("INACTIVE_OR_INVISIBLE", PointInstancerPrim::inactiveOrInvisible);
  instancer.def(nb::init<const Prim&>(), nb::arg("prim"))
      .def_static(
          "define",
          [](const std::shared_ptr<ovo::Stage>& stage, const ovo::Path& path) {
            requireIdle(stage.get());
            const PointInstancerPrim made = PointInstancerPrim::define(stage, path);
            if (!made.isValid()) refuse(path.asString() + ": no prim can be defined there");
            return made;
          },
          nb::arg("stage"), nb::arg("path"), "Makes sure that a PointInstancer is defined there.")
      .def("__bool__", open(&PointInstancerPrim::isValid))
      .def_prop_ro("is_valid", open(&PointInstancerPrim::isValid), "True for a prim of that type.")
      .def(
          "inactive_ids",
          [](const PointInstancerPrim& p) {
            requireOpen(p);
            ovo::Array<std::int64_t> ids;
            p.getInactiveIds(ids);
            return shareOut(ids);
          },
          "The ids that are switched off, (n,) int64.")
      .def(
          "set_inactive_ids",
          [](const PointInstancerPrim& p, const In<std::int64_t>& ids) {
            requireIdle(p);
            require(p.setInactiveIds(ids.read("ids").array()), kNotChanged);
          },
          nb::arg("ids"), "Writes the whole list (n,).")
      .def(
          "compute_mask",
          [](const PointInstancerPrim& p, Time time, PointInstancerPrim::Reason reason) {
            requireOpen(p);
            const std::vector<bool> mask = p.computeMask(time, reason);
            NewArray<bool> out(mask.size());
            for (std::size_t i = 0; i < mask.size(); ++i) out.data[i] = mask[i];
            return out;
          },
          nb::arg("time") = Time(), nb::arg("reason") = PointInstancerPrim::inactiveOrInvisible,
          "Which instances are there, (n,) bool; no elements when none is taken away.");
}

void bindLinks(nb::module_& m) {
  using ovo::FileReference, ovo::PropertyLinks;
  Record<FileReference>(m, "FileReference",
                        "A file that an attribute names.\n\n"
                        ">>> vela.ovo.FileReference(written='a.png').resolved\n''")
      .field("written", &FileReference::written, "As the scene has it, expressions evaluated.")
      .field("layer", &FileReference::layer, "The layer that wrote it.")
      .field("anchored", &FileReference::anchored, "Where it is looked for.")
      .field("resolved", &FileReference::resolved, "What is there; empty when nothing is.");
  nb::class_<PropertyLinks, Prim>(
      m, "PropertyLinks",
      "A prim, seen as a part of a network: materials, shaders, lights and what is bound to "
      "them.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> vela.ovo.PropertyLinks(stage.root_prim).applied_schemas()\n[]")
      .def(nb::init<const Prim&>(), nb::arg("prim"))
      .def(
          "property_names",
          [](const PropertyLinks& p, const std::string& prefix) {
            requireOpen(p);
            return p.propertyNames(prefix);
          },
          nb::arg("prefix") = "", "Names of attributes and relationships that begin so.")
      .def_static(
          "split",
          [](const ovo::Path& path) {
            ovo::Path prim;
            ovo::Token property;
            PropertyLinks::split(path, prim, property);
            return std::tuple(prim, property);
          },
          nb::arg("path"), "(prim, property) of a path such as `/Red.outputs:surface`.")
      .def(
          "property_word",
          [](const PropertyLinks& p, const ovo::Token& property, const ovo::Token& field) {
            requireOpen(p);
            return p.propertyWord(property, field);
          },
          nb::arg("property"), nb::arg("field"), "The word of a metadata field; empty without.")
      .def("applied_schemas", open(&PropertyLinks::appliedSchemas), "Schemas that are applied.")
      .def(
          "connections",
          [](const PropertyLinks& p,
             const ovo::Token& name) -> std::optional<std::vector<ovo::Path>> {
            requireOpen(p);
            std::vector<ovo::Path> sources;
            if (!p.connections(name, sources)) return std::nullopt;
            return sources;
          },
          nb::arg("attribute"), "What an attribute is connected to; None without such a one.")
      .def(
          "forwarded_targets",
          [](const PropertyLinks& p,
             const ovo::Token& name) -> std::optional<std::vector<ovo::Path>> {
            requireOpen(p);
            std::vector<ovo::Path> targets;
            if (!p.forwardedTargets(name, targets)) return std::nullopt;
            return targets;
          },
          nb::arg("relationship"), "Targets, those of relationships in their place.")
      .def(
          "file",
          [](const PropertyLinks& p, const ovo::Token& name,
             Time time) -> std::optional<FileReference> {
            requireOpen(p);
            FileReference file;
            if (!p.file(name, file, time)) return std::nullopt;
            return file;
          },
          nb::arg("attribute"), nb::arg("time") = Time(), "The file that an attribute names.")
      .def(
          "resolve_file",
          [](const PropertyLinks& p, const FileName& anchored) {
            requireOpen(p);
            return textOut(p.resolveFile(anchored.text));
          },
          nb::arg("anchored"), nb::sig("def resolve_file(self, anchored: str) -> str"),
          "What is there under such a name; empty when nothing is.")
      .def(
          "path_expression",
          [](const PropertyLinks& p, const ovo::Token& name,
             const ovo::Path& path) -> std::optional<bool> {
            requireOpen(p);
            const auto matches = p.pathExpression(name);
            if (!matches) return std::nullopt;
            return matches(path);
          },
          nb::arg("attribute"), nb::arg("path"),
          "Whether a path expression matches a prim; None when it cannot be evaluated.")
      .def(
          "source_key",
          [](const PropertyLinks& p) {
            requireOpen(p);
            return textOut(p.sourceKey());
          },
          nb::sig("def source_key(self) -> str"),
          "Equal for prims whose subtrees come from the same opinions of the same files.");
  m.def(
      "read_file_bytes",
      [](const FileName& file) {
        ovo::FileBytes bytes;
        std::string why;
        if (!ovo::readFileBytes(file.text, bytes, &why)) refuseFile(file.text, why);
        return nb::bytes(bytes.view().data(), bytes.view().size());
      },
      nb::arg("resolved"),
      "Reads a file by its resolved name, out of packages too. OSError when it cannot be read.\n\n"
      ">>> vela.ovo.read_file_bytes('examples/demo/demo.usda')[:5]\nb'#usda'");
}

}  // namespace

void bindPrims(nb::module_& m) {
  bindPrim(m);
  bindXform(m);
  bindMesh(m);
  bindCameraPrim(m);
  bindInstancer(m);
  bindLinks(m);
}

}  // namespace vela::python
