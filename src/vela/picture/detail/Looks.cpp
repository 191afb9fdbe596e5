#include "vela/picture/detail/Looks.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "ovo/PropertyLinks.h"
#include "ovo/Tokens.h"
#include "tarn/Constants.h"

namespace vela::picture::detail {

namespace {

using look::NetworkNode;
using look::NetworkValue;
using look::NodeOutput;
using look::SurfaceInput;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using tarn::Vec4f;

constexpr Vec4f all(float value) { return {value, value, value, value}; }

std::uint64_t keyOf(std::uint32_t shape, std::uint32_t material) {
  return (std::uint64_t{shape} << 32) | material;
}

Wrap wrapOf(NetworkNode::Wrap wrap) {
  switch (wrap) {
    case NetworkNode::Wrap::clamp: return Wrap::clamp;
    case NetworkNode::Wrap::repeat: return Wrap::repeat;
    case NetworkNode::Wrap::mirror: return Wrap::mirror;
    default: return Wrap::black;
  }
}

ColourSpace spaceOf(NetworkNode::ColourSpace space) {
  switch (space) {
    case NetworkNode::ColourSpace::raw: return ColourSpace::raw;
    case NetworkNode::ColourSpace::srgb: return ColourSpace::srgb;
    default: return ColourSpace::automatic;
  }
}

Vec4f pick(const Vec4f& value, NodeOutput output) {
  switch (output) {
    case NodeOutput::r: return all(value.x);
    case NodeOutput::g: return all(value.y);
    case NodeOutput::b: return all(value.z);
    case NodeOutput::a: return all(value.w);
    default: return value;
  }
}

float shareOf(float value, float other) {
  return std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : other;
}

}  // namespace

// The triangle that was hit, in the world.
struct Looks::Triangle {
  bool isKnown = false;
  Vec3d edges[2];  // from its first corner to the others
};

// Where a network is asked: at a point, or at a corner of the triangle, where textures are not
// looked up.
struct Looks::Query {
  const Material& material;
  const Primvars& primvars;
  const scene::Surface& surface;
  const scene::SurfaceHit& hit;
  const scene::SurfacePoint& point;
  const Vec3f* instanceColour;
  float footprint;
  int corner = -1;  // 0 to 2; else the point
};

Looks::Looks(const scene::MeshList& meshes, const scene::SceneMaterials& materials,
             std::vector<scene::Surface>& surfaces, double time, std::size_t textureBytes,
             const scene::Work& work)
    : meshes_(meshes), sources_(materials), surfaces_(surfaces) {
  // The networks, and which textures they want.
  for (const ovo::Prim& prim : materials.materials) {
    Material& material = materials_.emplace_back();
    material.network = look::readPreviewMaterial(prim, time);
    if (!material.network.isShown) continue;
    hasAny_ = true;
    for (const NetworkNode& node : material.network.nodes)
      material.textures.push_back(
          node.kind == NetworkNode::Kind::texture
              ? textures_.add(ovo::PropertyLinks(prim), node.file, spaceOf(node.colourSpace))
              : 0);
    const NetworkValue& opacity = material.network[SurfaceInput::opacity];
    material.mayBeSeenThrough = !opacity.isConstant() || opacity.constant.x < 1.0f;
    maySeeThrough_ = maySeeThrough_ || material.mayBeSeenThrough;
  }
  textures_.load(textureBytes, 0, work);

  // Which primvars they read of each shape.
  for (std::size_t i = 0; i < meshes.entries.size(); ++i) {
    const scene::EntryMaterials& own = materials.entries[i];
    const std::uint32_t shape = meshes.entries[i].shape;
    bind(shape, own.whole, surfaces);
    if (own.faces)
      for (const std::uint32_t material : *own.faces) bind(shape, material, surfaces);
  }
}

void Looks::bind(std::uint32_t shape, std::uint32_t material,
                 std::vector<scene::Surface>& surfaces) {
  if (material == scene::kNoMaterial || !materials_[material].network.isShown) return;
  const auto [place, isNew] = primvars_.try_emplace(keyOf(shape, material));
  if (!isNew) return;
  for (const NetworkNode& node : materials_[material].network.nodes)
    place->second.push_back(node.kind == NetworkNode::Kind::primvar
                                ? surfaces[shape].addPrimvar(node.primvar, node.components)
                                : std::nullopt);
}

std::optional<std::uint32_t> Looks::at(const scene::SurfaceHit& hit) const {
  const std::uint32_t material =
      sources_.entries[hit.entry].of(meshes_.shapeOf(hit.entry).sceneFace(hit.face));
  if (material == scene::kNoMaterial || !materials_[material].network.isShown) return std::nullopt;
  return material;
}

Looks::Triangle Looks::triangleOf(const scene::SurfaceHit& hit) const {
  Triangle triangle;
  triangle.isKnown = hit.hasCorners;
  if (!hit.hasCorners) return triangle;
  const auto points = meshes_.shapeOf(hit.entry).points.view();
  const tarn::Mat4d& worldFromObject = meshes_.entries[hit.entry].worldFromObject;
  const Vec3d first(points[hit.points[0]]);
  for (int k = 0; k < 2; ++k)
    triangle.edges[k] = worldFromObject.transformVector(Vec3d(points[hit.points[k + 1]]) - first);
  return triangle;
}

void Looks::run(const Query& query, std::vector<NodeValue>& out) const {
  const std::vector<NetworkNode>& nodes = query.material.network.nodes;
  out.resize(nodes.size());
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const NetworkNode& node = nodes[i];
    NodeValue& result = out[i];
    result = {};
    if (node.kind == NetworkNode::Kind::primvar) {
      const std::optional<std::size_t>& primvar = query.primvars[i];
      if (!primvar) {
        const bool isOfInstance =
            query.instanceColour && node.primvar == ovo::tokens().displayColor;
        result.value = isOfInstance ? Vec4f(query.instanceColour->x, query.instanceColour->y,
                                            query.instanceColour->z, 0.0f)
                                    : node.fallback;
        continue;
      }
      const auto corner = static_cast<std::size_t>(query.corner);
      const auto valueAt = [&](std::size_t k) {
        return query.surface.primvarAt(*primvar, query.hit.face, query.hit.points[k],
                                       query.hit.faceVertices[k]);
      };
      result.value =
          query.corner < 0 ? query.surface.primvar(*primvar, query.point) : valueAt(corner);
      if (node.components == 1) result.value = all(result.value.x);
      // A width of the world in coordinates: by the areas of the triangle in both.
      if (query.corner < 0 && query.footprint > 0.0f && query.hit.hasCorners &&
          node.components == 2) {
        const Triangle triangle = triangleOf(query.hit);
        const Vec4f a = valueAt(0), b = valueAt(1) - a, c = valueAt(2) - a;
        const double inside = std::abs(static_cast<double>(b.x) * static_cast<double>(c.y) -
                                       static_cast<double>(c.x) * static_cast<double>(b.y));
        const double area = cross(triangle.edges[0], triangle.edges[1]).length();
        const double width = static_cast<double>(query.footprint) * std::sqrt(inside / area);
        result.width = std::isfinite(width) ? static_cast<float>(width) : 0.0f;
      }
    } else if (node.kind == NetworkNode::Kind::transform) {
      const NetworkValue& in = node.coordinates;
      const Vec4f from = in.isConstant()
                             ? in.constant
                             : pick(out[static_cast<std::size_t>(in.node)].value, in.output);
      const float angle = node.rotation / tarn::kDegreesPerRadian<float>;
      const float cosine = std::cos(angle), sine = std::sin(angle);
      const Vec2f scaled(from.x * node.scaling.x, from.y * node.scaling.y);
      result.value = {scaled.x * cosine - scaled.y * sine + node.translation.x,
                      scaled.x * sine + scaled.y * cosine + node.translation.y, 0.0f, 0.0f};
      if (!in.isConstant())
        result.width = out[static_cast<std::size_t>(in.node)].width *
                       std::max(std::abs(node.scaling.x), std::abs(node.scaling.y));
    } else if (query.corner < 0) {
      result = runTexture(query, i, out);
    }
  }
}

Looks::NodeValue Looks::runTexture(const Query& query, std::size_t index,
                                   const std::vector<NodeValue>& values) const {
  const NetworkNode& node = query.material.network.nodes[index];
  const NetworkValue& st = node.coordinates;
  NodeValue from{st.constant, 0.0f};
  if (!st.isConstant()) {
    from = values[static_cast<std::size_t>(st.node)];
    from.value = pick(from.value, st.output);
  }
  const std::uint32_t texture = query.material.textures[index];
  const Vec4f v = textures_.has(texture)
                      ? textures_.lookup(texture, {from.value.x, from.value.y}, from.width,
                                         wrapOf(node.wrapS), wrapOf(node.wrapT))
                      : node.fallback;
  return {{v.x * node.scale.x + node.bias.x, v.y * node.scale.y + node.bias.y,
           v.z * node.scale.z + node.bias.z, v.w * node.scale.w + node.bias.w},
          0.0f};
}

// Along the coordinates of the texture that the normal comes from.
Vec3f Looks::bend(const Query& query, const Vec4f& mapped, const Vec3f& normal) const {
  const look::PreviewMaterial& network = query.material.network;
  const NetworkValue& input = network[SurfaceInput::normal];
  const NetworkNode& node = network.nodes[static_cast<std::size_t>(input.node)];
  const Triangle triangle = triangleOf(query.hit);
  if (!triangle.isKnown || node.kind != NetworkNode::Kind::texture || node.coordinates.isConstant())
    return normal;

  Vec2f st[3];
  std::vector<NodeValue> values;
  for (int k = 0; k < 3; ++k) {
    Query corner = query;
    corner.corner = k;
    run(corner, values);
    const Vec4f at = pick(values[static_cast<std::size_t>(node.coordinates.node)].value,
                          node.coordinates.output);
    st[k] = {at.x, at.y};
  }
  const Vec2f a = st[1] - st[0], b = st[2] - st[0];
  const double determinant = static_cast<double>(a.x) * static_cast<double>(b.y) -
                             static_cast<double>(b.x) * static_cast<double>(a.y);
  const Vec3d n(normal);
  const Vec3d alongS = (triangle.edges[0] * static_cast<double>(b.y) -
                        triangle.edges[1] * static_cast<double>(a.y)) *
                       (1.0 / determinant);
  const Vec3d alongT = (triangle.edges[1] * static_cast<double>(a.x) -
                        triangle.edges[0] * static_cast<double>(b.x)) *
                       (1.0 / determinant);
  const Vec3d tangent = (alongS - n * dot(n, alongS)).normalized();
  Vec3d bitangent = cross(n, tangent);
  if (dot(bitangent, alongT) < 0.0) bitangent = -bitangent;
  const Vec3d direction = Vec3d(Vec3f(mapped.x, mapped.y, mapped.z)).normalized();
  const Vec3d bent =
      (tangent * direction.x + bitangent * direction.y + n * direction.z).normalized();
  // Also false for a NaN, as where the coordinates have no area.
  return bent.length() > 0.5 ? Vec3f(bent) : normal;
}

LookPoint Looks::evaluate(std::uint32_t index, const scene::SurfaceHit& hit,
                          const scene::SurfacePoint& point, const Vec3f& normal,
                          float footprint) const {
  const Material& material = materials_[index];
  const look::PreviewMaterial& network = material.network;
  const scene::MeshEntry& entry = meshes_.entries[hit.entry];
  const scene::Instance* const instance =
      entry.instance == scene::kNoInstance ? nullptr : &meshes_.instances[entry.instance];
  const Query query{material,
                    primvars_.at(keyOf(entry.shape, index)),
                    surfaces_[entry.shape],
                    hit,
                    point,
                    instance && instance->hasColour ? &instance->colour : nullptr,
                    footprint};
  static thread_local std::vector<NodeValue> values;
  run(query, values);
  const auto value = [&](SurfaceInput input) {
    const NetworkValue& from = network[input];
    return from.isConstant() ? from.constant
                             : pick(values[static_cast<std::size_t>(from.node)].value, from.output);
  };
  const auto colour = [&](SurfaceInput input) {
    const Vec4f v = value(input);
    return Vec3f(v.x, v.y, v.z);
  };

  LookPoint out;
  const float opacity = shareOf(value(SurfaceInput::opacity).x, 1.0f);
  const float threshold = value(SurfaceInput::opacityThreshold).x;
  const bool isMasked = threshold > 0.0f;
  out.isCutOut = isMasked && opacity < threshold;
  out.opacity = isMasked ? 1.0f : opacity;
  out.fadesWhole = network.fadesWhole;
  out.surface.diffuseColor = colour(SurfaceInput::diffuseColor);
  out.surface.emissiveColor = colour(SurfaceInput::emissiveColor);
  out.surface.specularColor = colour(SurfaceInput::specularColor);
  out.surface.isSpecularWorkflow = network.isSpecularWorkflow;
  out.surface.metallic = value(SurfaceInput::metallic).x;
  out.surface.roughness = value(SurfaceInput::roughness).x;
  out.surface.clearcoat = value(SurfaceInput::clearcoat).x;
  out.surface.clearcoatRoughness = value(SurfaceInput::clearcoatRoughness).x;
  out.surface.ior = value(SurfaceInput::ior).x;
  out.surface.sanitise();
  out.normal = normal;
  if (!network[SurfaceInput::normal].isConstant()) {
    const Vec4f mapped = value(SurfaceInput::normal);
    out.normal = bend(query, mapped, normal);
  }
  return out;
}

float Looks::through(const scene::SurfaceHit& hit, const scene::SurfacePoint& point) const {
  const std::optional<std::uint32_t> material = at(hit);
  if (!material || !materials_[*material].mayBeSeenThrough) return 0.0f;
  const LookPoint seen = evaluate(*material, hit, point, hit.normal, 0.0f);
  return seen.isCutOut ? 1.0f : 1.0f - seen.opacity;
}

}  // namespace vela::picture::detail
