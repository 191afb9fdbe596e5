#include "ovo/detail/Schema.h"

#include <cstdint>
#include <initializer_list>
#include <unordered_map>

namespace ovo::detail {

namespace {

using pxr::TfToken;
using pxr::VtValue;

class Table {
 public:
  Table() {
    const pxr::SdfSchema& schema = pxr::SdfSchema::GetInstance();
    const auto type = [&schema](const char* name) { return schema.FindType(name); };
    const auto token = [&type](const char* word) {
      return Fallback{type("token"), VtValue(TfToken(word))};
    };
    const auto single = [&type](float value) { return Fallback{type("float"), VtValue(value)}; };
    const auto number = [&type](double value) { return Fallback{type("double"), VtValue(value)}; };
    const auto flag = [&type](bool value) { return Fallback{type("bool"), VtValue(value)}; };
    const auto box = [&type](float x, float y, float z) {
      return Fallback{type("float3[]"),
                      VtValue(pxr::VtArray<pxr::GfVec3f>{{-x, -y, -z}, {x, y, z}})};
    };
    const Fallback noInts{type("int[]"), VtValue(pxr::VtArray<int>())};
    const Fallback noFloats{type("float[]"), VtValue(pxr::VtArray<float>())};

    const std::map<std::string, Fallback> imageable{{"visibility", token("inherited")},
                                                    {"purpose", token("default")}};

    // Types that can be shown but have no transform.
    for (const char* name :
         {"Scope", "PhysicsJoint", "PhysicsDistanceJoint", "PhysicsFixedJoint",
          "PhysicsPrismaticJoint", "PhysicsRevoluteJoint", "PhysicsSphericalJoint"})
      add(name, false, imageable);

    // Types with a transform.
    for (const char* name : {"Xform", "Camera", "PointInstancer", "SkelRoot", "Skeleton",
                             "LightFilter", "PluginLightFilter", "OpenVDBAsset", "Field3DAsset",
                             "SpatialAudio", "GenerativeProcedural"})
      add(name, true, imageable);
    set("PointInstancer",
        {{"invisibleIds", Fallback{type("int64[]"), VtValue(pxr::VtArray<std::int64_t>())}}});

    // Lights.
    std::map<std::string, Fallback> light = imageable;
    light.emplace("inputs:color", Fallback{type("color3f"), VtValue(pxr::GfVec3f(1, 1, 1))});
    light.emplace("inputs:colorTemperature", single(6500.0f));
    light.emplace("inputs:enableColorTemperature", flag(false));
    light.emplace("inputs:exposure", single(0.0f));
    light.emplace("inputs:normalize", flag(false));
    for (const char* factor : {"inputs:diffuse", "inputs:intensity", "inputs:specular"})
      light.emplace(factor, single(1.0f));
    for (const char* name :
         {"DistantLight", "DomeLight", "DomeLight_1", "RectLight", "DiskLight", "SphereLight",
          "CylinderLight", "GeometryLight", "PortalLight", "PluginLight"})
      add(name, true, light);
    set("DistantLight", {{"inputs:angle", single(0.53f)}, {"inputs:intensity", single(50000.0f)}});
    for (const char* name : {"DomeLight", "DomeLight_1"})
      set(name,
          {{"guideRadius", single(100000.0f)}, {"inputs:texture:format", token("automatic")}});
    set("DomeLight_1", {{"poleAxis", token("scene")}});
    for (const char* name : {"RectLight", "PortalLight"})
      set(name, {{"inputs:width", single(1.0f)}, {"inputs:height", single(1.0f)}});
    for (const char* name : {"DiskLight", "SphereLight", "CylinderLight"})
      set(name, {{"inputs:radius", single(0.5f)}});
    set("SphereLight", {{"treatAsPoint", flag(false)}});
    set("CylinderLight", {{"inputs:length", single(1.0f)}, {"treatAsLine", flag(false)}});

    // Geometry.
    std::map<std::string, Fallback> gprim = imageable;
    gprim.emplace("doubleSided", flag(false));
    gprim.emplace("orientation", token("rightHanded"));
    for (const char* name :
         {"Mesh", "Cube", "Sphere", "Cylinder", "Cylinder_1", "Cone", "Capsule", "Capsule_1",
          "Plane", "Points", "BasisCurves", "NurbsCurves", "HermiteCurves", "NurbsPatch", "TetMesh",
          "Volume", "ParticleField", "ParticleField3DGaussianSplat"})
      add(name, true, gprim);
    set("Mesh", {{"subdivisionScheme", token("catmullClark")},
                 {"interpolateBoundary", token("edgeAndCorner")},
                 {"faceVaryingLinearInterpolation", token("cornersPlus1")},
                 {"triangleSubdivisionRule", token("catmullClark")},
                 {"holeIndices", noInts},
                 {"creaseIndices", noInts},
                 {"creaseLengths", noInts},
                 {"creaseSharpnesses", noFloats},
                 {"cornerIndices", noInts},
                 {"cornerSharpnesses", noFloats}});
    for (const char* name : {"Cube", "Sphere", "Cylinder", "Cylinder_1", "Cone"})
      set(name, {{"extent", box(1, 1, 1)}});
    for (const char* name : {"Capsule", "Capsule_1"}) set(name, {{"extent", box(0.5f, 0.5f, 1)}});
    set("Plane", {{"extent", Fallback{type("float3[]"), VtValue(pxr::VtArray<pxr::GfVec3f>{
                                                            {-1, -1, 0}, {1, 1, 0}})}}});
    set("Cube", {{"size", number(2.0)}});
    set("Sphere", {{"radius", number(1.0)}});
    for (const char* name : {"Cylinder", "Cone"})
      set(name, {{"height", number(2.0)}, {"radius", number(1.0)}, {"axis", token("Z")}});
    set("Cylinder_1", {{"height", number(2.0)},
                       {"radiusTop", number(1.0)},
                       {"radiusBottom", number(1.0)},
                       {"axis", token("Z")}});
    set("Capsule", {{"height", number(1.0)}, {"radius", number(0.5)}, {"axis", token("Z")}});
    set("Capsule_1", {{"height", number(1.0)},
                      {"radiusTop", number(0.5)},
                      {"radiusBottom", number(0.5)},
                      {"axis", token("Z")}});
    set("Plane", {{"width", number(2.0)}, {"length", number(2.0)}, {"axis", token("Z")}});
    set("Plane", {{"doubleSided", flag(true)}});
    set("BasisCurves",
        {{"type", token("cubic")}, {"basis", token("bezier")}, {"wrap", token("nonperiodic")}});
    set("NurbsCurves", {{"order", noInts}});
    set("HermiteCurves",
        {{"tangents", Fallback{type("vector3f[]"), VtValue(pxr::VtArray<pxr::GfVec3f>())}}});
    set("NurbsPatch", {{"uForm", token("open")}, {"vForm", token("open")}});

    const pxr::GfVec2f range(1.0f, 1000000.0f);
    set("Camera",
        {{"projection", token("perspective")},
         {"focalLength", single(50.0f)},
         {"horizontalAperture", single(20.955f)},
         {"verticalAperture", single(15.2908f)},
         {"horizontalApertureOffset", single(0.0f)},
         {"verticalApertureOffset", single(0.0f)},
         {"clippingRange", Fallback{type("float2"), VtValue(range)}},
         {"clippingPlanes", Fallback{type("float4[]"), VtValue(pxr::VtArray<pxr::GfVec4f>())}},
         {"fStop", single(0.0f)},
         {"focusDistance", single(0.0f)},
         {"exposure", single(0.0f)},
         {"exposure:time", single(1.0f)},
         {"exposure:iso", single(100.0f)},
         {"exposure:fStop", single(1.0f)},
         {"exposure:responsivity", single(1.0f)},
         {"stereoRole", token("mono")},
         {"shutter:open", number(0.0)},
         {"shutter:close", number(0.0)}});

    types_["GeomSubset"].fallbacks = {
        {"elementType", token("face")}, {"familyName", token("")}, {"indices", noInts}};
  }

  const PrimType& find(const std::string& name) const {
    const auto found = types_.find(name);
    return found == types_.end() ? other_ : found->second;
  }

 private:
  void add(const char* name, bool xformable, const std::map<std::string, Fallback>& fallbacks) {
    types_[name] = {xformable, true, fallbacks};
  }
  void set(const char* name,
           std::initializer_list<std::pair<const std::string, Fallback>> fallbacks) {
    for (const auto& [attribute, fallback] : fallbacks)
      types_[name].fallbacks[attribute] = fallback;
  }

  std::unordered_map<std::string, PrimType> types_;
  PrimType other_;
};

}  // namespace

const PrimType& primType(const std::string& typeName) {
  static const Table* const table = new Table;
  return table->find(typeName);
}

}  // namespace ovo::detail
