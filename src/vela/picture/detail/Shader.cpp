#include "vela/picture/detail/Shader.h"

#include <algorithm>
#include <cmath>

#include "ovo/Path.h"
#include "tarn/Constants.h"
#include "tarn/Mat4.h"
#include "vela/look/PreviewResponse.h"
#include "vela/picture/detail/Disk.h"

namespace vela::picture::detail {

namespace {

using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

constexpr float kPi = tarn::kPi<float>;

float largestOf(const Vec3f& v) { return std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)}); }

Vec3f mix(const Vec3f& a, const Vec3f& b, float t) { return a * (1.0f - t) + b * t; }

Vec3d axis(const tarn::Mat4d& m, std::size_t c) { return {m[4 * c], m[4 * c + 1], m[4 * c + 2]}; }

// The most that a length grows along an axis.
double scaleOf(const tarn::Mat4d& worldFromObject) {
  double scale = 0.0;
  for (std::size_t c = 0; c < 3; ++c) scale = std::max(scale, axis(worldFromObject, c).length());
  return scale;
}

}  // namespace

Shader::Shader(const scene::MeshList& meshes, const scene::SceneMotion* motion,
               const scene::RayCaster& caster, double time, const scene::View& view, double radius,
               int ambientGrid, bool smooth)
    : meshes_(meshes),
      scenery_(std::make_shared<Scenery>()),
      surfaces_(scenery_->surfaces),
      placed_(scenery_->placed),
      up_(view.up),
      reach_(static_cast<float>(0.5 * radius)),
      ambient_(ambientGrid * ambientGrid) {
  surfaces_.reserve(meshes.shapes.size());
  for (std::size_t i = 0; i < meshes.shapes.size(); ++i)
    surfaces_.emplace_back(meshes.shapes[i], motion ? motion->timeOfShape(i, time) : time, smooth);
  placed_.reserve(meshes.entries.size());
  for (std::size_t i = 0; i < meshes.entries.size(); ++i) {
    const scene::MeshEntry& entry = meshes.entries[i];
    const scene::Surface& surface = surfaces_[entry.shape];
    const scene::Instance* instance =
        entry.instance == scene::kNoInstance ? nullptr : &meshes.instances[entry.instance];
    placed_.push_back(
        {caster.objectSpace(i), &surface,
         instance && instance->hasColour && !surface.hasOwnColour() ? &instance->colour : nullptr,
         static_cast<float>(scaleOf(entry.worldFromObject))});
  }
  placeOwnLights(view);
}

Shader::Shader(const Shader& other, const scene::View& view, int ambientGrid, bool scatters)
    : meshes_(other.meshes_),
      scenery_(other.scenery_),
      surfaces_(scenery_->surfaces),
      placed_(scenery_->placed),
      looks_(other.looks_),
      lights_(other.lights_),
      up_(view.up),
      reach_(other.reach_),
      ambient_(ambientGrid * ambientGrid),
      hasOwnLights_(other.hasOwnLights_),
      bounces_(scatters ? other.bounces_ : 0) {
  placeOwnLights(view);
}

void Shader::placeOwnLights(const scene::View& view) {
  // The lights stand by the camera, level with the scene's horizon, so that any scene is lit from
  // any side. Seen from straight above or below the picture's lower edge is the front.
  Vec3d back = axis(view.worldFromCamera, 2);
  back = back - view.up * dot(back, view.up);
  if (back.length() < 1e-3) {
    const Vec3d top = axis(view.worldFromCamera, 1);
    back = -(top - view.up * dot(top, view.up));
  }
  back.normalize();
  const Vec3d right = cross(view.up, back);
  key_ = makeLight(right * -0.62 + back * 0.62 + view.up * 0.86, {0.90f, 0.81f, 0.68f}, 0.07f);
  fill_ = makeLight(right * 0.80 + back * 0.85 + view.up * 0.35, {0.13f, 0.16f, 0.20f}, 0.30f);
}

Shader::Directional Shader::makeLight(const Vec3d& towards, const Vec3f& colour,
                                      float spread) const {
  Directional light;
  light.frame = tarn::frameAbout(Vec3f(towards.normalized()));
  light.colour = colour;
  light.spread = spread;
  return light;
}

void Shader::tint(Selection::GeoSelection& selection, const std::shared_ptr<ovo::Stage>& stage) {
  selection.updatePrimSelectionStatus(stage);
  for (std::size_t i = 0; i < meshes_.shapes.size(); ++i) {
    const ovo::Path& path = meshes_.shapes[i].prim.getPath();
    const bool whole = selection.getPrimSelectionStatus(path) != Selection::notSelected;
    const auto found = selection.find(path);
    if (found == selection.end())
      surfaces_[i].setSelection(whole, {}, {});
    else
      surfaces_[i].setSelection(whole, found->second.getPartSelection(Selection::faces).selections,
                                found->second.getPartSelection(Selection::vertices).selections);
  }
}

void Shader::useMaterials(const scene::SceneMaterials& materials, double time,
                          std::size_t textureBytes, std::vector<scene::Problem>& problems,
                          const scene::Work& work) {
  auto looks = std::make_unique<Looks>(meshes_, materials, surfaces_, time, textureBytes, work);
  problems.insert(problems.end(), looks->problems().begin(), looks->problems().end());
  scenery_->looks = std::move(looks);
  looks_ = scenery_->looks.get();
}

scene::WorldRay Shader::raysBehind(const LitPoint& point, const scene::WorldRay& ray,
                                   const scene::SurfaceHit& hit) {
  scene::WorldRay behind = ray;
  behind.base = point.base;
  behind.offset = Vec3d(point.far);
  behind.minDistance = 0.0f;
  behind.maxDistance = std::max(ray.maxDistance - static_cast<float>(hit.distance), 0.0f);
  return behind;
}

Shader::Seen Shader::see(const scene::WorldRay& ray, const scene::SurfaceHit& hit,
                         const PixelSamples& samples, std::size_t sample, std::size_t target,
                         float weight, float footprint, Batch& batch) const {
  Seen seen;
  const std::optional<std::uint32_t> material = looks_ ? looks_->at(hit) : std::nullopt;
  const Placed& placed = placed_[hit.entry];
  const scene::SurfacePoint onSurface = placed.space.surfacePoint(hit);
  if (!material) {
    seen.albedo = placed.colour ? *placed.colour : placed.surface->colour(onSurface);
    LitPoint point = litPoint(placed, seen.albedo, onSurface, ray, hit);
    point.target = target;
    if (hasOwnLights_) {
      const std::size_t first = batch.lights.size();
      addOwnLights(point, samples, sample, batch);
      for (std::size_t i = first; i < batch.lights.size(); ++i) batch.lights[i].colour *= weight;
    }
    if (lights_)
      addAllFromScene({point, nullptr, hit.entry, Vec3f(weight), footprint}, samples, sample,
                      batch);
    return seen;
  }

  LookPoint look =
      looks_->evaluate(*material, hit, onSurface,
                       shadingNormal(*placed.surface, placed.space, onSurface, hit), footprint);
  LitPoint point = litPoint(placed, look.surface.diffuseColor, onSurface, ray, hit, &look.normal);
  point.target = target;
  seen.behind = raysBehind(point, ray, hit);
  if (look.isCutOut) {
    seen.coverage = 0.0f;
    seen.isSurface = false;
    return seen;
  }
  seen.albedo = look.surface.diffuseColor;
  seen.coverage = look.opacity;
  seen.emission = look.surface.emissiveColor * (look.fadesWhole ? look.opacity : 1.0f);
  // With the highlight of what is selected.
  look.surface.diffuseColor = point.albedo;
  if (hasOwnLights_) {
    addDirectional(point, look, key_, samples.key(sample), weight, batch);
    addDirectional(point, look, fill_, samples.fill(sample), weight, batch);
    addDaylight(point, look, samples, sample, weight, batch);
  }
  if (lights_)
    addAllFromScene({point, &look, hit.entry, Vec3f(weight), footprint}, samples, sample, batch);
  return seen;
}

float Shader::through(const scene::WorldRay& ray, const scene::SurfaceHit& hit,
                      scene::WorldRay& behind) const {
  if (!looks_) return 0.0f;
  const float share = looks_->through(hit, placed_[hit.entry].space.surfacePoint(hit));
  if (share > 0.0f) behind = this->behind(ray, hit);
  return share;
}

scene::WorldRay Shader::behind(const scene::WorldRay& ray, const scene::SurfaceHit& hit) const {
  const Placed& placed = placed_[hit.entry];
  const Vec3f normal = hit.normal;
  return raysBehind(litPoint(placed, {}, placed.space.surfacePoint(hit), ray, hit, &normal), ray,
                    hit);
}

// A light's colour is what a white matt surface sends on of it: pi times its share.
void Shader::addDirectional(const LitPoint& point, const LookPoint& look, const Directional& light,
                            const Vec2f& onLight, float weight, Batch& batch) const {
  constexpr float kFar = 3.0e38f;
  const Vec2f disk = toDisk(onLight);
  const Vec3f direction =
      (light.frame.z + (light.frame.x * disk.x + light.frame.y * disk.y) * light.spread)
          .normalized();
  if (dot(point.shading, direction) <= 0.0f ||
      (!point.isSmooth && dot(point.geometric, direction) <= 0.0f))
    return;
  // The light itself is no sharper than this: smoother surfaces would show it as sparks.
  constexpr float kSmoothest = 0.05f;
  look::PreviewSurface surface = look.surface;
  surface.roughness = std::max(surface.roughness, kSmoothest);
  surface.clearcoatRoughness = std::max(surface.clearcoatRoughness, kSmoothest);
  const look::PreviewResponse response =
      look::respond(surface, point.shading, direction, point.toViewer);
  const Vec3f sum =
      response.diffuse * look.opacity + response.specular * (look.fadesWhole ? look.opacity : 1.0f);
  batch.rays.push_back({point.base, Vec3d(point.start), direction, 0.0f, kFar, point.moment});
  batch.lights.push_back({point.target, light.colour * sum * (kPi * weight)});
}

// Each look-out for what the surface scatters, as on plain colours, has another one beside it for
// what it reflects.
void Shader::addDaylight(const LitPoint& point, const LookPoint& look, const PixelSamples& samples,
                         std::size_t sample, float weight, Batch& batch) const {
  const tarn::Frame3f frame = tarn::frameAbout(point.shading);
  const float share = weight / static_cast<float>(ambient_);
  const float ofReflections = share * (look.fadesWhole ? look.opacity : 1.0f);
  const auto add = [&](const Vec3f& direction, const Vec3f& colour, std::size_t k) {
    if (!(largestOf(colour) > 0.0f)) return;
    batch.rays.push_back({point.base, Vec3d(point.start), direction, 0.0f,
                          reach_ * samples.reach(sample, k), point.moment});
    batch.lights.push_back({point.target, daylightFrom(direction) * colour});
  };
  for (int i = 0; i < ambient_; ++i) {
    const auto k = static_cast<std::size_t>(i);
    const Vec2f draw = samples.ambient(sample, k);
    const Vec2f disk = toDisk(draw);
    const float height = std::sqrt(std::max(1.0f - disk.x * disk.x - disk.y * disk.y, 0.0f));
    Vec3f direction = (frame.x * disk.x + frame.y * disk.y + frame.z * height).normalized();
    const float side = dot(direction, point.geometric);
    if (side < 0.0f) direction = (direction - point.geometric * (2.0f * side)).normalized();
    const float facing = dot(direction, point.shading);
    if (facing > 1e-4f)
      add(direction,
          look::respond(look.surface, point.shading, direction, point.toViewer).diffuse *
              (kPi / facing * look.opacity * share),
          k);
    const look::ReflectedDirection reflected =
        look::sampleReflection(look.surface, point.shading, point.toViewer, draw.x + 0.5f,
                               draw.y + 0.5f, (sample + k) % 2 == 1);
    if (dot(reflected.toLight, point.geometric) > 0.0f)
      add(reflected.toLight, reflected.weight * ofReflections, k);
  }
}

Vec3f Shader::normal(const scene::SurfaceHit& hit) const {
  const Placed& placed = placed_[hit.entry];
  return shadingNormal(*placed.surface, placed.space, placed.space.surfacePoint(hit), hit);
}

Vec3f Shader::light(const scene::WorldRay& ray, const scene::SurfaceHit& hit,
                    const PixelSamples& samples, std::size_t sample, std::size_t target,
                    Batch& batch) const {
  const Placed& placed = placed_[hit.entry];
  const scene::SurfacePoint onSurface = placed.space.surfacePoint(hit);
  const Vec3f own = placed.colour ? *placed.colour : placed.surface->colour(onSurface);
  LitPoint point = litPoint(placed, own, onSurface, ray, hit);
  point.target = target;
  addOwnLights(point, samples, sample, batch);
  return own;
}

void Shader::addOwnLights(const LitPoint& point, const PixelSamples& samples, std::size_t sample,
                          Batch& batch) const {
  addDirectional(point, key_, samples.key(sample), batch);
  addDirectional(point, fill_, samples.fill(sample), batch);
  addDaylight(point, samples, sample, batch);
}

Shader::LitPoint Shader::litPoint(const Placed& placed, const Vec3f& own,
                                  const scene::SurfacePoint& onSurface, const scene::WorldRay& ray,
                                  const scene::SurfaceHit& hit, const Vec3f* ownNormal) const {
  LitPoint point;
  // What is selected glows through in the highlight's colour.
  point.albedo = mix(own, Vec3f(1.0f, 0.42f, 0.02f), 0.7f * placed.surface->selection(onSurface));
  point.toViewer = -ray.direction;

  // Normals: the geometric one by the prim's orientation, the shading one where it has its own;
  // both towards the viewer.
  const Vec3f outward = placed.surface->isLeftHanded() ? -hit.normal : hit.normal;
  const bool seenFromBehind = dot(outward, point.toViewer) < 0.0f;
  point.geometric = seenFromBehind ? -outward : outward;
  const Vec3f smooth =
      ownNormal ? *ownNormal : shadingNormal(*placed.surface, placed.space, onSurface, hit);
  point.shading = seenFromBehind ? -smooth : smooth;

  // Rays start off the surface, on the viewer's side, by what rounding may have put the hit beneath
  // it.
  const float lift =
      std::max(largestOf(hit.offset), static_cast<float>(hit.distance) * 0.5f) * kHitRounding +
      largestOf(onSurface.objectPoint()) * placed.scale * kPointRounding;
  point.moment = ray.moment;
  point.base = hit.base;
  point.start = hit.offset + point.geometric * lift;
  point.far = hit.offset - point.geometric * lift;

  // Of a smooth surface they start where that would be, and its normal alone says what the light
  // does not reach.
  Vec3f toSmooth;
  point.isSmooth = point.shading != point.geometric &&
                   placed.surface->findSmooth(onSurface, seenFromBehind, toSmooth);
  if (point.isSmooth)
    point.start +=
        Vec3f(meshes_.entries[hit.entry].worldFromObject.transformVector(Vec3d(toSmooth)));
  return point;
}

void Shader::addDirectional(const LitPoint& point, const Directional& light, const Vec2f& onLight,
                            Batch& batch) const {
  constexpr float kFar = 3.0e38f;
  const Vec2f disk = toDisk(onLight);
  const Vec3f direction =
      (light.frame.z + (light.frame.x * disk.x + light.frame.y * disk.y) * light.spread)
          .normalized();
  const float facing = dot(point.shading, direction);
  if (facing <= 0.0f || (!point.isSmooth && dot(point.geometric, direction) <= 0.0f)) return;

  // A matt surface with a thin glaze.
  const Vec3f half = (direction + point.toViewer).normalized();
  const float gloss = std::pow(std::max(dot(point.shading, half), 0.0f), 48.0f);
  const float edge = 1.0f - std::max(dot(point.toViewer, half), 0.0f);
  const float glaze = (0.04f + 0.5f * edge * edge * edge * edge * edge) * gloss * 4.0f;
  batch.rays.push_back({point.base, Vec3d(point.start), direction, 0.0f, kFar, point.moment});
  batch.lights.push_back(
      {point.target, light.colour * (point.albedo * facing + Vec3f(glaze * facing))});
}

Vec3f Shader::daylightFrom(const Vec3f& direction) const {
  const float sky = 0.5f + 0.5f * dot(direction, up_);
  return mix(Vec3f(0.20f, 0.17f, 0.15f), Vec3f(0.46f, 0.50f, 0.56f), sky);
}

// Directions about the normal, more of them where they count more. Each looks as far as its draw
// says, so that darkness fades with distance.
void Shader::addDaylight(const LitPoint& point, const PixelSamples& samples, std::size_t sample,
                         Batch& batch) const {
  const tarn::Frame3f frame = tarn::frameAbout(point.shading);
  for (int i = 0; i < ambient_; ++i) {
    const auto k = static_cast<std::size_t>(i);
    const Vec2f disk = toDisk(samples.ambient(sample, k));
    const float height = std::sqrt(std::max(1.0f - disk.x * disk.x - disk.y * disk.y, 0.0f));
    Vec3f direction = (frame.x * disk.x + frame.y * disk.y + frame.z * height).normalized();
    const float side = dot(direction, point.geometric);
    if (side < 0.0f) direction = (direction - point.geometric * (2.0f * side)).normalized();
    const Vec3f daylight = daylightFrom(direction);
    batch.rays.push_back({point.base, Vec3d(point.start), direction, 0.0f,
                          reach_ * samples.reach(sample, k), point.moment});
    batch.lights.push_back(
        {point.target, daylight * point.albedo * (1.0f / static_cast<float>(ambient_))});
  }
}

}  // namespace vela::picture::detail
