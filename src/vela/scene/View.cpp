#include "vela/scene/View.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

#include "tarn/Constants.h"
#include "tarn/Frame.h"
#include "vela/camera/RayContext.h"
#include "vela/camera/SceneCamera.h"
#include "vela/scene/ScenePrims.h"

namespace vela::scene {

namespace {

using tarn::Mat4d;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

constexpr std::size_t kBatch = 64;
constexpr double kPi = tarn::kPi<double>;

Vec3d column(const Mat4d& m, std::size_t c) { return {m[4 * c], m[4 * c + 1], m[4 * c + 2]}; }

Mat4d worldFromFrame(const tarn::Frame3d& axes, const Vec3d& at) {
  Mat4d m;
  const Vec3d columns[4] = {axes.x, axes.y, axes.z, at};
  for (std::size_t c = 0; c < 4; ++c)
    for (std::size_t r = 0; r < 3; ++r) m[4 * c + r] = columns[c][r];
  return m;
}

Vec3d turned(const Vec3d& v, const Vec3d& up, double degrees) {
  const double angle = degrees * (kPi / 180.0), c = std::cos(angle), s = std::sin(angle);
  return v * c + cross(up, v) * s + up * (dot(up, v) * (1.0 - c));
}

Vec3d middleOf(const Extent& extent) {
  return extent.box.isEmpty() ? Vec3d() : extent.box.center();
}

// The camera goes around the middle of what there is to see.
void turnAround(View& view, const Extent& extent, double degrees) {
  if (degrees == 0.0) return;
  const Vec3d centre = middleOf(extent);
  const Mat4d from = view.worldFromCamera;
  const tarn::Frame3d axes{turned(column(from, 0), view.up, degrees),
                           turned(column(from, 1), view.up, degrees),
                           turned(column(from, 2), view.up, degrees)};
  view.worldFromCamera =
      worldFromFrame(axes, centre + turned(column(from, 3) - centre, view.up, degrees));
}

// Where the points come to stand while a camera goes around them.
std::vector<Vec3d> fromAllSides(const std::vector<Vec3d>& points, const Extent& extent,
                                const Vec3d& up) {
  constexpr int kSides = 32;
  const Vec3d centre = middleOf(extent);
  std::vector<Vec3d> all;
  all.reserve(points.size() * kSides);
  for (const Vec3d& point : points)
    for (int i = 0; i < kSides; ++i)
      all.push_back(centre + turned(point - centre, up, i * (360.0 / kSides)));
  return all;
}

// A view of everything from the front, the right and above, for a scene without a camera.
void frameAll(View& view, const Extent& extent, bool orthographic, bool fromEverySide) {
  std::vector<Vec3d> points =
      extent.box.isEmpty() ? std::vector<Vec3d>{Vec3d(-0.5), Vec3d(0.5)} : extent.outermost;
  if (fromEverySide) points = fromAllSides(points, extent, view.up);
  const Vec3d front = view.up.z > 0.5 ? Vec3d(0, -1, 0) : Vec3d(0, 0, 1);
  const Vec3d right = cross(view.up, front);
  const Vec3d z = (front + right * 0.62 + view.up * 0.46).normalized();
  const tarn::Frame3d axes = tarn::frameAbout(z, view.up);
  const Vec3d &x = axes.x, &y = axes.y;

  // Half the window at distance 1, less a margin.
  constexpr double kMargin = 0.88, kMagnification = 36.0 / 50.0;
  const double halfX = 0.5 * kMagnification * kMargin, halfY = halfX * view.height / view.width;

  // The distance from which all points lie in the window. The camera then moves sideways, so that
  // what is left free on one side is shared with the other. A few rounds, since what lies nearer
  // takes more room.
  Vec3d centre = extent.box.isEmpty() ? Vec3d() : extent.box.center();
  double distance = 0.0, window = 0.0;
  for (int round = 0; round < 4; ++round) {
    distance = window = 0.0;
    for (const Vec3d& point : points) {
      const Vec3d p = point - centre;
      const double reach = std::max(std::abs(dot(p, x)) / halfX, std::abs(dot(p, y)) / halfY);
      distance = std::max(distance, dot(p, z) + reach);
      window = std::max(window, reach * kMagnification);
    }
    if (!(distance > 0.0) || round == 3) break;
    Vec2d low(1e300), high(-1e300);
    for (const Vec3d& point : points) {
      const Vec3d p = point - centre;
      const double away = orthographic ? 1.0 : std::max(distance - dot(p, z), 1e-9 * distance);
      const Vec2d seen(dot(p, x) / away, dot(p, y) / away);
      low = {std::min(low.x, seen.x), std::min(low.y, seen.y)};
      high = {std::max(high.x, seen.x), std::max(high.y, seen.y)};
    }
    const double scale = orthographic ? 0.5 : 0.5 * distance;
    centre += x * ((low.x + high.x) * scale) + y * ((low.y + high.y) * scale);
  }
  if (!(distance > 0.0) || !std::isfinite(distance)) distance = 1.0;
  if (!(window > 0.0) || !std::isfinite(window)) window = 1.0;

  view.worldFromCamera = worldFromFrame(axes, centre + z * distance);
  view.sample.sensor.apertureSize = orthographic ? Vec2d(window, window * view.height / view.width)
                                                 : Vec2d(36.0, 36.0 * view.height / view.width);
  view.sample.optics.focalLength = orthographic ? 1.0 : 50.0;
  view.sample.lensAp.clipNearDistance = 0.0;
  view.sample.lensAp.clipFarDistance = static_cast<double>(std::numeric_limits<float>::max());
}

// The height that goes with a picture's width.
int heightFor(const View& view, const ovo::CameraPrim& camera, double time) {
  double share = 9.0 / 16.0;
  if (view.lens == LensProjection::spherical) {
    share = 0.5;
  } else if (view.lens != LensProjection::cylindrical && camera.isValid()) {
    const ovo::CameraParameters film = camera.getParameters(time);
    const double ofFilm = film.verticalAperture / film.horizontalAperture;
    if (std::isfinite(ofFilm) && ofFilm > 0.0) share = ofFilm;
  }
  constexpr double kMost = 65536.0;
  return static_cast<int>(std::lround(std::clamp(share * view.width, 1.0, kMost)));
}

void sayWithoutEffect(const char* option, const std::string& why, View& view) {
  view.problems.push_back({Problem::Kind::noEffect, Problem::Severity::note, option, why});
}

void openLens(const ovo::CameraPrim& camera, LensProjection own, View& view) {
  const char* const option = "depth of field";
  if (!camera.isValid()) return sayWithoutEffect(option, "there is no camera", view);
  if (view.lens != LensProjection::perspective || own != view.lens)
    return sayWithoutEffect(option, "the camera is none of perspective", view);
  const auto& optics = view.sample.optics;
  const double radius = optics.focalLength / view.sample.lensAp.fStop * 0.5;
  if (!(view.sample.lensAp.fStop > 0.0) || !std::isfinite(radius))
    return sayWithoutEffect(option, camera.getPath().asString() + " has no f-stop", view);
  if (!(optics.focusDistance > 0.0) || !std::isfinite(optics.focusDistance))
    return sayWithoutEffect(option, camera.getPath().asString() + " has no focus distance", view);
  view.lensRadius = radius;
  view.focusDistance = optics.focusDistance;
}

void addClippingPlanes(const ovo::CameraPrim& camera, double time, View& view) {
  if (!camera.isValid()) return sayWithoutEffect("clipping", "there is no camera", view);
  if (view.projection->isLinear()) {
    view.clippingPlanes.emplace_back(0.0, 0.0, -1.0, -view.sample.lensAp.clipNearDistance);
    view.clippingPlanes.emplace_back(0.0, 0.0, 1.0, view.sample.lensAp.clipFarDistance);
  }
  const ovo::CameraParameters parameters = camera.getParameters(time);
  for (const tarn::Vec4f& plane : parameters.clippingPlanes.view())
    view.clippingPlanes.emplace_back(plane);
  auto& planes = view.clippingPlanes;
  planes.erase(std::remove_if(planes.begin(), planes.end(),
                              [](const tarn::Vec4d& p) {
                                return !isFinite(Vec3d(p.x, p.y, p.z)) || !std::isfinite(p.w);
                              }),
               planes.end());
}

// Keeps of a ray what lies on the shown side of the planes; a range that ends before it begins
// meets nothing. Of the linear lenses the camera's range is among the planes, and takes the place
// of the one that each ray has along itself.
void clip(const View& view, const Vec3d& origin, const Vec3d& direction, WorldRay& ray) {
  const bool isLinear = view.projection->isLinear();
  double first = isLinear ? 0.0 : static_cast<double>(ray.minDistance);
  double last = static_cast<double>(isLinear ? std::numeric_limits<float>::max() : ray.maxDistance);
  for (const tarn::Vec4d& plane : view.clippingPlanes) {
    const Vec3d normal(plane.x, plane.y, plane.z);
    const double at = dot(normal, origin) + plane.w, along = dot(normal, direction);
    if (along > 0.0)
      first = std::max(first, -at / along);
    else if (along < 0.0)
      last = std::min(last, -at / along);
    else if (at < 0.0)
      last = -1.0;
  }
  ray.minDistance = static_cast<float>(first);
  ray.maxDistance = static_cast<float>(first > last ? -1.0 : last);
}

}  // namespace

Vec2f View::ndc(double x, double y) const {
  const double w = width, h = height;
  return {static_cast<float>(2.0 * x / w - 1.0), static_cast<float>((h - 2.0 * y) / w)};
}

std::optional<View> makeView(const ovo::Stage& stage, const ViewOptions& options,
                             const Extent& extent, Problem* problem, const Work& work) {
  const auto fail = [&](Problem::Kind kind, const std::string& subject, const std::string& why) {
    if (problem) *problem = {kind, Problem::Severity::error, subject, why};
    return std::nullopt;
  };
  View view;
  view.up = stage.getUpAxis().asString() == "Z" ? Vec3d(0, 0, 1) : Vec3d(0, 1, 0);
  const bool lensIsNamed = options.lens != LensProjection::none;
  if (lensIsNamed) view.lens = options.lens;

  // The camera: the one that is named, else the first.
  const bool isNamed = !options.camera.isEmpty();
  ovo::CameraPrim camera;
  if (isNamed) {
    camera = ovo::CameraPrim(stage.getPrimAtPath(options.camera));
    if (!camera.isValid()) return fail(Problem::Kind::noSuchCamera, options.camera.asString(), "");
  } else {
    const std::vector<ovo::CameraPrim> cameras = listCameras(stage, work);
    if (work.isStopped()) return fail(Problem::Kind::stopped, "", "stopped");
    if (!cameras.empty()) camera = cameras.front();
  }

  view.width = options.width > 0 ? options.width : 1280;

  // The camera's sample; a linear lens of the other kind shows the same window at the distance of
  // what there is to see.
  if (camera.isValid() && !sampleCameraPrim(camera, options.time, view.sample)) {
    const Problem unusable{
        Problem::Kind::unusableCamera, Problem::Severity::warning, camera.getPath().asString(),
        "it has no film width, focal length or placement that a picture could be made with"};
    if (isNamed) return fail(unusable.kind, unusable.subject, unusable.reason);
    view.problems.push_back(unusable);
    camera = ovo::CameraPrim();
  }
  const LensProjection own =
      camera.isValid() ? cameraPrimLens(camera, options.time) : LensProjection::perspective;
  if (!lensIsNamed) view.lens = own;
  view.height = options.height > 0 ? options.height : heightFor(view, camera, options.time);
  if (camera.isValid()) {
    view.camera = camera.getPath();
    view.worldFromCamera = view.sample.xform.l2w;
    const Vec3d toCentre =
        (extent.box.isEmpty() ? Vec3d() : extent.box.center()) - column(view.worldFromCamera, 3);
    double distance = -dot(toCentre, column(view.worldFromCamera, 2));
    if (!(distance > 0.0)) distance = toCentre.length() > 0.0 ? toCentre.length() : 1.0;
    auto& aperture = view.sample.sensor.apertureSize;
    auto& focalLength = view.sample.optics.focalLength;
    if (view.lens == LensProjection::orthographic && own != view.lens) {
      aperture = aperture * (distance / focalLength);
      focalLength = 1.0;
    } else if (view.lens == LensProjection::perspective && own != view.lens) {
      focalLength = distance;
    }
  } else {
    frameAll(view, extent, view.lens == LensProjection::orthographic, options.turn.has_value());
  }

  if (options.turn) turnAround(view, extent, *options.turn);

  // The round lenses look all around, whatever the camera's film: the width is the full circle.
  // With this focal length the cylinder's height has the same scale.
  if (view.lens == LensProjection::spherical || view.lens == LensProjection::cylindrical) {
    view.sample.sensor.apertureSize = Vec2d(2.0 * kPi, 2.0 * kPi * view.height / view.width);
    view.sample.sensor.apertureTranslate = Vec2d();
    view.sample.optics.focalLength = 1.0;
  }

  view.projection.reset(CreateProjectionFunc(view.lens));
  if (options.depthOfField) openLens(camera, own, view);
  if (options.clipping) addClippingPlanes(camera, options.time, view);
  view.sample.time = options.time;
  view.sample.xform.l2w = view.worldFromCamera;
  view.sample.updateDerivedValues(view.projection.get());
  return view;
}

void View::makeRays(const Vec2f* points, std::size_t count, WorldRay* rays) const {
  makeRays(points, nullptr, count, rays);
}

void View::makeRays(const Vec2f* points, const Vec2f* onLens, std::size_t count,
                    WorldRay* rays) const {
  const auto image = ProjectionImageContext::forSize(width, height);
  const Vec3d position = column(worldFromCamera, 3);
  std::array<ProjectCoord, kBatch> coords;
  std::array<RayContext, kBatch> contexts;
  for (std::size_t first = 0; first < count; first += kBatch) {
    const std::size_t n = std::min(kBatch, count - first);
    for (std::size_t i = 0; i < n; ++i) {
      coords[i].x = points[first + i].x;
      coords[i].y = points[first + i].y;
    }
    generateCameraRays(*projection, static_cast<unsigned>(n), coords.data(), sample, image,
                       contexts.data());
    for (std::size_t i = 0; i < n; ++i) {
      RayContext& from = contexts[i];
      if (onLens && lensRadius > 0.0) {
        // To the point of the plane in focus that the middle of the lens would look at.
        const Vec3d middle(from.direction);
        const Vec3d focus = middle * (focusDistance / -middle.z);
        const Vec3d start(static_cast<double>(onLens[first + i].x) * lensRadius,
                          static_cast<double>(onLens[first + i].y) * lensRadius, 0.0);
        from.origin = Vec3f(start);
        from.direction = Vec3f((focus - start).normalized());
      }
      rays[first + i] = {position, worldFromCamera.transformVector(Vec3d(from.origin)),
                         Vec3f(worldFromCamera.transformVector(Vec3d(from.direction))),
                         from.minDistance, from.maxDistance};
      if (!clippingPlanes.empty())
        clip(*this, Vec3d(from.origin), Vec3d(from.direction), rays[first + i]);
    }
  }
}

float depthOf(const View& view, const Vec3f& direction, double distance) {
  if (!view.projection->isLinear()) return static_cast<float>(distance);
  return static_cast<float>(-dot(Vec3d(direction), column(view.worldFromCamera, 2)) * distance);
}

}  // namespace vela::scene
