#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Scene.h"
#include "SelectionFile.h"
#include "Text.h"

namespace command {

namespace {

using tarn::Vec2;
using tarn::Vec3;
using vela::scene::MeshEntry;
using vela::scene::MeshList;
using vela::scene::RayCaster;
using vela::scene::Refinement;
using vela::scene::Shape;
using vela::scene::SurfaceHit;
using vela::scene::View;
using vela::scene::WorldRay;
using vela::Selection::GeoSelection;
using vela::Selection::WeightedPartSelection;

// The faces of each entry that the rays of a rectangle's pixels meet.
class FacesMet {
 public:
  explicit FacesMet(const MeshList& list) : met_(list.entries.size()) {}

  void add(std::size_t entry, std::int32_t number) {
    std::vector<bool>& faces = met_[entry];
    const auto face = static_cast<std::size_t>(number);
    if (face >= faces.size()) faces.resize(std::max(face + 1, 2 * faces.size()));
    faces[face] = true;
  }
  [[nodiscard]] const std::vector<bool>& of(std::size_t entry) const { return met_[entry]; }
  [[nodiscard]] bool any(std::size_t entry) const { return !met_[entry].empty(); }

 private:
  std::vector<std::vector<bool>> met_;
};

// Rays through the centres of a rectangle's pixels.
std::vector<WorldRay> raysOf(const SelectOptions& options, const View& view) {
  std::vector<Vec2<float>> places;
  for (int y = options.rect[1]; y <= options.rect[3]; ++y)
    for (int x = options.rect[0]; x <= options.rect[2]; ++x)
      places.push_back(view.ndc(x + 0.5, y + 0.5));
  std::vector<WorldRay> rays(places.size());
  view.makeRays(places.data(), places.size(), rays.data());
  return rays;
}

// What shows: the nearest hit of each ray.
void castAtFront(const RayCaster& caster, const MeshList& list, const std::vector<WorldRay>& rays,
                 FacesMet& met) {
  std::vector<SurfaceHit> hits(rays.size());
  caster.intersect(rays.data(), rays.size(), hits.data());
  for (const SurfaceHit& hit : hits)
    if (hit.hit) met.add(hit.entry, list.shapeOf(hit.entry).sceneFace(hit.face));
}

// All that the rays meet.
void castThrough(const RayCaster& caster, const MeshList& list, const std::vector<WorldRay>& rays,
                 FacesMet& met) {
  caster.intersectAll(
      rays.data(), rays.size(),
      [&](std::size_t, const SurfaceHit& hit) {
        met.add(hit.entry, list.shapeOf(hit.entry).sceneFace(hit.face));
      },
      interruptibleWork());
  throwIfInterrupted();
}

// Where a world point shows in the picture, in pixels from the top left corner; false behind the
// camera.
class PixelFinder {
 public:
  explicit PixelFinder(const View& view)
      : view_(view),
        cameraFromWorld_(view.worldFromCamera.inverse()),
        ndcFromWindow_(vela::Camera::BuildNDCTransform(view.sample, true)) {}

  bool find(const Vec3<double>& world, Vec2<double>& pixel) const {
    constexpr double kPi = 3.141592653589793;
    const Vec3<double> p = cameraFromWorld_.transformPoint(world);
    const double aspect = static_cast<double>(view_.height) / view_.width;
    Vec3<double> ndc;
    switch (view_.lens) {
      case vela::LensProjection::spherical: {
        const double length = p.length();
        if (!(length > 0.0)) return false;
        const double phi = std::atan2(-p.x, p.z), theta = std::acos(-p.y / length);
        ndc = ndcFromWindow_.transformPoint({(phi < 0.0 ? phi + 2.0 * kPi : phi) / kPi - 1.0,
                                             (2.0 * theta / kPi - 1.0) * aspect, 0.0});
        break;
      }
      case vela::LensProjection::cylindrical: {
        const double radius = std::sqrt(p.x * p.x + p.z * p.z),
                     half = 0.5 * static_cast<double>(view_.sample.lensMagnification());
        if (!(radius > 0.0)) return false;
        const double phi = std::atan2(-p.x, p.z);
        ndc = ndcFromWindow_.transformPoint(
            {(phi < 0.0 ? phi + 2.0 * kPi : phi) / kPi - 1.0, p.y / radius / half, 0.0});
        break;
      }
      default: {
        const tarn::Vec4<double> clip =
            view_.sample.projectionMatrix().transform({p.x, p.y, p.z, 1.0});
        if (!(clip.w > 0.0)) return false;
        const tarn::Vec4<double> unit = clip.wNormalized();
        ndc = {unit.x, unit.y, 0.0};
        break;
      }
    }
    pixel = {(ndc.x + 1.0) * 0.5 * view_.width, 0.5 * (view_.height - ndc.y * view_.width)};
    return std::isfinite(pixel.x) && std::isfinite(pixel.y);
  }

 private:
  const View& view_;
  tarn::Mat4<double> cameraFromWorld_, ndcFromWindow_;
};

void choose(WeightedPartSelection& part, std::size_t size, std::size_t index) {
  if (part.selections.size() < size) part.resize(size);
  part.selections[index] = 1.0f;
}

// Picked elements get the value 1, whatever they had: to pick twice is to pick.
void addFaces(GeoSelection& selection, const Shape& shape, const std::vector<bool>& faces) {
  WeightedPartSelection& part =
      selection.getWritablePartSelection(shape.prim.getPath(), vela::Selection::faces);
  for (std::size_t f = 0; f < faces.size(); ++f)
    if (faces[f])
      choose(part, shape.refinement ? shape.refinement->counts.size() : shape.counts.size(), f);
}

// Of the faces met, the points that show within the rectangle.
bool addVertices(GeoSelection& selection, const MeshEntry& entry, const Shape& shape,
                 const std::vector<bool>& faces, const SelectOptions& options,
                 const PixelFinder& finder) {
  // The scene's own faces and points; those of a refined mesh lie where refinement has put them.
  const Refinement* from = shape.refinement.get();
  const ovo::Array<int>&counts = from ? from->counts : shape.counts,
        &indices = from ? from->indices : shape.indices;
  const std::size_t pointCount = from ? from->points.size() : shape.points.size();
  const Vec3<float>* data = shape.points.cdata();
  std::vector<std::size_t> chosen;
  std::size_t start = 0;
  for (std::size_t f = 0; f < counts.size(); ++f) {
    const int count = counts.cdata()[f];
    const std::size_t corners = count > 0 ? static_cast<std::size_t>(count) : 0;
    if (f < faces.size() && faces[f])
      for (std::size_t c = start; c < start + corners; ++c) {
        const auto point =
            static_cast<std::size_t>(indices.cdata()[c]);  // a face that was hit has usable indices
        Vec2<double> pixel;
        const int place = from ? from->refinedPointOf.cdata()[point] : static_cast<int>(point);
        if (place < 0 ||
            !finder.find(entry.worldFromObject.transformPoint(Vec3<double>(data[place])), pixel))
          continue;
        if (pixel.x >= options.rect[0] && pixel.x < options.rect[2] + 1 &&
            pixel.y >= options.rect[1] && pixel.y < options.rect[3] + 1)
          chosen.push_back(point);
      }
    start += corners;
  }
  if (chosen.empty()) return false;
  WeightedPartSelection& part =
      selection.getWritablePartSelection(entry.prim.getPath(), vela::Selection::vertices);
  for (const std::size_t point : chosen) choose(part, pointCount, point);
  return true;
}

// Elements of one part that have a value, as runs of equal ones.
std::vector<SelectionReport::Run> runsOf(const WeightedPartSelection& part) {
  std::vector<SelectionReport::Run> runs;
  for (std::size_t i = 0; i < part.selections.size(); ++i) {
    const float value = part.selections[i],
                weight = i < part.weights.size() ? part.weights[i] : 0.0f;
    if (value == 0.0f && weight == 0.0f) continue;
    if (!runs.empty() && runs.back().last + 1 == i && runs.back().value == value &&
        runs.back().weight == weight)
      runs.back().last = i;
    else
      runs.push_back({i, i, value, weight});
  }
  return runs;
}

SelectionReport reportOf(const GeoSelection& selection) {
  SelectionReport report;
  for (const auto& [path, object] : selection) {
    const WeightedPartSelection &vertices = object.getPartSelection(vela::Selection::vertices),
                                &faces = object.getPartSelection(vela::Selection::faces);
    report.objects.push_back({path.asString(), object.objectSelected, vertices.size(), faces.size(),
                              runsOf(vertices), runsOf(faces)});
  }
  std::sort(report.objects.begin(), report.objects.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  return report;
}

void printRuns(const char* name, std::size_t size, const std::vector<SelectionReport::Run>& runs) {
  if (size == 0) return;
  std::size_t count = 0;
  for (const SelectionReport::Run& run : runs) count += run.last - run.first + 1;
  std::printf("  %zu of %zu %s:", count, size, name);
  for (const SelectionReport::Run& run : runs) {
    std::printf(run.first == run.last ? " %zu" : " %zu-%zu", run.first, run.last);
    if (run.value != 1.0f) std::printf(" (%s)", toText(run.value).c_str());
    if (run.weight != 0.0f) std::printf(" (weight %s)", toText(run.weight).c_str());
  }
  std::printf("\n");
}

void print(const SelectionReport& report) {
  if (report.objects.empty()) std::puts("nothing is selected");
  for (const SelectionReport::Object& object : report.objects) {
    std::printf("%s%s\n", object.path.c_str(), object.selected ? "  (whole object)" : "");
    printRuns("faces", object.faceCount, object.faces);
    printRuns("vertices", object.vertexCount, object.vertices);
  }
}

const char* wordOf(PickedPart part) {
  return part == PickedPart::objects ? "objects" : part == PickedPart::faces ? "faces" : "vertices";
}

}  // namespace

void select(const SelectOptions& options) {
  if (!options.show.empty()) {
    const SelectionReport report = reportOf(readSelection(options.show));
    if (options.json)
      std::fputs(toJson(report).c_str(), stdout);
    else
      print(report);
    return;
  }

  GeoSelection selection;
  if (!options.add.empty()) selection = readSelection(options.add);
  const SceneOptions& scene = options.scene;
  const std::shared_ptr<ovo::Stage> stage = openStage("select", scene.file);
  const MeshList list = listMeshes("select", *stage, scene);
  const vela::scene::Extent extent = findExtent(list);
  const View view = makeView(*stage, scene, extent);
  if (options.rect[2] >= view.width || options.rect[3] >= view.height)
    throw Failure{kUsage, "wrong usage", "--rect",
                  "lies outside the picture of " + std::to_string(view.width) + " x " +
                      std::to_string(view.height) + " pixels",
                  "try a larger --size"};

  FacesMet met(list);
  const RayCaster caster = makeCaster(scene, list, extent);
  const std::vector<WorldRay> rays = raysOf(options, view);
  if (options.through)
    castThrough(caster, list, rays, met);
  else
    castAtFront(caster, list, rays, met);

  const PixelFinder finder(view);
  std::size_t objects = 0;
  for (std::size_t i = 0; i < list.entries.size(); ++i) {
    if (!met.any(i)) continue;
    const MeshEntry& entry = list.entries[i];
    if (options.parts == PickedPart::objects)
      selection.setObjectSelected(entry.prim.getPath(), true);
    else if (options.parts == PickedPart::faces)
      addFaces(selection, list.shapeOf(i), met.of(i));
    else if (!addVertices(selection, entry, list.shapeOf(i), met.of(i), options, finder))
      continue;
    ++objects;
  }
  writeSelection(selection, options.output);
  std::printf("%s: %s of %zu object%s picked; %zu in all\n", options.output.c_str(),
              wordOf(options.parts), objects, objects == 1 ? "" : "s", selection.size());
}

}  // namespace command
