// Preview materials and their response to light.
#include <string>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "ovo/Prim.h"
#include "vela/look/LightSource.h"
#include "vela/look/PreviewMaterial.h"
#include "vela/look/PreviewResponse.h"

namespace vela::python {

using namespace vela::look;

namespace {

void bindLights(nb::module_& m) {
  nb::enum_<LightKind>(m, "LightKind",
                       "The kinds of lights that pictures show.\n\n"
                       ">>> vela.look.LightKind.DOME.value\n5")
      .value("DISTANT", LightKind::distant)
      .value("SPHERE", LightKind::sphere)
      .value("RECT", LightKind::rect)
      .value("DISK", LightKind::disk)
      .value("CYLINDER", LightKind::cylinder)
      .value("DOME", LightKind::dome);
  m.def(
      "light_kind_of",
      [](const ovo::Prim& prim) {
        requireOpen(prim);
        return lightKindOf(prim);
      },
      nb::arg("prim"),
      "The kind of a light; None for other prims, portals, geometry and plug-in lights.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.look.light_kind_of(stage.define_prim('/Sun', 'DistantLight')).name\n'DISTANT'");
  m.def("black_body_colour", &blackBodyColour, nb::arg("kelvin"),
        "The colour (3,) of a black body, linear Rec.709, of the luminance 1; kelvin within 1000 "
        "and 10000.\n\n>>> red, green, blue = vela.look.black_body_colour(2700)\n"
        ">>> bool(red > green > blue)\nTrue");
  using L = LightSource;
  Record<LightShaping>(m, "LightShaping",
                       "What keeps light of a light within a cone.\n\n"
                       ">>> vela.look.LightShaping().cone_angle\n90.0")
      .field("cone_angle", &LightShaping::coneAngle, "Degrees; beyond it there is no light.")
      .field("cone_softness", &LightShaping::coneSoftness, "The share in which it fades, 0 to 1.")
      .field("focus", &LightShaping::focus, "The exponent of the cosine that light falls off by.")
      .field("focus_tint", &LightShaping::focusTint, "What light becomes that falls off, (3,).");
  Record<LightShadow>(m, "LightShadow",
                      "The shadows of a light.\n\n>>> vela.look.LightShadow().is_enabled\nTrue")
      .field("is_enabled", &LightShadow::isEnabled, "Whether there are any.")
      .field("colour", &LightShadow::colour, "A factor of what arrives where there is one, (3,).")
      .field("distance", &LightShadow::distance, "What is farther off throws none; negative: all.")
      .field("falloff", &LightShadow::falloff, "Over which they fade; negative: they do not.")
      .field("falloff_gamma", &LightShadow::falloffGamma, "The exponent of that.");
  {
    Record<L> r(m, "LightSource",
                "A light; which fields count depends on its kind.\n\n"
                ">>> stage = vela.Stage.create_in_memory()\n"
                ">>> light = vela.look.read_light(stage.define_prim('/Sun', 'DistantLight'))\n"
                ">>> light.kind.name, light.radiance.tolist() == [light.radiance[0]] * 3\n"
                "('DISTANT', True)");
    r.field("kind", &L::kind, "Its kind.")
        .field("world_from_light", &L::worldFromLight, "(4, 4); it shines along its own -z.")
        .field("radiance", &L::radiance, "Before texture and shaping, (3,), in scene units.")
        .field("diffuse", &L::diffuse, "A factor of what surfaces scatter of it.")
        .field("specular", &L::specular, "A factor of what surfaces reflect of it.")
        .field("angle", &L::angle, "Distant: degrees that it fills, 0 to 360.")
        .field("radius", &L::radius, "Of spheres, disks and cylinders.")
        .field("width", &L::width, "Of rectangles, along x.")
        .field("height", &L::height, "Of rectangles, along y.")
        .field("length", &L::length, "Of cylinders, along x.")
        .field("is_thin", &L::isThin, "A point, a line, or a distant light without an angle.")
        .field("is_shaped", &L::isShaped, "By `shaping`.")
        .part("shaping", &L::shaping, "Its cone.")
        .part("shadow", &L::shadow, "Its shadows.")
        .part("texture", &L::texture, "Of rectangles and domes; without one `written` is empty.")
        .field("is_pole_z", &L::isPoleZ, "Domes: the pole of the image is z, else y.")
        .field("defects", &L::defects, "What is wrong with it, each a line.");
    r.type()
        .def("shaping_towards", &L::shapingTowards, nb::arg("away"),
             "The share of light (3,) that shaping leaves in a direction of the world (3,) that "
             "leads away from the light, of unit length.")
        .def("world_area", &L::worldArea, "Of what is not thin, distant or a dome.");
  }
  m.def(
      "read_light",
      [](const ovo::Prim& prim, const std::optional<tarn::Mat4d>& world, Time time) {
        requireOpen(prim);
        return readLight(prim, world ? *world : tarn::Mat4d(), time);
      },
      nb::arg("prim"), nb::arg("world_from_light") = nb::none(), nb::arg("time") = Time(),
      "Reads a light as it is at a time; None for what light_kind_of gives None for.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.look.read_light(stage.root_prim) is None\nTrue");
  m.def(
      "has_light_profile",
      [](const ovo::Prim& prim, Time time) {
        requireOpen(prim);
        return hasLightProfile(prim, time);
      },
      nb::arg("prim"), nb::arg("time") = Time(),
      "True when the light names a profile of what it emits, which is not read.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.look.has_light_profile(stage.root_prim)\nFalse");
  Record<LightSample>(m, "LightSample",
                      "Light that arrives at a point from one place of a light.\n\n"
                      ">>> vela.look.LightSample().density\n0.0")
      .field("to_light", &LightSample::toLight, "Unit length, (3,).")
      .field("distance", &LightSample::distance, "Infinite for distant lights and domes.")
      .field("radiance", &LightSample::radiance, "Shaped, without texture, (3,); 0: nothing.")
      .field("density", &LightSample::density, "In solid angle; 0 of thin lights.")
      .field("on_texture", &LightSample::onTexture, "Where the image counts, (2,).");
  m.def("sample_light", &sampleLight, nb::arg("light"), nb::arg("point"), nb::arg("normal"),
        nb::arg("u"), nb::arg("v"),
        "Chooses a place on a light: point (3,) and unit normal (3,) of a surface, (u, v) a point "
        "of the unit square.\n\n"
        ">>> bulb = vela.look.LightSource(radius=1, radiance=[1, 1, 1])\n"
        ">>> vela.look.sample_light(bulb, [0, -5, 0], [0, 1, 0], 0.5, 0.5).density > 0\nTrue");
  m.def("meet_light", &meetLight, nb::arg("light"), nb::arg("point"), nb::arg("normal"),
        nb::arg("to_light"),
        "What arrives from a direction (3,), with the density that sample_light has for it.\n\n"
        ">>> bulb = vela.look.LightSource(radius=1, radiance=[1, 1, 1])\n"
        ">>> vela.look.meet_light(bulb, [0, -5, 0], [0, 1, 0], [0, 1, 0]).distance\n4.0");
  m.def("dome_coordinates", &domeCoordinates, nb::arg("dome"), nb::arg("direction"),
        "Where the image of a dome counts for a direction (3,): (u, v) from 0 to 1, from its left "
        "and its lower edge.\n\n"
        ">>> dome = vela.look.LightSource(kind=vela.look.LightKind.DOME)\n"
        ">>> vela.look.dome_coordinates(dome, [0, 1, 0])[1].item()\n1.0");
  m.def("dome_direction", &domeDirection, nb::arg("dome"), nb::arg("coordinates"),
        "The other way round: a direction (3,).\n\n"
        ">>> dome = vela.look.LightSource(kind=vela.look.LightKind.DOME)\n"
        ">>> vela.look.dome_direction(dome, [0.5, 1]).round(6).tolist()\n[0.0, 1.0, 0.0]");
}

}  // namespace

void bindLook(nb::module_& m) {
  bindLights(m);
  nb::enum_<SurfaceInput>(m, "SurfaceInput",
                          "The inputs of a preview surface.\n\n"
                          ">>> vela.look.input_name(vela.look.SurfaceInput.IOR)\n'ior'")
      .value("DIFFUSE_COLOR", SurfaceInput::diffuseColor)
      .value("EMISSIVE_COLOR", SurfaceInput::emissiveColor)
      .value("SPECULAR_COLOR", SurfaceInput::specularColor)
      .value("METALLIC", SurfaceInput::metallic)
      .value("ROUGHNESS", SurfaceInput::roughness)
      .value("CLEARCOAT", SurfaceInput::clearcoat)
      .value("CLEARCOAT_ROUGHNESS", SurfaceInput::clearcoatRoughness)
      .value("OPACITY", SurfaceInput::opacity)
      .value("OPACITY_THRESHOLD", SurfaceInput::opacityThreshold)
      .value("IOR", SurfaceInput::ior)
      .value("NORMAL", SurfaceInput::normal)
      .value("DISPLACEMENT", SurfaceInput::displacement)
      .value("OCCLUSION", SurfaceInput::occlusion);
  nb::enum_<NodeOutput>(m, "NodeOutput",
                        "Which part of a node's result is taken.\n\n"
                        ">>> vela.look.NodeOutput.RGB.value\n0")
      .value("RGB", NodeOutput::rgb)
      .value("R", NodeOutput::r)
      .value("G", NodeOutput::g)
      .value("B", NodeOutput::b)
      .value("A", NodeOutput::a);
  using V = NetworkValue;
  {
    Record<V> r(m, "NetworkValue",
                "A number or a vector: a constant, or what a node gives.\n\n"
                ">>> vela.look.NetworkValue().is_constant\nTrue");
    r.field("constant", &V::constant, "(4,); single numbers stand in all four places.")
        .field("node", &V::node, "Index in PreviewMaterial.nodes; -1: the constant counts.")
        .field("output", &V::output, "Which part of the node's result.");
    r.type().def_prop_ro("is_constant", &V::isConstant, "True without a node.");
  }
  using N = NetworkNode;
  nb::object nodeType;
  {
    nb::enum_<N::Kind>(m, "NodeKind",
                       "The kinds of nodes.\n\n>>> vela.look.NodeKind.TEXTURE.value\n0")
        .value("TEXTURE", N::Kind::texture)
        .value("PRIMVAR", N::Kind::primvar)
        .value("TRANSFORM", N::Kind::transform);
    nb::enum_<N::Wrap>(m, "Wrap",
                       "Beyond a texture's border.\n\n>>> vela.look.Wrap.REPEAT.value\n2")
        .value("BLACK", N::Wrap::black)
        .value("CLAMP", N::Wrap::clamp)
        .value("REPEAT", N::Wrap::repeat)
        .value("MIRROR", N::Wrap::mirror);
    nb::enum_<N::ColourSpace>(
        m, "ColourSpace",
        "How a texture's codes are meant.\n\n>>> vela.look.ColourSpace.RAW.value\n1")
        .value("AUTOMATIC", N::ColourSpace::automatic)
        .value("RAW", N::ColourSpace::raw)
        .value("SRGB", N::ColourSpace::srgb);
    Record<N>(m, "NetworkNode",
              "A node of a network; which fields count is said by its kind.\n\n"
              ">>> vela.look.NetworkNode().kind.name\n'PRIMVAR'")
        .field("kind", &N::kind, "Its kind.")
        .field("path", &N::path, "Of the shader prim.")
        .part("coordinates", &N::coordinates, "The coordinates that go in.")
        .part("file", &N::file, "Of a texture.")
        .field("wrap_s", &N::wrapS, "Of a texture.")
        .field("wrap_t", &N::wrapT, "Of a texture.")
        .field("colour_space", &N::colourSpace, "Of a texture.")
        .field("scale", &N::scale, "value * scale + bias, (4,).")
        .field("bias", &N::bias, "(4,).")
        .field("primvar", &N::primvar, "The name of a primvar.")
        .field("components", &N::components, "How many numbers a value has, 1 to 4; 0: none.")
        .field("fallback", &N::fallback, "Where there is no image or primvar, (4,).")
        .field("rotation", &N::rotation, "Degrees, counter-clockwise, after the scale.")
        .field("scaling", &N::scaling, "(2,).")
        .field("translation", &N::translation, "(2,).");
  }
  using P = PreviewMaterial;
  nb::class_<P> material(
      m, "PreviewMaterial",
      "The surface of a material.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> vela.look.read_preview_material(stage.define_prim('/Red', 'Material')).is_shown\nFalse");
  material.def_ro("is_shown", &P::isShown, "True when there is a preview surface.")
      .def_ro("other", &P::other, "What the material has instead; may be empty.")
      .def_ro("is_specular_workflow", &P::isSpecularWorkflow, "Reflections by specular_color.")
      .def_ro("fades_whole", &P::fadesWhole, "Opacity fades reflections too.")
      .def_prop_ro(
          "nodes", [](const P& p) { return p.nodes; },
          "Each after those that it takes values from; copies.")
      .def(
          "__getitem__", [](const P& p, SurfaceInput input) { return p[input]; }, nb::arg("input"))
      .def("__repr__", [](const P& p) {
        return "<PreviewMaterial of " + std::to_string(p.nodes.size()) + " nodes>";
      });
  refusePickle(material, "read it from its scene again");
  m.def("defined_value", &definedValue, nb::arg("input"),
        "The value that the definition gives an input, (4,).\n\n"
        ">>> vela.look.defined_value(vela.look.SurfaceInput.ROUGHNESS)[0].item()\n0.5");
  m.def(
      "input_name", [](SurfaceInput input) { return std::string(nameOf(input)); }, nb::arg("input"),
      "The input's name, such as `diffuseColor`.");
  m.def(
      "read_preview_material",
      [](const ovo::Prim& prim, Time time) {
        requireOpen(prim);
        return readPreviewMaterial(prim, time);
      },
      nb::arg("material"), nb::arg("time") = Time(),
      "Reads the surface of a material prim as it is at a time.");

  using S = PreviewSurface;
  {
    Record<S> r(m, "PreviewSurface",
                "The inputs of a preview surface at one point.\n\n"
                ">>> vela.look.PreviewSurface(roughness=0.25).ior\n1.5");
    r.field("diffuse_color", &S::diffuseColor, "(3,).")
        .field("emissive_color", &S::emissiveColor, "(3,).")
        .field("specular_color", &S::specularColor, "(3,).")
        .field("is_specular_workflow", &S::isSpecularWorkflow, "By specular_color, not metallic.")
        .field("metallic", &S::metallic, "0 to 1.")
        .field("roughness", &S::roughness, "0 to 1.")
        .field("clearcoat", &S::clearcoat, "0 to 1.")
        .field("clearcoat_roughness", &S::clearcoatRoughness, "0 to 1.")
        .field("ior", &S::ior, "Index of refraction, 1 or more.");
    r.type().def("sanitise", &S::sanitise, "Brings every number to where it means something.");
  }
  {
    Record<PreviewResponse> r(m, "PreviewResponse",
                              "Shares of the light that arrives; the cosine is in them.\n\n"
                              ">>> vela.look.PreviewResponse().sum().tolist()\n[0.0, 0.0, 0.0]");
    r.field("diffuse", &PreviewResponse::diffuse, "(3,).")
        .field("specular", &PreviewResponse::specular, "(3,), of the base and the coat.");
    r.type().def("sum", &PreviewResponse::sum, "Both together, (3,).");
  }
  Record<ReflectedDirection>(m, "ReflectedDirection",
                             "A direction of light that reflects towards the viewer.\n\n"
                             ">>> vela.look.ReflectedDirection().weight.tolist()\n[0.0, 0.0, 0.0]")
      .field("to_light", &ReflectedDirection::toLight, "Unit length, (3,).")
      .field("weight", &ReflectedDirection::weight, "Response over density, (3,).");
  m.def("respond", &respond, nb::arg("surface"), nb::arg("normal"), nb::arg("to_light"),
        nb::arg("to_viewer"),
        "The response to light from one direction; unit vectors (3,) that point away.\n\n"
        ">>> up = [0, 0, 1]\n"
        ">>> round(vela.look.respond(vela.look.PreviewSurface(), up, up, up).sum()[0].item(), 4)\n"
        "0.1059");
  m.def(
      "sample_reflection", &sampleReflection, nb::arg("surface"), nb::arg("normal"),
      nb::arg("to_viewer"), nb::arg("u"), nb::arg("v"), nb::arg("coat") = false,
      "A direction that reflects, likelier where more does; (u, v) a point of the unit square.\n\n"
      ">>> up = [0, 0, 1]\n"
      ">>> vela.look.sample_reflection(vela.look.PreviewSurface(), up, up, 0.0, "
      "0.0).to_light.shape\n"
      "(3,)");
  Record<Reflection>(m, "Reflection",
                     "The specular response to light from one direction, and how likely it is "
                     "chosen.\n\n>>> vela.look.Reflection().density\n0.0")
      .field("to_light", &Reflection::toLight, "Unit length, (3,).")
      .field("specular", &Reflection::specular, "As PreviewResponse.specular, (3,).")
      .field("density", &Reflection::density, "In solid angle; 0: never.");
  m.def("reflection_towards", &reflectionTowards, nb::arg("surface"), nb::arg("normal"),
        nb::arg("to_light"), nb::arg("to_viewer"),
        "The response to light from a direction, for light that has a size; unit vectors (3,).\n\n"
        ">>> up = [0, 0, 1]\n"
        ">>> vela.look.reflection_towards(vela.look.PreviewSurface(), up, up, up).density > 0\n"
        "True");
  m.def("choose_reflection", &chooseReflection, nb::arg("surface"), nb::arg("normal"),
        nb::arg("to_viewer"), nb::arg("u"), nb::arg("v"), nb::arg("coat") = false,
        "A direction that light reflects from, likelier where more of it does; (u, v) a point of "
        "the unit square, below 1.\n\n"
        ">>> up = [0, 0, 1]\n"
        ">>> vela.look.choose_reflection(vela.look.PreviewSurface(), up, up, 0, 0).density > 0\n"
        "True");
}

}  // namespace vela::python
