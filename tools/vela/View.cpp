#include "View.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "Failure.h"
#include "vela/camera/SceneCamera.h"

namespace command {

namespace {

using tarn::Mat4;
using tarn::Vec2;
using tarn::Vec3;

constexpr std::size_t kBatch = 64;
constexpr double kPi = 3.141592653589793;

vela::LensProjection lensOf(const std::string& name) {
  const std::vector<std::string> names = {"perspective", "orthographic", "spherical",
                                          "cylindrical"};
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end())
    throw Failure{kUsage, "no such lens", name, "",
                  "try perspective, orthographic, spherical or cylindrical"};
  return static_cast<vela::LensProjection>(found - names.begin());
}

Vec3<double> column(const Mat4<double>& m, std::size_t c) {
  return {m[4 * c], m[4 * c + 1], m[4 * c + 2]};
}

Mat4<double> frame(const Vec3<double>& x, const Vec3<double>& y, const Vec3<double>& z,
                   const Vec3<double>& at) {
  Mat4<double> m;
  const Vec3<double> columns[4] = {x, y, z, at};
  for (std::size_t c = 0; c < 4; ++c)
    for (std::size_t r = 0; r < 3; ++r) m[4 * c + r] = columns[c][r];
  return m;
}

// A view of everything from the front, the right and above, for a scene without a camera.
void frameAll(View& view, const Extent& extent, bool orthographic) {
  const std::vector<Vec3<double>> points =
      extent.box.isEmpty() ? std::vector<Vec3<double>>{Vec3<double>(-0.5), Vec3<double>(0.5)}
                           : extent.outermost;
  const Vec3<double> front = view.up.z > 0.5 ? Vec3<double>(0, -1, 0) : Vec3<double>(0, 0, 1);
  const Vec3<double> right = cross(view.up, front);
  const Vec3<double> z = (front + right * 0.62 + view.up * 0.46).normalized();
  const Vec3<double> x = cross(view.up, z).normalized(), y = cross(z, x);

  // Half the window at distance 1, less a margin.
  constexpr double kMargin = 0.88, kMagnification = 36.0 / 50.0;
  const double halfX = 0.5 * kMagnification * kMargin, halfY = halfX * view.height / view.width;

  // The distance from which all points lie in it. What then is free on one side is shared with the
  // other, a few times over: what lies nearer takes more room.
  Vec3<double> centre = extent.box.isEmpty() ? Vec3<double>() : extent.box.center();
  double distance = 0.0, window = 0.0;
  for (int round = 0; round < 4; ++round) {
    distance = window = 0.0;
    for (const Vec3<double>& point : points) {
      const Vec3<double> p = point - centre;
      const double reach = std::max(std::abs(dot(p, x)) / halfX, std::abs(dot(p, y)) / halfY);
      distance = std::max(distance, dot(p, z) + reach);
      window = std::max(window, reach * kMagnification);
    }
    if (!(distance > 0.0) || round == 3) break;
    Vec2<double> low(1e300), high(-1e300);
    for (const Vec3<double>& point : points) {
      const Vec3<double> p = point - centre;
      const double away = orthographic ? 1.0 : std::max(distance - dot(p, z), 1e-9 * distance);
      const Vec2<double> seen(dot(p, x) / away, dot(p, y) / away);
      low = {std::min(low.x, seen.x), std::min(low.y, seen.y)};
      high = {std::max(high.x, seen.x), std::max(high.y, seen.y)};
    }
    const double scale = orthographic ? 0.5 : 0.5 * distance;
    centre += x * ((low.x + high.x) * scale) + y * ((low.y + high.y) * scale);
  }
  if (!(distance > 0.0) || !std::isfinite(distance)) distance = 1.0;
  if (!(window > 0.0) || !std::isfinite(window)) window = 1.0;

  view.worldFromCamera = frame(x, y, z, centre + z * distance);
  view.sample.sensor.apertureSize = orthographic
                                        ? Vec2<double>(window, window * view.height / view.width)
                                        : Vec2<double>(36.0, 36.0 * view.height / view.width);
  view.sample.optics.focalLength = orthographic ? 1.0 : 50.0;
  view.sample.lensAp.clipNearDistance = 0.0;
  view.sample.lensAp.clipFarDistance = static_cast<double>(std::numeric_limits<float>::max());
}

}  // namespace

Vec2<float> View::ndc(double x, double y) const {
  const double w = width, h = height;
  return {static_cast<float>(2.0 * x / w - 1.0), static_cast<float>((h - 2.0 * y) / w)};
}

View makeView(const ovo::Stage& stage, const ViewOptions& options, const Extent& extent) {
  View view;
  view.up = stage.getUpAxis().asString() == "Z" ? Vec3<double>(0, 0, 1) : Vec3<double>(0, 1, 0);
  const bool lensIsNamed = !options.lens.empty();
  if (lensIsNamed) view.lens = lensOf(options.lens);

  // The camera: the one that is named, else the first.
  const std::vector<ovo::CameraPrim> cameras = listCameras(stage);
  ovo::CameraPrim camera;
  if (!options.camera.empty()) {
    camera = ovo::CameraPrim(stage.getPrimAtPath(ovo::Path(options.camera)));
    if (!camera.isValid())
      throw Failure{kBadInput, "no such camera", options.camera, "",
                    cameras.empty()
                        ? "the scene has none: leave --camera out and it is framed whole"
                        : "try --camera " + cameras.front().getPath().asString()};
  } else if (!cameras.empty()) {
    camera = cameras.front();
  }

  const bool isSpherical = view.lens == vela::LensProjection::spherical;
  view.width = options.width > 0 ? options.width : 1280;
  view.height = options.height > 0 ? options.height : isSpherical ? 640 : 720;

  // The camera's sample; a linear lens of the other kind shows the same window at the distance of
  // what there is to see.
  const bool isNamed = !options.camera.empty();
  if (camera.isValid() && !vela::sampleCameraPrim(camera, options.time, view.sample)) {
    const std::string path = camera.getPath().asString();
    const std::string why =
        "it has no film width, focal length or placement that a picture could be made with";
    if (isNamed)
      throw Failure{kBadInput, "the camera cannot be used", path, why,
                    "try another --camera, or none"};
    std::fprintf(stderr, "vela: warning: the camera cannot be used: %s: %s\n", path.c_str(),
                 why.c_str());
    camera = ovo::CameraPrim();
  }
  if (camera.isValid()) {
    view.camera = camera.getPath().asString();
    view.worldFromCamera = view.sample.xform.l2w;
    const vela::LensProjection own = vela::cameraPrimLens(camera, options.time);
    if (!lensIsNamed) view.lens = own;
    const Vec3<double> toCentre = (extent.box.isEmpty() ? Vec3<double>() : extent.box.center()) -
                                  column(view.worldFromCamera, 3);
    double distance = -dot(toCentre, column(view.worldFromCamera, 2));
    if (!(distance > 0.0)) distance = toCentre.length() > 0.0 ? toCentre.length() : 1.0;
    auto& aperture = view.sample.sensor.apertureSize;
    auto& focalLength = view.sample.optics.focalLength;
    if (view.lens == vela::LensProjection::orthographic && own != view.lens) {
      aperture = aperture * (distance / focalLength);
      focalLength = 1.0;
    } else if (view.lens == vela::LensProjection::perspective && own != view.lens) {
      focalLength = distance;
    }
  } else {
    frameAll(view, extent, view.lens == vela::LensProjection::orthographic);
  }

  // The round lenses look all around, whatever the camera's film: the width is the full circle.
  // With this focal length the cylinder's height has the same scale.
  if (view.lens == vela::LensProjection::spherical ||
      view.lens == vela::LensProjection::cylindrical) {
    view.sample.sensor.apertureSize = Vec2<double>(2.0 * kPi, 2.0 * kPi * view.height / view.width);
    view.sample.sensor.apertureTranslate = Vec2<double>();
    view.sample.optics.focalLength = 1.0;
  }

  view.projection.reset(vela::CreateProjectionFunc(view.lens));
  view.sample.time = options.time;
  view.sample.xform.l2w = view.worldFromCamera;
  view.sample.updateDerivedValues(view.projection.get());
  return view;
}

RayMaker::RayMaker(const View& view, const Vec3<double>& origin)
    : view_(view), samples_(kBatch, view.sample), coords_(kBatch), contexts_(kBatch) {
  originFromCamera_.translate(-origin.x, -origin.y, -origin.z);
  originFromCamera_ *= view.worldFromCamera;
}

void RayMaker::make(const Vec2<float>* ndc, std::size_t count,
                    std::vector<tarn::Ray<float>>& rays) {
  const auto image = vela::ProjectionImageContext::forSize(view_.width, view_.height);
  rays.resize(count);
  for (std::size_t first = 0; first < count; first += kBatch) {
    const std::size_t n = std::min(kBatch, count - first);
    for (std::size_t i = 0; i < n; ++i) {
      coords_[i].x = ndc[first + i].x;
      coords_[i].y = ndc[first + i].y;
    }
    view_.projection->generateRayGeometry(static_cast<unsigned>(n), coords_.data(), samples_.data(),
                                          image, contexts_.data());
    for (std::size_t i = 0; i < n; ++i) {
      vela::RayContext& context = contexts_[i];
      context.transform(originFromCamera_);
      tarn::Ray<float>& ray = rays[first + i];
      ray.origin = context.origin;
      ray.direction = context.direction;
      ray.minDistance = context.minDistance;
      ray.maxDistance = context.maxDistance;
    }
  }
}

float depthOf(const View& view, const Vec3<float>& direction, double distance) {
  if (!view.projection->isLinear()) return static_cast<float>(distance);
  return static_cast<float>(-dot(Vec3<double>(direction), column(view.worldFromCamera, 2)) *
                            distance);
}

}  // namespace command
