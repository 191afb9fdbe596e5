#include "vela/scene/ExplainRay.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "ovo/Tokens.h"
#include "tarn/Box3.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/ScenePrims.h"

namespace vela::scene {

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

bool hasPrefixAmong(const ovo::Path& path, const std::vector<ovo::Path>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const ovo::Path& prefix) { return path.hasPrefix(prefix); });
}

// Everything, whatever the options say of it.
MeshFilter withoutLimits(const MeshFilter& filter) {
  MeshFilter all;
  all.time = filter.time;
  all.subdivisionLevel = filter.subdivisionLevel;
  all.purposes = {Purpose::default_, Purpose::render, Purpose::proxy, Purpose::guide};
  all.withInvisible = true;
  return all;
}

std::string wordOf(Purpose purpose) {
  const char* const words[] = {"default", "render", "proxy", "guide"};
  return words[static_cast<std::size_t>(purpose)];
}

// The prims that decide about an entry: its own, and the instancers it is an instance of.
std::vector<ovo::Prim> decidersOf(const MeshList& list, const MeshEntry& entry) {
  std::vector<ovo::Prim> prims = {entry.prim};
  for (std::uint32_t i = entry.instance; i != kNoInstance; i = list.instances[i].parent)
    prims.push_back(list.instancers[list.instances[i].instancer]);
  return prims;
}

HiddenBy reasonOf(const MeshList& list, const MeshEntry& entry, const MeshFilter& filter) {
  const std::vector<ovo::Prim> prims = decidersOf(list, entry);
  const auto any = [&](auto test) { return std::any_of(prims.begin(), prims.end(), test); };
  if (any([&](const ovo::Prim& p) { return hasPrefixAmong(p.getPath(), filter.excludedPaths); }))
    return HiddenBy::exclude;
  // Of instances it is the outermost instancer that the mask is held against.
  if (!filter.maskPaths.empty() && !hasPrefixAmong(prims.back().getPath(), filter.maskPaths))
    return HiddenBy::mask;
  const std::vector<std::string>& types = filter.includedTypes;
  if (!types.empty() &&
      std::find(types.begin(), types.end(), entry.prim.getTypeName().asString()) == types.end())
    return HiddenBy::type;
  if (!filter.withInvisible && any([&](const ovo::Prim& p) { return !p.isVisible(filter.time); }))
    return HiddenBy::visibility;
  const std::string purpose = entry.prim.purpose().asString();
  if (std::none_of(filter.purposes.begin(), filter.purposes.end(),
                   [&](Purpose wanted) { return wordOf(wanted) == purpose; }))
    return HiddenBy::purpose;
  // What remains are the invisible ids of instancers.
  return HiddenBy::visibility;
}

// The part of a box's slabs that a ray passes: whether there is any, in double.
bool enters(const tarn::Box3d& box, const WorldRay& ray) {
  if (box.isEmpty()) return false;
  const tarn::Vec3d origin = ray.base + ray.offset, direction(ray.direction);
  // Boxes are of points that were moved in double and are met in single precision.
  const double reach = std::max({std::abs(box.min.x), std::abs(box.max.x), std::abs(box.min.y),
                                 std::abs(box.max.y), std::abs(box.min.z), std::abs(box.max.z)});
  const double margin = 1e-5 * reach;
  double first = 0.0, last = kNever;
  for (std::size_t i = 0; i < 3; ++i) {
    const double low = box.min[i] - margin - origin[i], high = box.max[i] + margin - origin[i];
    if (direction[i] == 0.0) {
      if (low > 0.0 || high < 0.0) return false;
      continue;
    }
    const double a = low / direction[i], b = high / direction[i];
    first = std::max(first, std::min(a, b));
    last = std::min(last, std::max(a, b));
  }
  return first <= last;
}

bool isFinite(const tarn::Vec3f& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// Whether any face has an area: one of the triangles between its first corner and two neighbours;
// or any tube a width.
bool hasArea(const Shape& shape) {
  if (shape.tubes) {
    const auto radii = shape.tubes->radii.view();
    return std::any_of(radii.begin(), radii.end(), [](float r) { return r > 0.0f; });
  }
  const auto points = shape.points.view();
  const auto indices = shape.indices.view();
  std::size_t at = 0;
  const auto pointAt = [&](std::size_t corner, tarn::Vec3d& point) {
    const int index = indices[corner];
    if (index < 0 || static_cast<std::size_t>(index) >= points.size()) return false;
    point = tarn::Vec3d(points[static_cast<std::size_t>(index)]);
    return isFinite(points[static_cast<std::size_t>(index)]);
  };
  for (const int count : shape.counts.view()) {
    if (count < 0) continue;
    const auto corners = static_cast<std::size_t>(count);
    if (corners > indices.size() - std::min(at, indices.size())) return false;
    tarn::Vec3d a, b, c;
    for (std::size_t i = 2; i < corners; ++i)
      if (pointAt(at, a) && pointAt(at + i - 1, b) && pointAt(at + i, c) &&
          cross(b - a, c - a).lengthSquared() > 0.0)
        return true;
    at += corners;
  }
  return false;
}

// The nearest hits of one way of answering: within the ray's range, and anywhere.
struct Nearest {
  double within = kNever, anywhere = kNever;
  std::int32_t face = -1;
};

bool findNearest(const MeshList& list, const RayCaster& caster, const WorldRay& ray,
                 std::vector<Nearest>& nearest, const Work& work) {
  nearest.assign(list.entries.size(), {});
  WorldRay whole = ray;
  whole.minDistance = 0.0f;
  whole.maxDistance = std::numeric_limits<float>::max();
  return caster.intersectAll(
      &whole, 1,
      [&](std::size_t, const SurfaceHit& hit) {
        Nearest& own = nearest[hit.entry];
        const bool isWithin = hit.distance >= static_cast<double>(ray.minDistance) &&
                              hit.distance <= static_cast<double>(ray.maxDistance);
        double& best = isWithin ? own.within : own.anywhere;
        // A face within the range goes before one outside of it.
        if (hit.distance < best && (isWithin || own.within == kNever))
          own.face = list.shapeOf(hit.entry).sceneFace(hit.face);
        best = std::min(best, hit.distance);
      },
      work);
}

// What the caster itself, with what shows alone, says is the nearest.
SurfaceHit firstOf(CasterKind kind, const MeshList& shown, const Extent& extent, double time,
                   const WorldRay& ray) {
  const RayCaster caster(kind, shown, extent, time);
  SurfaceHit hit;
  caster.intersect(&ray, 1, &hit);
  return hit;
}

bool isForDetector(const MeshEntry& entry, const Shape& shape) {
  return entry.instance == kNoInstance && shape.prim.isValid() && !shape.refinement;
}

}  // namespace

const char* wordOf(RayVerdict verdict) {
  const char* const words[] = {"shows",  "behind",     "clipped",  "missed",
                               "culled", "degenerate", "not taken"};
  return words[static_cast<std::size_t>(verdict)];
}

const char* wordOf(HiddenBy reason) {
  const char* const words[] = {"", "exclude", "mask", "type", "visibility", "purpose"};
  return words[static_cast<std::size_t>(reason)];
}

std::optional<RayExplanation> explainRay(const ovo::Stage& stage, const MeshFilter& filter,
                                         const WorldRay& ray, bool withCulled, const Work& work) {
  // What shows, and all there is.
  const std::optional<MeshList> shown = listMeshes(stage, filter, nullptr, work);
  if (!shown) return std::nullopt;
  const std::optional<MeshList> all = listMeshes(stage, withoutLimits(filter), nullptr, work);
  if (!all) return std::nullopt;
  std::set<std::string> shownNames;
  for (std::size_t i = 0; i < shown->entries.size(); ++i) shownNames.insert(nameOf(*shown, i));
  const Extent shownExtent = extentOf(*shown, work), extent = extentOf(*all, work);
  if (work.isStopped()) return std::nullopt;

  // Each way of answering: what it says is nearest, and what else there is along the ray.
  constexpr CasterKind kKinds[] = {CasterKind::tracer, CasterKind::hitDetector};
  std::vector<Nearest> nearest[2];
  std::string first[2];
  for (std::size_t k = 0; k < 2; ++k) {
    const SurfaceHit hit = firstOf(kKinds[k], *shown, shownExtent, filter.time, ray);
    if (hit.hit) first[k] = nameOf(*shown, hit.entry);
    const RayCaster caster(kKinds[k], *all, extent, filter.time);
    if (!findNearest(*all, caster, ray, nearest[k], work)) return std::nullopt;
  }

  RayExplanation explanation;
  std::vector<tarn::Box3d> boxes;
  for (const Shape& shape : all->shapes) boxes.push_back(boxOf(shape));
  for (std::size_t i = 0; i < all->entries.size(); ++i) {
    if (work.isStopped()) return std::nullopt;
    const MeshEntry& entry = all->entries[i];
    const Shape& shape = all->shapeOf(i);
    const bool isInBox = enters(boxes[entry.shape].transformed(entry.worldFromObject), ray);
    const bool isMet = std::min(nearest[0][i].within, nearest[0][i].anywhere) < kNever ||
                       std::min(nearest[1][i].within, nearest[1][i].anywhere) < kNever;
    // A mesh without a point has no box to enter; what is wrong with it is told all the same.
    const bool isEmpty = boxes[entry.shape].isEmpty();
    if (!isInBox && !isMet && !isEmpty && !withCulled) {
      ++explanation.culled;
      continue;
    }

    RayItem item;
    item.name = nameOf(*all, i);
    item.type = entry.prim.getTypeName().asString();
    item.purpose = entry.prim.purpose().asString();
    const bool isShown = shownNames.count(item.name) > 0;
    if (!isShown) item.hiddenBy = reasonOf(*all, entry, filter);
    RayOutcome* const outcomes[2] = {&item.tracer, &item.detector};
    for (std::size_t k = 0; k < 2; ++k) {
      RayOutcome& outcome = *outcomes[k];
      const Nearest& own = nearest[k][i];
      const bool isWithin = own.within < kNever;
      outcome.distance = isWithin ? own.within : own.anywhere < kNever ? own.anywhere : 0.0;
      outcome.face = own.face;
      if (k == 1 && !isForDetector(entry, shape))
        outcome.verdict = RayVerdict::notTaken;
      else if (isShown && item.name == first[k])
        outcome.verdict = RayVerdict::shows;
      else if (isWithin)
        outcome.verdict = isShown ? RayVerdict::behind : RayVerdict::shows;
      else if (own.anywhere < kNever)
        outcome.verdict = RayVerdict::clipped;
      else if (isEmpty || (isInBox && !hasArea(shape)))
        outcome.verdict = RayVerdict::degenerate;
      else
        outcome.verdict = isInBox ? RayVerdict::missed : RayVerdict::culled;
    }
    explanation.items.push_back(std::move(item));
  }
  const auto distanceOf = [](const RayItem& item) {
    return item.tracer.face >= 0     ? item.tracer.distance
           : item.detector.face >= 0 ? item.detector.distance
                                     : kNever;
  };
  std::stable_sort(
      explanation.items.begin(), explanation.items.end(),
      [&](const RayItem& a, const RayItem& b) { return distanceOf(a) < distanceOf(b); });

  if (!forEachPrim(
          stage,
          [&](const ovo::Prim& prim) {
            if (all->notShown.count(prim.getTypeName().asString()) > 0)
              explanation.withoutFaces.push_back(prim.getPath().asString());
            return true;
          },
          work))
    return std::nullopt;
  return explanation;
}

}  // namespace vela::scene
