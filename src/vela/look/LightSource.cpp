#include "vela/look/LightSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "tarn/Constants.h"
#include "tarn/Frame.h"

namespace vela::look {

namespace {

using ovo::Path;
using ovo::Prim;
using ovo::PropertyLinks;
using ovo::Token;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

constexpr double kPi = tarn::kPi<double>;
constexpr double kFar = std::numeric_limits<double>::infinity();

bool isFinite(float value) { return std::isfinite(value); }
bool isFinite(const Vec3f& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// Reads the inputs of one light.
class Reader {
 public:
  Reader(const Prim& prim, double time, std::vector<std::string>& defects)
      : prim_(prim), time_(time), defects_(defects) {}

  template <class T>
  T value(const char* input, const T& defined) const {
    const std::optional<ovo::Attribute> from = source(input);
    T value = defined;
    return from && from->get(value, time_) ? value : defined;
  }

  // The same for numbers, which must be finite.
  template <class T>
  T number(const char* input, const T& defined) {
    const T read = value(input, defined);
    if (isFinite(read)) return read;
    defects_.push_back(std::string(input) + " is not finite");
    return defined;
  }

  float size(const char* input, float defined) { return std::max(number(input, defined), 0.0f); }

  ovo::FileReference file(const char* input) const {
    ovo::FileReference file;
    const std::optional<ovo::Attribute> from = source(input);
    if (from && from->typeName() == "asset")
      PropertyLinks(from->prim()).file(from->name(), file, time_);
    return file;
  }

  [[nodiscard]] bool has(const char* prefix) const {
    for (const Token& name : PropertyLinks(prim_).propertyNames(prefix)) {
      std::vector<Path> sources;
      if (prim_.getAttr(name).hasAuthoredValue() ||
          (PropertyLinks(prim_).connections(name, sources) && !sources.empty()))
        return true;
    }
    return false;
  }

 private:
  // Connections in a circle, or a chain without end, end here.
  static constexpr int kDeepest = 100;

  // Where an input's value stands: at the end of its first connection that leads to one, else here.
  [[nodiscard]] std::optional<ovo::Attribute> source(const char* input) const {
    return follow(prim_, Token(std::string("inputs:") + input), 0);
  }

  static std::optional<ovo::Attribute> follow(const Prim& prim, const Token& name, int depth) {
    std::vector<Path> sources;
    if (depth < kDeepest && PropertyLinks(prim).connections(name, sources) && !sources.empty()) {
      Path path;
      Token property;
      PropertyLinks::split(sources.front(), path, property);
      const Prim from = prim.getStage()->getPrimAtPath(path);
      if (from.isValid() && property.asString().compare(0, 7, "inputs:") == 0)
        if (auto found = follow(from, property, depth + 1)) return found;
    }
    const ovo::Attribute own = prim.getAttr(name);
    if (!own.isValid() || (depth > 0 && !own.hasAuthoredValue())) return std::nullopt;
    return own;
  }

  const Prim& prim_;
  double time_;
  std::vector<std::string>& defects_;
};

// Axes of the light's space in the world, with their lengths.
struct Axes {
  Vec3d x, y, z, origin;
};
Axes axesOf(const LightSource& light) {
  const tarn::Mat4d& m = light.worldFromLight;
  return {m.transformVector({1, 0, 0}), m.transformVector({0, 1, 0}), m.transformVector({0, 0, 1}),
          m.transformPoint({0, 0, 0})};
}

// Of an area of a surface in the light's space with a unit normal: the area and the normal in the
// world. The cross product of two transformed tangents has both.
Vec3d worldAreaVector(const Axes& axes, const Vec3d& normal) {
  const Vec3d scaled = cross(axes.y, axes.z) * normal.x + cross(axes.z, axes.x) * normal.y +
                       cross(axes.x, axes.y) * normal.z;
  // A mirrored space turns cross products round.
  return dot(cross(axes.x, axes.y), axes.z) < 0.0 ? -scaled : scaled;
}

// The radius in the world of a sphere whose transform keeps it one; negative otherwise.
double roundRadius(const LightSource& light, const Axes& axes) {
  const double a = axes.x.length(), b = axes.y.length(), c = axes.z.length();
  const double near = 1e-6 * a;
  const bool isRound = std::abs(a - b) <= near && std::abs(a - c) <= near &&
                       std::abs(dot(axes.x, axes.y)) <= near * a &&
                       std::abs(dot(axes.y, axes.z)) <= near * a &&
                       std::abs(dot(axes.z, axes.x)) <= near * a;
  return isRound ? a * static_cast<double>(light.radius) : -1.0;
}

// How many steps the sums over curved areas take, each way. Of spheres scaled up to ten times as
// much along one axis the sum is within 1e-3 of the area.
constexpr int kAreaSteps = 64;

// Half of the angle that a distant light fills, in radians.
double halfAngle(const LightSource& light) {
  return static_cast<double>(light.angle) * kPi / 360.0;
}

// The area of the cap of a unit sphere: 2 pi (1 - cos), without its cancellation.
double capArea(double halfAngle) {
  const double s = std::sin(0.5 * halfAngle);
  return 4.0 * kPi * s * s;
}

// What a unit of radiance is divided by with `normalize`.
double sizeFactor(const LightSource& light) {
  switch (light.kind) {
    case LightKind::dome: return 1.0;
    case LightKind::distant: {
      const double half = halfAngle(light), sine = std::sin(half);
      if (half == 0.0) return 1.0;
      return half <= 0.5 * kPi ? kPi * sine * sine : kPi * (2.0 - sine * sine);
    }
    default: return light.worldArea();
  }
}

float smoothstep(float t, float low, float high) {
  if (!(high > low)) return t < high ? 0.0f : 1.0f;
  const float x = std::clamp((t - low) / (high - low), 0.0f, 1.0f);
  return x * x * (3.0f - 2.0f * x);
}

// The rotation of a dome: its axes at right angles and of unit length, whatever scale the prim has.
Axes rotationOf(const LightSource& light) {
  const Axes axes = axesOf(light);
  Axes out;
  out.y = axes.y.normalized();
  out.z = (axes.z - out.y * dot(axes.z, out.y)).normalized();
  out.x = cross(out.y, out.z);
  if (dot(out.x, axes.x) < 0.0) out.x = -out.x;
  // Also where some axis is NaN, or too short to have a direction.
  const bool isWhole = out.x.length() > 0.5 && out.y.length() > 0.5 && out.z.length() > 0.5;
  return isWhole ? out : Axes{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {}};
}

Vec2d toDisk(double u, double v) {
  const double r = std::sqrt(u), angle = 2.0 * kPi * v;
  return {r * std::cos(angle), r * std::sin(angle)};
}

// A sample from a point of the light's area.
// \param area its size and normal in the world, of one unit of the light's own measure
void fromArea(const LightSource& light, const Vec3d& point, const Vec3d& place, const Vec3d& area,
              double units, LightSample& out) {
  const Vec3d way = place - point;
  const double distance = way.length(), size = area.length();
  if (!(distance > 0.0) || !(size * units > 0.0)) return;
  const Vec3d toLight = way / distance;
  const double facing = -dot(toLight, area) / size;
  out.toLight = Vec3f(toLight);
  out.distance = distance;
  if (!(facing > 0.0)) return;
  out.density = distance * distance / (facing * size * units);
  out.radiance = light.radiance * light.shapingTowards(-toLight);
}

Vec2f onRect(const LightSource& light, double x, double y) {
  return {static_cast<float>(0.5 - x / static_cast<double>(light.width)),
          static_cast<float>(0.5 + y / static_cast<double>(light.height))};
}

// Of a light without a size across the way: its direction and what arrives from there.
void fromThin(const LightSource& light, const Vec3d& point, const Vec3d& place, double factor,
              LightSample& out) {
  const Vec3d way = place - point;
  const double distance = way.length();
  if (!(distance > 0.0)) return;
  const Vec3d toLight = way / distance;
  out.toLight = Vec3f(toLight);
  out.distance = distance;
  out.radiance = light.radiance * light.shapingTowards(-toLight) *
                 static_cast<float>(factor / (distance * distance));
}

// The cone that a sphere fills, as the sine squared of half its angle.
struct Cone {
  Vec3d axis;
  double distance = 0.0, sine2 = 0.0;
  [[nodiscard]] double area() const { return capArea(std::asin(std::sqrt(sine2))); }
};
bool coneOf(const Vec3d& point, const Vec3d& centre, double radius, Cone& cone) {
  const Vec3d way = centre - point;
  cone.distance = way.length();
  // Within the sphere its dark side is seen.
  if (!(cone.distance > radius) || !(radius > 0.0)) return false;
  cone.axis = way / cone.distance;
  const double sine = radius / cone.distance;
  cone.sine2 = sine * sine;
  return true;
}

// Where a ray enters a sphere; negative when it does not.
double entersSphere(const Vec3d& point, const Vec3d& direction, const Vec3d& centre,
                    double radius) {
  const Vec3d way = centre - point;
  const double along = dot(way, direction);
  const double off2 = (way - direction * along).lengthSquared();
  const double inside = radius * radius - off2;
  return inside < 0.0 ? -1.0 : along - std::sqrt(inside);
}

}  // namespace

std::optional<LightKind> lightKindOf(const Prim& prim) {
  const std::string& type = prim.getTypeName().asString();
  if (type == "DistantLight") return LightKind::distant;
  if (type == "SphereLight") return LightKind::sphere;
  if (type == "RectLight") return LightKind::rect;
  if (type == "DiskLight") return LightKind::disk;
  if (type == "CylinderLight") return LightKind::cylinder;
  if (type == "DomeLight" || type == "DomeLight_1") return LightKind::dome;
  return std::nullopt;
}

bool hasLightProfile(const Prim& prim, double time) {
  std::vector<std::string> ignored;
  return !Reader(prim, time, ignored).file("shaping:ies:file").written.empty();
}

Vec3f blackBodyColour(float kelvin) {
  const double t =
      std::isnan(kelvin) ? 6500.0 : std::clamp(static_cast<double>(kelvin), 1000.0, 10000.0);
  // Chromaticity of CIE 1960, then that of CIE 1931.
  const double u = (0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) /
                   (1.0 + 8.42420235e-4 * t + 7.08145163e-7 * t * t);
  const double v = (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) /
                   (1.0 - 2.89741816e-5 * t + 1.61456053e-7 * t * t);
  const double x = 3.0 * u / (2.0 * u - 8.0 * v + 4.0), y = 2.0 * v / (2.0 * u - 8.0 * v + 4.0);
  const double bigX = x / y, bigZ = (1.0 - x - y) / y;
  const double r = std::max(3.2404542 * bigX - 1.5371385 - 0.4985314 * bigZ, 0.0);
  const double g = std::max(-0.9692660 * bigX + 1.8760108 + 0.0415560 * bigZ, 0.0);
  const double b = std::max(0.0556434 * bigX - 0.2040259 + 1.0572252 * bigZ, 0.0);
  const double luminance = 0.2126 * r + 0.7152 * g + 0.0722 * b;
  return Vec3f(Vec3d(r, g, b) / luminance);
}

Vec3f LightSource::shapingTowards(const Vec3d& away) const {
  if (!isShaped) return {1.0f, 1.0f, 1.0f};
  const Vec3d axis = worldFromLight.transformVector({0, 0, -1}).normalized();
  const double cosine = std::clamp(dot(axis, away), -1.0, 1.0);
  const auto degrees = static_cast<float>(std::acos(cosine) * 180.0 / kPi);
  if (!(degrees <= shaping.coneAngle)) return {};
  float share = 1.0f;
  if (shaping.coneSoftness > 0.0f)
    share -=
        smoothstep(degrees, shaping.coneAngle * (1.0f - shaping.coneSoftness), shaping.coneAngle);
  if (shaping.focus == 0.0f) return Vec3f(share);
  const auto focused = static_cast<float>(
      std::pow(std::abs(cosine), static_cast<double>(std::max(shaping.focus, 0.0f))));
  return (shaping.focusTint * (1.0f - focused) + Vec3f(focused)) * share;
}

double LightSource::worldArea() const {
  const Axes axes = axesOf(*this);
  const auto r = static_cast<double>(radius);
  const double flat = cross(axes.x, axes.y).length();
  double sum = 0.0;
  switch (kind) {
    case LightKind::rect: return flat * static_cast<double>(width) * static_cast<double>(height);
    case LightKind::disk: return flat * kPi * r * r;
    case LightKind::sphere: {
      const double round = roundRadius(*this, axes);
      if (round >= 0.0) return 4.0 * kPi * round * round;
      for (int i = 0; i < kAreaSteps; ++i)
        for (int j = 0; j < kAreaSteps; ++j) {
          const double z = (2.0 * i + 1.0) / kAreaSteps - 1.0, s = std::sqrt(1.0 - z * z);
          const double turn = 2.0 * kPi * j / kAreaSteps;
          sum += worldAreaVector(axes, {s * std::cos(turn), s * std::sin(turn), z}).length();
        }
      return sum / (kAreaSteps * kAreaSteps) * 4.0 * kPi * r * r;
    }
    case LightKind::cylinder:
      for (int j = 0; j < kAreaSteps; ++j) {
        const double turn = 2.0 * kPi * j / kAreaSteps;
        sum += worldAreaVector(axes, {0.0, std::cos(turn), std::sin(turn)}).length();
      }
      return sum / kAreaSteps * 2.0 * kPi * r * static_cast<double>(length);
    default: return 0.0;
  }
}

std::optional<LightSource> readLight(const Prim& prim, const tarn::Mat4d& worldFromLight,
                                     double time) {
  const std::optional<LightKind> kind = lightKindOf(prim);
  if (!kind) return std::nullopt;
  LightSource light;
  light.kind = *kind;
  light.worldFromLight = worldFromLight;
  Reader read(prim, time, light.defects);

  // Size.
  light.angle = std::clamp(read.number("angle", 0.53f), 0.0f, 360.0f);
  light.radius = read.size("radius", 0.5f);
  light.width = read.size("width", 1.0f);
  light.height = read.size("height", 1.0f);
  light.length = read.size("length", 1.0f);
  bool isThin = false;
  if (*kind == LightKind::sphere) prim.getAttr("treatAsPoint").get(isThin, time);
  if (*kind == LightKind::cylinder) prim.getAttr("treatAsLine").get(isThin, time);
  const bool isRound = *kind == LightKind::sphere || *kind == LightKind::cylinder;
  light.isThin = isThin || (isRound && light.radius == 0.0f) ||
                 (*kind == LightKind::distant && light.angle == 0.0f);

  // Power.
  const float intensity = read.number("intensity", *kind == LightKind::distant ? 50000.0f : 1.0f);
  const float exposure = read.number("exposure", 0.0f);
  Vec3d power = Vec3d(read.number("color", Vec3f(1.0f))) *
                (static_cast<double>(intensity) * std::exp2(static_cast<double>(exposure)));
  if (read.value("enableColorTemperature", false))
    power = power * Vec3d(blackBodyColour(read.number("colorTemperature", 6500.0f)));
  // What a thin light emits follows from its size, but for the normalised one, whose size cancels:
  // pi r^2 L of a sphere is then a quarter, 2 r L of a cylinder 1 / (pi length).
  const bool isNormalised = read.value("normalize", false);
  const Axes axes = axesOf(light);
  if (light.isThin && *kind == LightKind::sphere) {
    power = power * (isNormalised ? 0.25 : 0.25 * light.worldArea());
  } else if (light.isThin && *kind == LightKind::cylinder) {
    const double along = axes.x.length() * static_cast<double>(light.length);
    const double across = 0.5 * (axes.y.length() + axes.z.length());
    power = power *
            (isNormalised ? 1.0 / (kPi * along) : 2.0 * across * static_cast<double>(light.radius));
  } else if (isNormalised) {
    power = power / sizeFactor(light);
  }
  light.radiance = Vec3f(power);
  if (!isFinite(light.radiance)) {
    light.defects.push_back("its power is not finite");
    light.radiance = {};
  }
  for (std::size_t c = 0; c < 3; ++c) light.radiance[c] = std::max(light.radiance[c], 0.0f);
  const bool isPlaced = isFinite(Vec3f(axes.x)) && isFinite(Vec3f(axes.y)) &&
                        isFinite(Vec3f(axes.z)) && isFinite(Vec3f(axes.origin));
  if (!isPlaced) {
    light.defects.push_back("its transform is not finite");
    light.worldFromLight = tarn::Mat4d();
    light.radiance = {};
  }
  light.diffuse = std::max(read.number("diffuse", 1.0f), 0.0f);
  light.specular = std::max(read.number("specular", 1.0f), 0.0f);

  // Shaping counts wherever the scene says anything of it.
  const std::vector<Token> schemas = PropertyLinks(prim).appliedSchemas();
  light.isShaped =
      *kind != LightKind::distant && *kind != LightKind::dome &&
      (std::find(schemas.begin(), schemas.end(), Token("ShapingAPI")) != schemas.end() ||
       read.has("inputs:shaping:"));
  if (light.isShaped) {
    light.shaping.coneAngle = read.number("shaping:cone:angle", 90.0f);
    light.shaping.coneSoftness = std::clamp(read.number("shaping:cone:softness", 0.0f), 0.0f, 1.0f);
    light.shaping.focus = std::max(read.number("shaping:focus", 0.0f), 0.0f);
    light.shaping.focusTint = read.number("shaping:focusTint", Vec3f(0.0f));
    for (std::size_t c = 0; c < 3; ++c)
      light.shaping.focusTint[c] = std::max(light.shaping.focusTint[c], 0.0f);
  }
  light.shadow.isEnabled = read.value("shadow:enable", true);
  light.shadow.colour = read.number("shadow:color", Vec3f(0.0f));
  for (std::size_t c = 0; c < 3; ++c)
    light.shadow.colour[c] = std::max(light.shadow.colour[c], 0.0f);
  light.shadow.distance = read.number("shadow:distance", -1.0f);
  light.shadow.falloff = read.number("shadow:falloff", -1.0f);
  light.shadow.falloffGamma = std::max(read.number("shadow:falloffGamma", 1.0f), 0.0f);

  // Image.
  if (*kind == LightKind::rect || *kind == LightKind::dome)
    light.texture = read.file("texture:file");
  if (*kind == LightKind::dome) {
    Token pole;
    if (prim.getTypeName() == "DomeLight_1") prim.getAttr("poleAxis").get(pole, time);
    light.isPoleZ = pole == "Z" || (pole == "scene" && prim.getStage()->getUpAxis() == "Z");
    const Token format = read.value("texture:format", Token("automatic"));
    if (!light.texture.written.empty() && format != "automatic" && format != "latlong") {
      light.defects.push_back("its image is " + format.asString() + ", not latlong");
      light.texture = {};
    }
  }
  return light;
}

Vec2f domeCoordinates(const LightSource& dome, const Vec3d& direction) {
  const Axes axes = rotationOf(dome);
  double x = dot(direction, axes.x), y = dot(direction, axes.y), z = dot(direction, axes.z);
  if (dome.isPoleZ) {
    const double height = z;
    z = -y;
    y = height;
  }
  const double length = std::sqrt(x * x + y * y + z * z);
  const double longitude = std::atan2(x, z);
  const double latitude = std::asin(std::clamp(y / length, -1.0, 1.0));
  return {static_cast<float>(0.5 - longitude / (2.0 * kPi)),
          static_cast<float>(0.5 + latitude / kPi)};
}

Vec3d domeDirection(const LightSource& dome, const Vec2d& coordinates) {
  const Axes axes = rotationOf(dome);
  const double longitude = (0.5 - coordinates.x) * 2.0 * kPi;
  const double latitude = (coordinates.y - 0.5) * kPi;
  const double x = std::sin(longitude) * std::cos(latitude), y = std::sin(latitude);
  const double z = std::cos(longitude) * std::cos(latitude);
  return dome.isPoleZ ? axes.x * x + axes.z * y - axes.y * z : axes.x * x + axes.y * y + axes.z * z;
}

LightSample sampleLight(const LightSource& light, const Vec3d& point, const Vec3f& normal, double u,
                        double v) {
  LightSample out;
  const Axes axes = axesOf(light);
  const auto radius = static_cast<double>(light.radius);
  switch (light.kind) {
    case LightKind::distant: {
      out.distance = kFar;
      const double half = halfAngle(light);
      const tarn::Frame3d frame = tarn::frameAbout(axes.z.normalized());
      // 1 - cosine, uniform over the cap; exact for small angles as well.
      const double height = u * capArea(half) / (2.0 * kPi);
      const double sine = std::sqrt(std::max(height * (2.0 - height), 0.0)), turn = 2.0 * kPi * v;
      out.toLight = Vec3f(frame.x * (sine * std::cos(turn)) + frame.y * (sine * std::sin(turn)) +
                          frame.z * (1.0 - height));
      out.radiance = light.radiance;
      if (!light.isThin) out.density = 1.0 / capArea(half);
      return out;
    }
    case LightKind::dome: {
      const Vec2d disk = toDisk(u, v);
      const double height = std::sqrt(std::max(1.0 - u, 0.0));
      const tarn::Frame3d frame = tarn::frameAbout(Vec3d(normal));
      const Vec3d direction = frame.x * disk.x + frame.y * disk.y + frame.z * height;
      return meetLight(light, point, normal, Vec3f(direction));
    }
    case LightKind::sphere: {
      if (light.isThin) {
        fromThin(light, point, axes.origin, 1.0, out);
        return out;
      }
      const double round = roundRadius(light, axes);
      Cone cone;
      if (round >= 0.0) {
        if (!coneOf(point, axes.origin, round, cone)) return out;
        const tarn::Frame3d frame = tarn::frameAbout(cone.axis);
        const double height = u * cone.area() / (2.0 * kPi);
        const double sine = std::sqrt(std::max(height * (2.0 - height), 0.0)), turn = 2.0 * kPi * v;
        const Vec3d toLight = frame.x * (sine * std::cos(turn)) +
                              frame.y * (sine * std::sin(turn)) + frame.z * (1.0 - height);
        out.toLight = Vec3f(toLight);
        // Where rounding has the ray pass the rim by, it is as far as the rim.
        const double enters = entersSphere(point, toLight, axes.origin, round);
        out.distance = enters > 0.0 ? enters : cone.distance * std::sqrt(1.0 - cone.sine2);
        out.density = 1.0 / cone.area();
        out.radiance = light.radiance * light.shapingTowards(-toLight);
        return out;
      }
      const double z = 1.0 - 2.0 * u, s = std::sqrt(std::max(1.0 - z * z, 0.0));
      const Vec3d onUnit(s * std::cos(2.0 * kPi * v), s * std::sin(2.0 * kPi * v), z);
      fromArea(light, point, light.worldFromLight.transformPoint(onUnit * radius),
               worldAreaVector(axes, onUnit), 4.0 * kPi * radius * radius, out);
      return out;
    }
    case LightKind::rect: {
      const auto width = static_cast<double>(light.width),
                 height = static_cast<double>(light.height);
      const double x = (u - 0.5) * width, y = (v - 0.5) * height;
      fromArea(light, point, axes.origin + axes.x * x + axes.y * y,
               worldAreaVector(axes, {0, 0, -1}), width * height, out);
      out.onTexture = onRect(light, x, y);
      return out;
    }
    case LightKind::disk: {
      const Vec2d disk = toDisk(u, v);
      fromArea(light, point, axes.origin + (axes.x * disk.x + axes.y * disk.y) * radius,
               worldAreaVector(axes, {0, 0, -1}), kPi * radius * radius, out);
      return out;
    }
    case LightKind::cylinder: {
      const auto length = static_cast<double>(light.length);
      const double x = (u - 0.5) * length;
      if (light.isThin) {
        // By the sine to the line, which it is seen across.
        const Vec3d place = axes.origin + axes.x * x, way = point - place;
        const double along = axes.x.length() * length;
        const double sine = cross(way, axes.x).length() / (way.length() * axes.x.length());
        fromThin(light, point, place, std::isfinite(sine) ? sine * along : 0.0, out);
        return out;
      }
      const Vec3d side(0.0, std::cos(2.0 * kPi * v), std::sin(2.0 * kPi * v));
      fromArea(light, point, light.worldFromLight.transformPoint(Vec3d(x, 0, 0) + side * radius),
               worldAreaVector(axes, side), 2.0 * kPi * radius * length, out);
      return out;
    }
  }
  return out;
}

LightSample meetLight(const LightSource& light, const Vec3d& point, const Vec3f& normal,
                      const Vec3f& toLight) {
  LightSample out;
  if (light.isThin) return out;
  const Vec3d direction = Vec3d(toLight).normalized();
  const Axes axes = axesOf(light);
  const auto radius = static_cast<double>(light.radius);
  out.toLight = toLight;
  switch (light.kind) {
    case LightKind::distant: {
      const double half = halfAngle(light);
      // By the chord between the two directions: exact for small angles as well.
      const double chord = 0.5 * (direction - axes.z.normalized()).length();
      if (chord > std::sin(0.5 * half)) return out;
      out.distance = kFar;
      out.radiance = light.radiance;
      out.density = 1.0 / capArea(half);
      return out;
    }
    case LightKind::dome:
      out.distance = kFar;
      out.radiance = light.radiance;
      out.density = std::max(dot(direction, Vec3d(normal)), 0.0) / kPi;
      out.onTexture = domeCoordinates(light, direction);
      return out;
    default: break;
  }

  // In the light's own space, where distances along the ray are the same.
  const double round = light.kind == LightKind::sphere ? roundRadius(light, axes) : -1.0;
  if (round >= 0.0) {
    Cone cone;
    if (!coneOf(point, axes.origin, round, cone)) return out;
    const double distance = entersSphere(point, direction, axes.origin, round);
    if (!(distance > 0.0)) return out;
    out.distance = distance;
    out.density = 1.0 / cone.area();
    out.radiance = light.radiance * light.shapingTowards(-direction);
    return out;
  }
  const tarn::Mat4d lightFromWorld = light.worldFromLight.inverse();
  const Vec3d from = lightFromWorld.transformPoint(point);
  const Vec3d along = lightFromWorld.transformVector(direction);
  if (light.kind == LightKind::rect || light.kind == LightKind::disk) {
    const double distance = -from.z / along.z;
    const Vec3d at = from + along * distance;
    const auto halfWidth = 0.5 * static_cast<double>(light.width);
    const auto halfHeight = 0.5 * static_cast<double>(light.height);
    const bool isOn = light.kind == LightKind::rect
                          ? std::abs(at.x) <= halfWidth && std::abs(at.y) <= halfHeight
                          : at.x * at.x + at.y * at.y <= radius * radius;
    if (!(distance > 0.0) || !isOn || !std::isfinite(distance)) return out;
    const double units =
        light.kind == LightKind::rect ? 4.0 * halfWidth * halfHeight : kPi * radius * radius;
    fromArea(light, point, point + direction * distance, worldAreaVector(axes, {0, 0, -1}), units,
             out);
    if (light.kind == LightKind::rect) out.onTexture = onRect(light, at.x, at.y);
    return out;
  }
  // A sphere that is stretched, or a cylinder: where the ray enters it. The side that it leaves by
  // is dark.
  const bool isSphere = light.kind == LightKind::sphere;
  const double a = along.y * along.y + along.z * along.z + (isSphere ? along.x * along.x : 0.0);
  const double b = from.y * along.y + from.z * along.z + (isSphere ? from.x * along.x : 0.0);
  const double c =
      from.y * from.y + from.z * from.z + (isSphere ? from.x * from.x : 0.0) - radius * radius;
  const double under = b * b - a * c;
  if (!(a > 0.0) || !(under >= 0.0)) return out;
  const double distance = (-b - std::sqrt(under)) / a;
  const Vec3d at = from + along * distance;
  const auto length = static_cast<double>(light.length);
  if (!(distance > 0.0) || (!isSphere && std::abs(at.x) > 0.5 * length)) return out;
  const Vec3d side = Vec3d(isSphere ? at.x : 0.0, at.y, at.z) / radius;
  fromArea(light, point, point + direction * distance, worldAreaVector(axes, side),
           isSphere ? 4.0 * kPi * radius * radius : 2.0 * kPi * radius * length, out);
  return out;
}

}  // namespace vela::look
