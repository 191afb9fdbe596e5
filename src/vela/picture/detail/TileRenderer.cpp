#include "vela/picture/detail/TileRenderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "vela/picture/detail/LayerRows.h"

namespace vela::picture::detail {

namespace {

std::size_t at(int i) { return static_cast<std::size_t>(i); }

// Puts the values of a pixel into the layer of a picture that some of them are chosen for.
void store(const LayerValues& values, const ChosenLayer& chosen, std::size_t pixel, Layer& layer) {
  std::size_t to = pixel * chosen.elements.size();
  for (const int element : chosen.elements) {
    if (layer.type == ValueType::float32)
      layer.floats[to++] = values.floats[element];
    else
      layer.integers[to++] = values.integers[element];
  }
}

// How much of a light's shadow an entry throws that lies so far from what is lit, 0 to 1.
float shadowOf(const scene::SceneLight* light, std::uint32_t entry, double distance) {
  if (!light) return 1.0f;
  if (!light->isStoppedBy(entry)) return 0.0f;
  const look::LightShadow& shadow = light->source.shadow;
  if (!(shadow.falloff > 0.0f) || shadow.distance < 0.0f) return 1.0f;
  const auto left = (shadow.distance - static_cast<float>(distance)) / shadow.falloff;
  return std::pow(std::clamp(left, 0.0f, 1.0f), shadow.falloffGamma);
}

// Adds the time until its end, in nanoseconds.
class Stopwatch {
 public:
  explicit Stopwatch(std::int64_t& sum) : sum_(sum), start_(Clock::now()) {}
  ~Stopwatch() {
    sum_ += std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start_).count();
  }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  using Clock = std::chrono::steady_clock;
  std::int64_t& sum_;
  Clock::time_point start_;
};

}  // namespace

TileRenderer::TileRenderer(const RenderJob& job)
    : job_(job),
      hasCentres_(job.layers.has(Sampling::pixelCentre)),
      hasMeans_(job.layers.has(Sampling::meanOfSamples)),
      hasCoverage_(job.layers.has(Sampling::coverageOfSamples)),
      samples_(at(kTileSize), PixelSamples(job.grid, job.ambientGrid)) {}

bool TileRenderer::render(const Tile& tile, int x0, int y0, Picture& picture,
                          const scene::Work& work, TileCounts& counts) {
  picture_ = &picture;
  x0_ = x0;
  y0_ = y0;
  counts_ = {};
  int y = tile.y0;
  for (; y < tile.y1 && !work.isStopped(); ++y) renderRow(tile, y);
  counts.cameraRays += counts_.cameraRays;
  counts.lightRays += counts_.lightRays;
  counts.traceTime += counts_.traceTime;
  counts.shadeTime += counts_.shadeTime;
  return y == tile.y1;
}

void TileRenderer::renderRow(const Tile& tile, int y) {
  // One ray through the centre of each pixel. A single sample is that ray as well.
  if (hasCentres_ || job_.grid == 1) traceCentres(tile, y);
  if (hasCentres_) writeCentres(tile, y);
  if (!hasMeans_ && !hasCoverage_) return;
  traceSamples(tile, y);
  if (hasCoverage_) writeCoverage(tile, y);
  if (!hasMeans_) return;
  const std::int64_t tracedBefore = counts_.traceTime;
  {
    const Stopwatch watch(counts_.shadeTime);
    if (job_.light->hasLooks() || job_.light->lights()) {
      makeFootprints(tile, y);
      shadeLooks(tile.width());
    } else {
      shade(tile.width());
    }
  }
  // Rays to lights are traced in between.
  counts_.shadeTime -= counts_.traceTime - tracedBefore;
  writeMeans(tile, y);
}

void TileRenderer::traceCentres(const Tile& tile, int y) {
  points_.clear();
  for (int x = tile.x0; x < tile.x1; ++x) points_.push_back(job_.view.ndc(x + 0.5, y + 0.5));
  trace();
}

void TileRenderer::traceSamples(const Tile& tile, int y) {
  points_.clear();
  for (int i = 0; i < tile.width(); ++i) {
    PixelSamples& samples = samples_[at(i)];
    samples.start(tile.x0 + i, y, job_.frame, job_.jittered);
    for (std::size_t s = 0; s < samples.count(); ++s)
      points_.push_back(job_.view.ndc(tile.x0 + i + 0.5 + static_cast<double>(samples.offset(s).x),
                                      y + 0.5 + static_cast<double>(samples.offset(s).y)));
  }
  if (job_.grid == 1) return;
  if (job_.view.lensRadius > 0.0 || !job_.moments.empty())
    traceThroughLens(tile.width());
  else
    trace();
}

void TileRenderer::traceThroughLens(int width) {
  const Stopwatch watch(counts_.traceTime);
  const std::size_t count = samples_[0].count(), moments = job_.moments.size();
  const bool hasLens = job_.view.lensRadius > 0.0;
  onLens_.assign(points_.size(), tarn::Vec2f());
  std::vector<std::uint32_t> momentOf(points_.size(), 0);
  for (std::size_t i = 0; i < at(width); ++i) {
    PixelSamples& samples = samples_[i];
    if (hasLens) samples.drawLens();
    if (moments > 0) samples.drawMoments(moments);
    for (std::size_t s = 0; s < count; ++s) {
      if (hasLens) onLens_[i * count + s] = samples.lens(s);
      if (moments > 0) momentOf[i * count + s] = samples.moment(s);
    }
  }

  // A camera that stands still is one view for all moments.
  rays_.resize(points_.size());
  const auto viewOf = [&](std::size_t i) {
    return moments > 0 ? job_.moments[momentOf[i]] : &job_.view;
  };
  for (std::size_t first = 0, end = 0; first < points_.size(); first = end) {
    const scene::View* const view = viewOf(first);
    while (end < points_.size() && viewOf(end) == view) ++end;
    view->makeRays(&points_[first], &onLens_[first], end - first, &rays_[first]);
  }
  if (moments > 0)
    for (std::size_t i = 0; i < rays_.size(); ++i) rays_[i].moment = momentOf[i];
  hits_.assign(rays_.size(), scene::SurfaceHit());
  job_.caster.intersect(rays_.data(), rays_.size(), hits_.data());
  counts_.cameraRays += rays_.size();
}

void TileRenderer::trace() {
  const Stopwatch watch(counts_.traceTime);
  rays_.resize(points_.size());
  job_.view.makeRays(points_.data(), points_.size(), rays_.data());
  hits_.assign(rays_.size(), scene::SurfaceHit());
  job_.caster.intersect(rays_.data(), rays_.size(), hits_.data());
  counts_.cameraRays += rays_.size();
}

void TileRenderer::shade(int width) {
  means_.assign(at(width), PixelMean());
  batch_.clear();
  const std::size_t count = samples_[0].count();
  const float share = 1.0f / static_cast<float>(count);

  // What is seen, and the rays that decide which light arrives there.
  for (std::size_t i = 0; i < at(width); ++i) {
    const auto first = hits_.begin() + static_cast<std::ptrdiff_t>(i * count);
    if (std::none_of(first, first + static_cast<std::ptrdiff_t>(count),
                     [](const scene::SurfaceHit& hit) { return hit.hit; }))
      continue;
    samples_[i].drawLights();
    for (std::size_t s = 0; s < count; ++s) {
      const scene::SurfaceHit& hit = hits_[i * count + s];
      if (!hit.hit) continue;
      means_[i].albedo +=
          job_.light->light(rays_[i * count + s], hit, samples_[i], s, i, batch_) * share;
      means_[i].alpha += share;
    }
  }

  // The light that nothing keeps out.
  bool* occluded = answers_.withRoomFor(batch_.rays.size());
  {
    const Stopwatch watch(counts_.traceTime);
    job_.caster.occluded(batch_.rays.data(), batch_.rays.size(), occluded);
  }
  for (std::size_t i = 0; i < batch_.rays.size(); ++i)
    if (!occluded[i]) means_[batch_.lights[i].target].colour += batch_.lights[i].colour * share;
  counts_.lightRays += batch_.rays.size();
}

// By rays through the centres of neighbouring pixels, whatever the lens.
void TileRenderer::makeFootprints(const Tile& tile, int y) {
  const auto width = at(tile.width());
  std::vector<tarn::Vec2f> points;
  for (std::size_t i = 0; i <= width; ++i)
    points.push_back(job_.view.ndc(tile.x0 + static_cast<double>(i) + 0.5, y + 0.5));
  std::vector<scene::WorldRay> rays(points.size());
  job_.view.makeRays(points.data(), points.size(), rays.data());
  footprints_.resize(width);
  const double share = 1.0 / job_.grid;
  for (std::size_t i = 0; i < width; ++i) {
    const scene::WorldRay &a = rays[i], &b = rays[i + 1];
    footprints_[i].start =
        static_cast<float>(((b.base - a.base) + (b.offset - a.offset)).length() * share);
    footprints_[i].growth =
        static_cast<float>(tarn::Vec3d(b.direction - a.direction).length() * share);
  }
}

void TileRenderer::shadeLooks(int width) {
  // Behind so many surfaces nothing shows any more; what hides all but a thousandth hides it all.
  constexpr int kMostSurfaces = 64;
  constexpr float kLeast = 1e-3f;

  means_.assign(at(width), PixelMean());
  const std::size_t count = samples_[0].count();
  const float share = 1.0f / static_cast<float>(count);
  paths_.clear();
  for (std::size_t i = 0; i < at(width); ++i) {
    bool isEmpty = true;
    for (std::size_t s = 0; s < count; ++s) {
      if (!hits_[i * count + s].hit) continue;
      if (!std::exchange(isEmpty, false)) continue;
      if (job_.light->hasOwnLights()) samples_[i].drawLights();
      if (job_.light->lights()) samples_[i].drawSceneLights(job_.light->lights()->asked());
    }
    if (isEmpty) continue;
    for (std::size_t s = 0; s < count; ++s)
      paths_.push_back({i, s, rays_[i * count + s], 1.0f, 0.0, false});
  }
  // The first hits are known already.
  std::vector<scene::SurfaceHit> hits;
  for (const Path& path : paths_) hits.push_back(hits_[path.pixel * count + path.sample]);

  for (int depth = 0; depth < kMostSurfaces && !paths_.empty(); ++depth) {
    batch_.clear();
    further_.clear();
    for (std::size_t p = 0; p < paths_.size(); ++p) {
      const Path& path = paths_[p];
      const scene::SurfaceHit& hit = hits[p];
      if (!hit.hit) continue;
      PixelMean& mean = means_[path.pixel];
      const Footprint& footprint = footprints_[path.pixel];
      const double distance = path.travelled + hit.distance;
      const Shader::Seen seen = job_.light->see(
          path.ray, hit, samples_[path.pixel], path.sample, path.pixel, path.weight,
          footprint.start + footprint.growth * static_cast<float>(distance), batch_);
      if (seen.isSurface && !path.hasAlbedo) mean.albedo += seen.albedo * share;
      mean.colour += seen.emission * (path.weight * share);
      mean.alpha += seen.coverage * path.weight * share;
      const float left = path.weight * (1.0f - seen.coverage);
      if (left > kLeast)
        further_.push_back({path.pixel, path.sample, seen.behind, left, distance,
                            path.hasAlbedo || seen.isSurface});
    }
    resolveLooks(share);
    bounce(share);

    std::swap(paths_, further_);
    passing_.clear();
    for (const Path& path : paths_) passing_.push_back(path.ray);
    hits.assign(passing_.size(), scene::SurfaceHit());
    const Stopwatch watch(counts_.traceTime);
    job_.caster.intersect(passing_.data(), passing_.size(), hits.data());
    counts_.cameraRays += passing_.size();
  }
}

// Light that comes by way of other surfaces, bounce by bounce.
void TileRenderer::bounce(float share) {
  std::vector<Shader::Bounce> bounces;
  std::vector<scene::SurfaceHit> hits;
  while (!batch_.bounces.empty()) {
    bounces.swap(batch_.bounces);
    batch_.clear();
    passing_.clear();
    for (const Shader::Bounce& bounce : bounces) passing_.push_back(bounce.ray);
    hits.assign(passing_.size(), scene::SurfaceHit());
    {
      const Stopwatch watch(counts_.traceTime);
      job_.caster.intersect(passing_.data(), passing_.size(), hits.data());
    }
    counts_.lightRays += passing_.size();
    for (std::size_t i = 0; i < bounces.size(); ++i)
      if (hits[i].hit)
        means_[bounces[i].target].colour +=
            job_.light->seeBounce(bounces[i], hits[i], samples_[bounces[i].target], batch_) * share;
    resolveLooks(share);
  }
}

// The light that nothing keeps out, or not all of it.
void TileRenderer::resolveLooks(float share) {
  constexpr int kMostSurfaces = 64;
  constexpr float kLeast = 1e-3f;
  bool* occluded = answers_.withRoomFor(batch_.rays.size());
  {
    const Stopwatch watch(counts_.traceTime);
    job_.caster.occluded(batch_.rays.data(), batch_.rays.size(), occluded);
  }
  counts_.lightRays += batch_.rays.size();
  passages_.clear();
  passing_.clear();
  const Lights* const lights = job_.light->lights();
  const auto sourceOf = [&](std::size_t light) -> const scene::SceneLight* {
    const std::uint32_t source = batch_.lights[light].source;
    return source == kOwnLight ? nullptr : &(*lights)[source];
  };
  const auto arrive = [&](std::size_t light, float weight) {
    means_[batch_.lights[light].target].colour += batch_.lights[light].colour * (share * weight);
  };
  // What shadows leave of the light where something is in the way.
  const auto shade = [&](std::size_t light, float weight) {
    if (const scene::SceneLight* const source = sourceOf(light))
      means_[batch_.lights[light].target].colour +=
          batch_.lights[light].colour * source->source.shadow.colour * (share * (1.0f - weight));
  };
  for (const Shader::Light& light : batch_.unshadowed)
    means_[light.target].colour += light.colour * share;
  for (std::size_t i = 0; i < batch_.rays.size(); ++i) {
    if (!occluded[i]) {
      arrive(i, 1.0f);
      continue;
    }
    const scene::SceneLight* const source = sourceOf(i);
    const bool mayPass = source && (source->casting || source->source.shadow.falloff > 0.0f);
    if (mayPass || job_.light->maySeeThrough()) {
      passages_.push_back({i, 1.0f, 0.0});
      passing_.push_back(batch_.rays[i]);
    } else {
      shade(i, 0.0f);
    }
  }

  // Through one surface after another, up to what lets nothing through.
  std::vector<scene::SurfaceHit> hits;
  for (int depth = 0; depth < kMostSurfaces && !passages_.empty(); ++depth) {
    hits.assign(passing_.size(), scene::SurfaceHit());
    {
      const Stopwatch watch(counts_.traceTime);
      job_.caster.intersect(passing_.data(), passing_.size(), hits.data());
    }
    counts_.lightRays += passing_.size();
    std::size_t left = 0;
    for (std::size_t i = 0; i < passages_.size(); ++i) {
      Passage passage = passages_[i];
      if (!hits[i].hit) {
        arrive(passage.light, passage.weight);
        shade(passage.light, passage.weight);
        continue;
      }
      passage.travelled += hits[i].distance;
      scene::WorldRay behind;
      const scene::SceneLight* const source = sourceOf(passage.light);
      if (const float strength = shadowOf(source, hits[i].entry, passage.travelled);
          strength < 1.0f) {
        const float through = job_.light->through(passing_[i], hits[i], behind);
        passage.weight *= 1.0f - strength * (1.0f - through);
        behind = job_.light->behind(passing_[i], hits[i]);
      } else {
        passage.weight *= job_.light->through(passing_[i], hits[i], behind);
      }
      if (!(passage.weight > kLeast)) {
        shade(passage.light, 0.0f);
        continue;
      }
      passages_[left] = passage;
      passing_[left++] = behind;
    }
    passages_.resize(left);
    passing_.resize(left);
  }
  for (const Passage& passage : passages_) shade(passage.light, 0.0f);
}

void TileRenderer::writeCentres(const Tile& tile, int y) {
  for (std::size_t l = 0; l < job_.layers.layers.size(); ++l) {
    const ChosenLayer& chosen = job_.layers.layers[l];
    const auto valuesAtCentre = rowOf(*chosen.info).function.atCentre;
    if (!valuesAtCentre) continue;
    for (int i = 0; i < tile.width(); ++i) {
      LayerValues values;
      valuesAtCentre(PixelCentre(job_, rays_[at(i)], hits_[at(i)]), values);
      store(values, chosen, pixel(tile.x0 + i, y), picture_->layers[l]);
    }
  }
}

void TileRenderer::writeMeans(const Tile& tile, int y) {
  for (std::size_t l = 0; l < job_.layers.layers.size(); ++l) {
    const ChosenLayer& chosen = job_.layers.layers[l];
    const auto valuesOfMean = rowOf(*chosen.info).function.ofMean;
    if (!valuesOfMean) continue;
    for (int i = 0; i < tile.width(); ++i) {
      LayerValues values;
      valuesOfMean(means_[at(i)], values);
      store(values, chosen, pixel(tile.x0 + i, y), picture_->layers[l]);
    }
  }
}

void TileRenderer::writeCoverage(const Tile& tile, int y) {
  const std::size_t count = samples_[0].count();
  for (int i = 0; i < tile.width(); ++i) {
    coverage_.count(*job_.mattes, &hits_[at(i) * count], count);
    for (std::size_t l = 0; l < job_.layers.layers.size(); ++l) {
      const ChosenLayer& chosen = job_.layers.layers[l];
      const auto valuesOfCoverage = rowOf(*chosen.info).function.ofCoverage;
      if (!valuesOfCoverage) continue;
      LayerValues values;
      valuesOfCoverage(coverage_, values);
      store(values, chosen, pixel(tile.x0 + i, y), picture_->layers[l]);
    }
  }
}

std::size_t TileRenderer::pixel(int x, int y) const {
  return at(y - y0_) * at(picture_->width) + at(x - x0_);
}

bool* TileRenderer::Answers::withRoomFor(std::size_t count) {
  if (size_ < count) {
    answers_ = std::make_unique<bool[]>(count);
    size_ = count;
  }
  return answers_.get();
}

}  // namespace vela::picture::detail
