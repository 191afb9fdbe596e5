// The part of Shader that is about the lights of the scene.
#include <algorithm>
#include <cmath>

#include "tarn/Constants.h"
#include "tarn/Frame.h"
#include "vela/look/PreviewResponse.h"
#include "vela/picture/detail/Shader.h"

namespace vela::picture::detail {

using look::LightSample;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

namespace {

constexpr float kPi = tarn::kPi<float>;
constexpr float kFar = 3.0e38f;
// Light of no size is no sharper than this on what it reflects from, or it would show as sparks.
constexpr float kSmoothest = 0.05f;
// A ray to a light ends a little before it: a lamp is often modelled where its light stands.
constexpr double kEndsBefore = 1e-4;
// A way goes through so many surfaces that hide only a part.
constexpr int kMostSurfaces = 64;
// How wide, as a share of the distance, what a scattered ray stands for grows: about the root of
// the solid angle that each of some hundred rays of a pixel has of a half space.
constexpr float kScatteredGrowth = 0.25f;

bool isLit(const Vec3f& colour) {
  return std::isfinite(colour.x) && std::isfinite(colour.y) && std::isfinite(colour.z) &&
         (colour.x > 0.0f || colour.y > 0.0f || colour.z > 0.0f);
}

Vec3f cosineDirection(const Vec3f& normal, const Vec2f& draw) {
  const tarn::Frame3f frame = tarn::frameAbout(normal);
  const float r = std::sqrt(draw.x), angle = 2.0f * kPi * draw.y;
  return (frame.x * (r * std::cos(angle)) + frame.y * (r * std::sin(angle)) +
          frame.z * std::sqrt(1.0f - draw.x))
      .normalized();
}

}  // namespace

struct Shader::Draws {
  const PixelSamples* even = nullptr;  // the first surfaces of samples have points of even sets
  std::size_t sample = 0;
  PixelSamples* stream = nullptr;  // all others the next ones of the stream

  [[nodiscard]] Vec2f light(std::size_t slot) const {
    return even ? even->light(sample, slot) : stream->nextPoint();
  }
  [[nodiscard]] Vec2f scattered() const {
    return even ? even->scattered(sample) : stream->nextPoint();
  }
  [[nodiscard]] float which() const { return even ? even->which(sample) : stream->next(); }
};

void Shader::useLights(const scene::SceneLights& lights, bool withOwn, int bounces,
                       std::size_t textureBytes, std::vector<scene::Problem>& problems,
                       const scene::Work& work) {
  scenery_->lights = std::make_unique<const Lights>(lights, textureBytes, work);
  lights_ = scenery_->lights.get();
  hasOwnLights_ = withOwn;
  bounces_ = bounces;
  problems.insert(problems.end(), lights_->problems().begin(), lights_->problems().end());
}

// What the surface scatters and reflects of a unit of light, opacity and cosine included.
Shader::Answer Shader::answerOf(const Receiver& to, const Vec3f& toLight, bool isThin) {
  Answer answer;
  if (!to.look) {
    answer.diffuse = to.point.albedo * (std::max(dot(to.point.shading, toLight), 0.0f) / kPi);
    return answer;
  }
  look::PreviewSurface surface = to.look->surface;
  if (isThin) {
    surface.roughness = std::max(surface.roughness, kSmoothest);
    surface.clearcoatRoughness = std::max(surface.clearcoatRoughness, kSmoothest);
  }
  answer.diffuse = look::respond(surface, to.point.shading, toLight, to.point.toViewer).diffuse *
                   to.look->opacity;
  const look::Reflection reflection =
      look::reflectionTowards(surface, to.point.shading, toLight, to.point.toViewer);
  answer.specular = reflection.specular * (to.look->fadesWhole ? to.look->opacity : 1.0f);
  answer.density = reflection.density;
  return answer;
}

void Shader::addLight(const Receiver& to, std::uint32_t source, const LightSample& sample,
                      const Vec3f& colour, Batch& batch) const {
  // A NaN would stay in the pixel whatever else arrives.
  if (!isLit(colour)) return;
  const look::LightShadow& shadow = (*lights_)[source].source.shadow;
  const Light light{to.point.target, colour, source};
  if (!shadow.isEnabled) {
    batch.unshadowed.push_back(light);
    return;
  }
  double range = std::min(sample.distance * (1.0 - kEndsBefore), static_cast<double>(kFar));
  if (shadow.distance >= 0.0f) range = std::min(range, static_cast<double>(shadow.distance));
  batch.rays.push_back({to.point.base, Vec3d(to.point.start), sample.toLight, 0.0f,
                        static_cast<float>(range), to.point.moment});
  batch.lights.push_back(light);
}

void Shader::addAllFromScene(const Receiver& to, const PixelSamples& samples, std::size_t sample,
                             Batch& batch) const {
  const Draws draws{&samples, sample, nullptr};
  addSceneLights(to, draws, batch);
  if (to.look) addReflection(to, draws, batch);
  if (bounces_ > 0) addScattered(to, draws, 1, batch);
}

// A point of each light. Of many lights some are asked, evenly along their list, and count for the
// others.
void Shader::addSceneLights(const Receiver& to, const Draws& draws, Batch& batch) const {
  const LitPoint& point = to.point;
  const Vec3d position = point.base + Vec3d(point.start);
  const std::size_t asked = lights_->asked(), count = lights_->count();
  const double chance = static_cast<double>(asked) / static_cast<double>(count);
  const double first = asked < count ? static_cast<double>(draws.which()) : 0.0;
  for (std::size_t slot = 0; slot < asked; ++slot) {
    const auto source = static_cast<std::uint32_t>(
        std::min((static_cast<double>(slot) + first) / chance, static_cast<double>(count) - 1.0));
    // Drawn for lights that do not fall here as well: links change no other light's noise.
    const Vec2f draw = draws.light(slot);
    const scene::SceneLight& light = (*lights_)[source];
    if (!light.fallsOn(to.entry)) continue;
    const LightSample sample = lights_->sample(source, position, point.shading, draw);
    if (!isLit(sample.radiance) || !(dot(point.shading, sample.toLight) > 0.0f) ||
        (!point.isSmooth && !(dot(point.geometric, sample.toLight) > 0.0f)))
      continue;
    const bool isThin = light.source.isThin;
    Answer answer = answerOf(to, sample.toLight, isThin);
    // Reflections are looked for by both kinds of rays: each counts as far as it is the likelier
    // one to find the light. Veach and Guibas, SIGGRAPH 1995, the balance heuristic.
    const double density = isThin ? 1.0 : sample.density;
    if (to.look && !isThin && draws.even) {
      const double byLight = chance * density;
      answer.specular *=
          static_cast<float>(byLight / (byLight + static_cast<double>(answer.density)));
    }
    if (!draws.even) answer.specular = {};
    const Vec3f sum =
        answer.diffuse * light.source.diffuse + answer.specular * light.source.specular;
    addLight(to, source, sample,
             to.weight * sum * sample.radiance * static_cast<float>(1.0 / (density * chance)),
             batch);
  }
}

// The lights that are seen in the surface, and what else is.
void Shader::addReflection(const Receiver& to, const Draws& draws, Batch& batch) const {
  const LitPoint& point = to.point;
  const look::PreviewSurface& surface = to.look->surface;
  const Vec2f draw = draws.even->reflected(draws.sample);
  const look::Reflection reflected =
      look::chooseReflection(surface, point.shading, point.toViewer, draw.x, draw.y,
                             draws.even->which(draws.sample) < 0.5f);
  if (!(reflected.density > 0.0f) || !(dot(reflected.toLight, point.geometric) > 0.0f)) return;
  const float opacity = to.look->fadesWhole ? to.look->opacity : 1.0f;
  const Vec3f weight = to.weight * reflected.specular * (opacity / reflected.density);
  if (!isLit(weight)) return;

  const Vec3d position = point.base + Vec3d(point.start);
  const double chance =
      static_cast<double>(lights_->asked()) / static_cast<double>(lights_->count());
  const auto byReflection = static_cast<double>(reflected.density);
  for (std::uint32_t source = 0; source < lights_->count(); ++source) {
    const scene::SceneLight& light = (*lights_)[source];
    if (light.source.isThin || !light.fallsOn(to.entry)) continue;
    const LightSample sample = lights_->meet(source, position, point.shading, reflected.toLight);
    if (!isLit(sample.radiance)) continue;
    const double share = byReflection / (byReflection + chance * sample.density);
    addLight(to, source, sample,
             weight * sample.radiance * (light.source.specular * static_cast<float>(share)), batch);
  }
  if (bounces_ > 0)
    batch.bounces.push_back(
        {point.target,
         {point.base, Vec3d(point.start), reflected.toLight, 0.0f, kFar, point.moment},
         weight,
         to.footprint});
}

void Shader::addScattered(const Receiver& to, const Draws& draws, int depth, Batch& batch) const {
  const LitPoint& point = to.point;
  const Vec3f direction = cosineDirection(point.shading, draws.scattered());
  const float facing = dot(point.shading, direction);
  if (!(facing > 0.0f) || !(dot(point.geometric, direction) > 0.0f)) return;
  const Vec3f weight =
      to.look ? answerOf(to, direction, false).diffuse * (kPi / facing) : point.albedo;
  if (!isLit(weight * to.weight)) return;
  batch.bounces.push_back({point.target,
                           {point.base, Vec3d(point.start), direction, 0.0f, kFar, point.moment},
                           weight * to.weight,
                           to.footprint,
                           depth});
}

Vec3f Shader::seeBounce(const Bounce& bounce, const scene::SurfaceHit& hit, PixelSamples& samples,
                        Batch& batch) const {
  const Placed& placed = placed_[hit.entry];
  const scene::SurfacePoint onSurface = placed.space.surfacePoint(hit);
  const float footprint = bounce.footprint + kScatteredGrowth * static_cast<float>(hit.distance);
  const Draws draws{nullptr, 0, &samples};
  const auto scatter = [&](const LitPoint& point, const LookPoint* look) {
    const Receiver to{point, look, hit.entry, bounce.weight, footprint};
    addSceneLights(to, draws, batch);
    if (bounce.depth < bounces_) addScattered(to, draws, bounce.depth + 1, batch);
  };

  const std::optional<std::uint32_t> material = looks_ ? looks_->at(hit) : std::nullopt;
  if (!material) {
    const Vec3f own = placed.colour ? *placed.colour : placed.surface->colour(onSurface);
    LitPoint point = litPoint(placed, own, onSurface, bounce.ray, hit);
    point.target = bounce.target;
    scatter(point, nullptr);
    return {};
  }
  LookPoint look =
      looks_->evaluate(*material, hit, onSurface,
                       shadingNormal(*placed.surface, placed.space, onSurface, hit), footprint);
  LitPoint point =
      litPoint(placed, look.surface.diffuseColor, onSurface, bounce.ray, hit, &look.normal);
  point.target = bounce.target;
  Vec3f emission;
  if (!look.isCutOut)
    emission = look.surface.emissiveColor * bounce.weight * (look.fadesWhole ? look.opacity : 1.0f);
  if (!isLit(emission)) emission = {};
  // The way goes on behind what hides only a part, as often as that part does not hide it.
  const float coverage = look.isCutOut ? 0.0f : look.opacity;
  if (coverage < 1.0f && samples.next() >= coverage) {
    if (bounce.surfaces >= kMostSurfaces) return emission;
    Bounce further = bounce;
    further.ray = raysBehind(point, bounce.ray, hit);
    ++further.surfaces;
    further.footprint = footprint;
    batch.bounces.push_back(further);
    return emission;
  }
  look.opacity = 1.0f;
  look.surface.diffuseColor = point.albedo;
  scatter(point, &look);
  return emission;
}

}  // namespace vela::picture::detail
