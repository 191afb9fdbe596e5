#include "vela/scene/Picking.h"

#include <algorithm>

#include "ovo/Faces.h"
#include "tarn/Span.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/PixelFinder.h"

namespace vela::scene {

namespace {

using Selection::GeoSelection;
using Selection::WeightedPartSelection;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

// Rays are made row by row and cast some rows at a time: a rectangle may be as large as a picture.
constexpr std::size_t kMostRays = 1 << 16;

// Picked elements get the value 1, whatever they had: to pick twice is to pick.
void choose(WeightedPartSelection& part, std::size_t size, std::size_t index) {
  if (part.selections.size() < size) part.resize(size);
  part.selections[index] = 1.0f;
}

void addFaces(GeoSelection& selection, const Shape& shape, const std::vector<bool>& faces) {
  WeightedPartSelection& part =
      selection.getWritablePartSelection(shape.prim.getPath(), Selection::faces);
  for (std::size_t f = 0; f < faces.size(); ++f)
    if (faces[f])
      choose(part, shape.refinement ? shape.refinement->counts.size() : shape.counts.size(), f);
}

bool isInside(const PixelRect& rect, const Vec2d& pixel) {
  return pixel.x >= rect.x0 && pixel.x < rect.x1 + 1.0 && pixel.y >= rect.y0 &&
         pixel.y < rect.y1 + 1.0;
}

// Of the faces met, the points that lie within the rectangle. False when there are none.
bool addVertices(GeoSelection& selection, const MeshEntry& entry, const Shape& shape,
                 const std::vector<bool>& faces, const PixelRect& rect, const PixelFinder& finder) {
  const auto isPicked = [&](const Vec3f& point) {
    Vec2d pixel;
    return finder.find(entry.worldFromObject.transformPoint(Vec3d(point)), pixel) &&
           isInside(rect, pixel);
  };
  const auto chooseAll = [&](const std::vector<std::size_t>& chosen, std::size_t size) {
    if (chosen.empty()) return false;
    WeightedPartSelection& part =
        selection.getWritablePartSelection(entry.prim.getPath(), Selection::vertices);
    for (const std::size_t point : chosen) choose(part, size, point);
    return true;
  };
  std::vector<std::size_t> chosen;

  // The control points of curves.
  if (const Tubes* tubes = shape.tubes.get()) {
    std::size_t begin = 0;
    const auto curves = tubes->sceneCounts.view();
    const std::size_t numPoints = tubes->scenePoints.size();
    for (std::size_t c = 0; c < curves.size(); ++c) {
      const auto count = static_cast<std::size_t>(std::max(curves[c], 0));
      if (count > numPoints - begin) break;
      if (c < faces.size() && faces[c])
        for (std::size_t p = begin; p < begin + count; ++p)
          if (isPicked(tubes->scenePoints.view()[p])) chosen.push_back(p);
      begin += count;
    }
    return chooseAll(chosen, numPoints);
  }

  // The scene's own faces and points; those of a refined mesh lie where refinement has put them.
  const Refinement* from = shape.refinement.get();
  const ovo::Array<int>&counts = from ? from->counts : shape.counts,
        &indices = from ? from->indices : shape.indices;
  const tarn::Span<const Vec3f> points = shape.points.view();

  for (const ovo::Face face : ovo::Faces(counts, indices)) {
    if (face.index() >= faces.size() || !faces[face.index()]) continue;
    for (const int point : face) {  // a face that was hit has usable indices
      const int shown = from ? from->refinedPointOf.view()[point] : point;
      if (shown >= 0 && isPicked(points[shown])) chosen.push_back(static_cast<std::size_t>(point));
    }
  }
  return chooseAll(chosen, from ? from->points.size() : shape.points.size());
}

}  // namespace

void FacesMet::add(std::size_t entry, std::int32_t sceneFace) {
  std::vector<bool>& faces = met_[entry];
  const auto face = static_cast<std::size_t>(sceneFace);
  if (face >= faces.size()) faces.resize(std::max(face + 1, 2 * faces.size()));
  faces[face] = true;
}

std::optional<FacesMet> facesInRect(const MeshList& list, const RayCaster& caster, const View& view,
                                    const PixelRect& rect, bool through, const Work& work) {
  FacesMet met(list.entries.size());
  const auto add = [&](const SurfaceHit& hit) {
    met.add(hit.entry, list.shapeOf(hit.entry).sceneFace(hit.face));
  };
  const Work stopOnly{work.stop, {}};
  std::vector<Vec2f> points;
  std::vector<WorldRay> rays;
  std::vector<SurfaceHit> hits;
  const PixelRect inside{std::max(rect.x0, 0), std::max(rect.y0, 0),
                         std::min(rect.x1, view.width - 1), std::min(rect.y1, view.height - 1)};
  for (int y = inside.y0; y <= inside.y1; ++y) {
    if (work.isStopped()) return std::nullopt;
    for (int x = inside.x0; x <= inside.x1; ++x) points.push_back(view.ndc(x + 0.5, y + 0.5));
    if (points.size() < kMostRays && y < inside.y1) continue;

    rays.resize(points.size());
    view.makeRays(points.data(), points.size(), rays.data());
    points.clear();
    if (through) {
      const auto visit = [&](std::size_t, const SurfaceHit& hit) { add(hit); };
      if (!caster.intersectAll(rays.data(), rays.size(), visit, stopOnly)) return std::nullopt;
    } else {
      hits.resize(rays.size());
      caster.intersect(rays.data(), rays.size(), hits.data());
      for (const SurfaceHit& hit : hits)
        if (hit.hit) add(hit);
    }
    work.report((y - inside.y0 + 1.0) / (inside.y1 - inside.y0 + 1.0));
  }
  return met;
}

std::size_t addToSelection(const FacesMet& met, const MeshList& list, const View& view,
                           const PixelRect& rect, PickedPart part, GeoSelection& selection) {
  const PixelFinder finder(view);
  std::size_t picked = 0;
  for (std::size_t i = 0; i < met.numEntries(); ++i) {
    if (!met.any(i)) continue;
    const MeshEntry& entry = list.entries[i];
    if (part == PickedPart::objects)
      selection.setObjectSelected(entry.prim.getPath(), true);
    else if (part == PickedPart::faces)
      addFaces(selection, list.shapeOf(i), met.of(i));
    else if (!addVertices(selection, entry, list.shapeOf(i), met.of(i), rect, finder))
      continue;
    ++picked;
  }
  return picked;
}

std::optional<std::size_t> pickRect(const MeshList& list, const RayCaster& caster, const View& view,
                                    const PixelRect& rect, bool through, PickedPart part,
                                    GeoSelection& selection, const Work& work) {
  const std::optional<FacesMet> met = facesInRect(list, caster, view, rect, through, work);
  if (!met) return std::nullopt;
  return addToSelection(*met, list, view, rect, part, selection);
}

}  // namespace vela::scene
