#include "Shading.h"

#include <algorithm>
#include <cmath>

namespace command {

namespace {

using tarn::Vec2;
using tarn::Vec3;
using vela::scene::Instance;
using vela::scene::kNoInstance;
using vela::scene::MeshEntry;
using vela::scene::shadingNormal;
using vela::scene::Shape;

constexpr float kPi = 3.14159265f;

float largestOf(const Vec3<float>& v) {
  return std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)});
}

Vec3<float> mix(const Vec3<float>& a, const Vec3<float>& b, float t) {
  return a * (1.0f - t) + b * t;
}

// Any two directions that make a right-handed frame with a unit vector.
void makeFrame(const Vec3<float>& n, Vec3<float>& across, Vec3<float>& along) {
  const Vec3<float> helper = std::abs(n.x) < 0.6f ? Vec3<float>(1, 0, 0) : Vec3<float>(0, 1, 0);
  across = cross(helper, n).normalized();
  along = cross(n, across);
}

// From the square [-0.5, 0.5]^2 to the unit disk, keeping neighbours together: Shirley and Chiu,
// JGT 2(3), 1997.
Vec2<float> toDisk(const Vec2<float>& place) {
  const float a = 2.0f * place.x, b = 2.0f * place.y;
  if (a == 0.0f && b == 0.0f) return {};
  const bool wide = std::abs(a) > std::abs(b);
  const float r = wide ? a : b;
  const float angle = wide ? 0.25f * kPi * (b / a) : 0.5f * kPi - 0.25f * kPi * (a / b);
  return {r * std::cos(angle), r * std::sin(angle)};
}

}  // namespace

Vec3<float> backdrop(float height) {
  const float t = std::clamp(height, 0.0f, 1.0f);
  return mix(Vec3<float>(0.30f, 0.29f, 0.28f), Vec3<float>(0.62f, 0.68f, 0.74f),
             t * t * (3.0f - 2.0f * t));
}

// ---- Samples

void PixelSamples::start(int x, int y, int frame, bool jittered) {
  rng_.setSeed(vela::SamplingRng::BuildHashedSeed(x, y, frame));
  if (grid_ == 1)
    offsets_.assign(1, Vec2<float>());
  else if (jittered)
    rng_.generate2dSamples(grid_, grid_, offsets_);
  else
    rng_.generate2dUniformSamples(grid_, grid_, offsets_);
}

void PixelSamples::drawLights() {
  rng_.generate2dSamples(grid_, grid_, key_);
  rng_.generate2dSamples(grid_, grid_, fill_);
  // Square like the others: with more columns than rows the set leans to one side, and so would the
  // light.
  rng_.generate2dSamples(grid_ * ambientGrid_, grid_ * ambientGrid_, ambientPlaces_);
  rng_.generate1dSamples(grid_ * grid_ * ambient_, reaches_);
}

// ---- Light

Shader::Shader(const MeshList& list, const RayCaster& caster, double time, const View& view,
               double radius, int ambientGrid, bool smooth)
    : list_(list),
      up_(view.up),
      reach_(static_cast<float>(0.5 * radius)),
      ambient_(ambientGrid * ambientGrid) {
  surfaces_.reserve(list.shapes.size());
  for (const Shape& shape : list.shapes) surfaces_.emplace_back(shape, time, smooth);
  placed_.reserve(list.entries.size());
  for (std::size_t i = 0; i < list.entries.size(); ++i) {
    const MeshEntry& entry = list.entries[i];
    const Surface& surface = surfaces_[entry.shape];
    const Instance* instance =
        entry.instance == kNoInstance ? nullptr : &list.instances[entry.instance];
    double scale = 0.0;
    for (std::size_t c = 0; c < 3; ++c) {
      const double* column = entry.worldFromObject.data() + 4 * c;
      scale = std::max(scale, Vec3<double>(column[0], column[1], column[2]).length());
    }
    placed_.push_back(
        {caster.objectSpace(i), &surface,
         instance && instance->hasColour && !surface.hasOwnColour() ? &instance->colour : nullptr,
         static_cast<float>(scale)});
  }

  // The lights stand by the camera, level with the scene's horizon, so that any scene is lit from
  // any side.
  const auto axis = [&](std::size_t c) {
    return Vec3<double>(view.worldFromCamera[4 * c], view.worldFromCamera[4 * c + 1],
                        view.worldFromCamera[4 * c + 2]);
  };
  Vec3<double> back = axis(2) - view.up * dot(axis(2), view.up);
  if (back.length() < 1e-3) back = -(axis(1) - view.up * dot(axis(1), view.up));
  back.normalize();
  const Vec3<double> right = cross(view.up, back);
  const auto set = [](Directional& light, const Vec3<double>& towards, const Vec3<float>& colour,
                      float spread) {
    light.direction = Vec3<float>(towards.normalized());
    makeFrame(light.direction, light.across, light.along);
    light.colour = colour;
    light.spread = spread;
  };
  set(key_, right * -0.62 + back * 0.62 + view.up * 0.86, Vec3<float>(0.90f, 0.81f, 0.68f), 0.07f);
  set(fill_, right * 0.80 + back * 0.85 + view.up * 0.35, Vec3<float>(0.13f, 0.16f, 0.20f), 0.30f);
}

void Shader::tint(vela::Selection::GeoSelection& selection,
                  const std::shared_ptr<ovo::Stage>& stage, const MeshList& list) {
  selection.updatePrimSelectionStatus(stage);
  for (std::size_t i = 0; i < list.shapes.size(); ++i) {
    const ovo::Path& path = list.shapes[i].prim.getPath();
    const bool whole = selection.getPrimSelectionStatus(path) != vela::Selection::notSelected;
    const auto found = selection.find(path);
    if (found == selection.end())
      surfaces_[i].setSelection(whole, {}, {});
    else
      surfaces_[i].setSelection(
          whole, found->second.getPartSelection(vela::Selection::faces).selections,
          found->second.getPartSelection(vela::Selection::vertices).selections);
  }
}

Vec3<float> Shader::colour(const Placed& placed, int face, const Vec3<float>& objectPoint) const {
  return placed.colour ? *placed.colour : placed.surface->colour(face, objectPoint);
}

Vec3<float> Shader::colour(const SurfaceHit& hit) const {
  const Placed& placed = placed_[hit.entry];
  return colour(placed, hit.face, placed.space.point(hit));
}

Vec3<float> Shader::normal(const SurfaceHit& hit) const {
  const Placed& placed = placed_[hit.entry];
  return shadingNormal(*placed.surface, placed.space, placed.space.point(hit), hit);
}

Vec3<float> Shader::light(const WorldRay& ray, const SurfaceHit& hit, const PixelSamples& samples,
                          std::size_t sample, std::size_t target, Batch& batch) const {
  const Placed& placed = placed_[hit.entry];
  const Vec3<float> objectPoint = placed.space.point(hit);
  const Vec3<float> own = colour(placed, hit.face, objectPoint);
  // What is selected glows through in the highlight's colour; the plain colour is reported as it
  // is.
  const Vec3<float> albedo = mix(own, Vec3<float>(1.0f, 0.42f, 0.02f),
                                 0.7f * placed.surface->selection(hit.face, objectPoint));
  const Vec3<float> toViewer = -ray.direction;

  // Normals: the geometric one by the prim's orientation, the shading one where it has its own;
  // both towards the viewer.
  const Vec3<float> outward = placed.surface->isLeftHanded() ? -hit.normal : hit.normal;
  const bool seenFromBehind = dot(outward, toViewer) < 0.0f;
  const Vec3<float> geometric = seenFromBehind ? -outward : outward;
  const Vec3<float> smooth = shadingNormal(*placed.surface, placed.space, objectPoint, hit);
  const Vec3<float> shading = seenFromBehind ? -smooth : smooth;

  // Rays start off the surface, on the viewer's side, by what rounding may have put the hit beneath
  // it: a hit's offset is rounded to float, a hit is exact to a few units in the last
  // place of the way to it, and neighbouring points of a mesh far from its own zero are rounded
  // there.
  const float lift =
      std::max(largestOf(hit.offset), static_cast<float>(hit.distance) * 0.5f) * 4e-6f +
      largestOf(objectPoint) * placed.scale * 2.5e-7f;
  Vec3<float> start = hit.offset + geometric * lift;
  // Of a smooth surface they start where that would be, and its normal alone says what the light
  // does not reach.
  Vec3<float> way;
  const bool isSmooth = shading != geometric &&
                        placed.surface->findSmooth(hit.face, objectPoint, seenFromBehind, way);
  if (isSmooth)
    start +=
        Vec3<float>(list_.entries[hit.entry].worldFromObject.transformVector(Vec3<double>(way)));
  const auto add = [&](const Vec3<float>& direction, float reach, const Vec3<float>& colour) {
    batch.rays.push_back({hit.base, Vec3<double>(start), direction, 0.0f, reach});
    batch.lights.push_back({target, colour});
  };

  constexpr float kFar = 3.0e38f;
  for (const Directional* light : {&key_, &fill_}) {
    const Vec2<float> disk = toDisk(light == &key_ ? samples.key(sample) : samples.fill(sample));
    const Vec3<float> direction =
        (light->direction + (light->across * disk.x + light->along * disk.y) * light->spread)
            .normalized();
    const float facing = dot(shading, direction);
    if (facing <= 0.0f || (!isSmooth && dot(geometric, direction) <= 0.0f)) continue;
    // A matt surface with a thin glaze.
    const Vec3<float> half = (direction + toViewer).normalized();
    const float gloss = std::pow(std::max(dot(shading, half), 0.0f), 48.0f);
    const float edge = 1.0f - std::max(dot(toViewer, half), 0.0f);
    const float glaze = (0.04f + 0.5f * edge * edge * edge * edge * edge) * gloss * 4.0f;
    add(direction, kFar, light->colour * (albedo * facing + Vec3<float>(glaze * facing)));
  }

  // Daylight: directions about the normal, more of them where they count more; each looks as far as
  // its draw says, so that darkness fades with distance.
  Vec3<float> across, along;
  makeFrame(shading, across, along);
  for (int i = 0; i < ambient_; ++i) {
    const auto k = static_cast<std::size_t>(i);
    const Vec2<float> disk = toDisk(samples.ambient(sample, k));
    const float height = std::sqrt(std::max(1.0f - disk.x * disk.x - disk.y * disk.y, 0.0f));
    Vec3<float> direction = (across * disk.x + along * disk.y + shading * height).normalized();
    const float side = dot(direction, geometric);
    if (side < 0.0f) direction = (direction - geometric * (2.0f * side)).normalized();
    const float sky = 0.5f + 0.5f * dot(direction, up_);
    const Vec3<float> daylight =
        mix(Vec3<float>(0.20f, 0.17f, 0.15f), Vec3<float>(0.46f, 0.50f, 0.56f), sky);
    add(direction, reach_ * samples.reach(sample, k),
        daylight * albedo * (1.0f / static_cast<float>(ambient_)));
  }
  return own;
}

}  // namespace command
