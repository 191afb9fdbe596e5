#include "vela/look/PreviewResponse.h"

#include <algorithm>
#include <cmath>

#include "tarn/Constants.h"
#include "tarn/Frame.h"

namespace vela::look {

namespace {

using tarn::Vec3f;

constexpr float kPi = tarn::kPi<float>;
// Smoother surfaces would show a light as a point that no pixel meets.
constexpr float kSmoothest = 0.001f;

Vec3f mix(const Vec3f& a, const Vec3f& b, float t) { return a * (1.0f - t) + b * t; }

// The share of micro facets that look along the half vector and are not hidden, over 4 n.l n.v.
float facets(float roughness, float nl, float nv, float nh) {
  const float alpha = std::max(roughness, kSmoothest) * std::max(roughness, kSmoothest);
  const float alpha2 = alpha * alpha;
  const float base = nh * nh * (alpha2 - 1.0f) + 1.0f;
  const float density = alpha2 / (kPi * base * base);
  // The cosines of g(x) = x / (x (1 - k) + k) cancel those of the divisor.
  const float k = 0.5f * alpha;
  const float hidden = (nl * (1.0f - k) + k) * (nv * (1.0f - k) + k);
  return density / (4.0f * hidden);
}

float finiteOr(float value, float other) { return std::isfinite(value) ? value : other; }

}  // namespace

void PreviewSurface::sanitise() {
  const PreviewSurface defined;
  const auto share = [](float& value, float other) {
    value = std::clamp(finiteOr(value, other), 0.0f, 1.0f);
  };
  const auto colour = [](Vec3f& value, const Vec3f& other) {
    for (std::size_t c = 0; c < 3; ++c) value[c] = std::max(finiteOr(value[c], other[c]), 0.0f);
  };
  colour(diffuseColor, defined.diffuseColor);
  colour(emissiveColor, defined.emissiveColor);
  colour(specularColor, defined.specularColor);
  share(metallic, defined.metallic);
  share(roughness, defined.roughness);
  share(clearcoat, defined.clearcoat);
  share(clearcoatRoughness, defined.clearcoatRoughness);
  ior = std::max(finiteOr(ior, defined.ior), 1.0f);
}

PreviewResponse respond(const PreviewSurface& surface, const Vec3f& normal, const Vec3f& toLight,
                        const Vec3f& toViewer) {
  PreviewResponse response;
  const float nl = dot(normal, toLight), nv = std::max(dot(normal, toViewer), 0.0f);
  // Also false for a NaN.
  if (!(nl > 0.0f)) return response;
  const Vec3f half = (toLight + toViewer).normalized();
  const float nh = std::max(dot(normal, half), 0.0f), vh = std::max(dot(toViewer, half), 0.0f);
  const float edge = 1.0f - vh;
  const float fresnel = edge * edge * edge * edge * edge;
  const float ratio = (1.0f - surface.ior) / (1.0f + surface.ior);
  const float reflectance = ratio * ratio;

  // What reflects straight on, and at the edge.
  Vec3f straight = surface.specularColor, grazing(1.0f, 1.0f, 1.0f);
  float scattered = 1.0f;
  if (!surface.isSpecularWorkflow) {
    const Vec3f tint = mix(Vec3f(1.0f, 1.0f, 1.0f), surface.diffuseColor, surface.metallic);
    straight = mix(tint * reflectance, tint, surface.metallic);
    grazing = tint;
    scattered = 1.0f - surface.metallic;
  }
  const Vec3f reflected = mix(straight, grazing, fresnel);

  response.diffuse =
      surface.diffuseColor * (Vec3f(1.0f, 1.0f, 1.0f) - reflected) * (scattered * nl / kPi);
  response.specular = reflected * (facets(surface.roughness, nl, nv, nh) * nl);
  if (surface.clearcoat > 0.0f) {
    const float coat = reflectance * (1.0f - fresnel) + fresnel;
    response.specular +=
        Vec3f(surface.clearcoat * coat * facets(surface.clearcoatRoughness, nl, nv, nh) * nl);
  }
  return response;
}

namespace {

float alphaOf(float roughness) {
  const float r = std::max(roughness, kSmoothest);
  return r * r;
}

float densityOf(float alpha, float nh) {
  const float base = nh * nh * (alpha * alpha - 1.0f) + 1.0f;
  return alpha * alpha / (kPi * base * base);
}

}  // namespace

ReflectedDirection sampleReflection(const PreviewSurface& surface, const Vec3f& normal,
                                    const Vec3f& toViewer, float u, float v, bool coat) {
  ReflectedDirection out;
  const bool hasCoat = surface.clearcoat > 0.0f;
  const float base = alphaOf(surface.roughness), top = alphaOf(surface.clearcoatRoughness);
  const float alpha = coat && hasCoat ? top : base;

  // A half vector by the density of facets; u below 1 keeps it off the horizon.
  const float share = std::clamp(u, 0.0f, 0.9999999f);
  const float cos2 = (1.0f - share) / (1.0f + (alpha * alpha - 1.0f) * share);
  const float cosine = std::sqrt(std::max(cos2, 0.0f));
  const float sine = std::sqrt(std::max(1.0f - cos2, 0.0f));
  const float angle = 2.0f * kPi * v;
  const tarn::Frame<float> frame = tarn::frameAbout(normal);
  const Vec3f half =
      frame.x * (sine * std::cos(angle)) + frame.y * (sine * std::sin(angle)) + frame.z * cosine;
  const float vh = dot(toViewer, half);
  out.toLight = (half * (2.0f * vh) - toViewer).normalized();
  // Also false for a NaN.
  if (!(vh > 0.0f) || !(dot(out.toLight, normal) > 0.0f)) return out;

  const float facing =
      hasCoat ? 0.5f * (densityOf(base, cosine) + densityOf(top, cosine)) : densityOf(base, cosine);
  const float density = facing * cosine / (4.0f * vh);
  if (!(density > 0.0f)) return out;
  out.weight = respond(surface, normal, out.toLight, toViewer).specular * (1.0f / density);
  return out;
}

namespace {

// Facets that look along the half vector: their density by solid angle.
// \param sine2 of the half vector's angle to the normal
double facetDensity(double alpha, double sine2) {
  const double base = (1.0 - sine2) * alpha * alpha + sine2;
  return alpha * alpha / (tarn::kPi<double> * base * base);
}

}  // namespace

Reflection reflectionTowards(const PreviewSurface& surface, const Vec3f& normal,
                             const Vec3f& toLight, const Vec3f& toViewer) {
  using tarn::Vec3d;
  Reflection out;
  out.toLight = toLight;
  const Vec3d n(normal), l(toLight), v(toViewer);
  const double nl = dot(n, l), nv = std::max(dot(n, v), 0.0);
  const Vec3d half = (l + v).normalized();
  const double vh = dot(v, half), nh = dot(n, half), sine2 = cross(n, half).lengthSquared();
  // Also true for a NaN.
  if (!(nl > 0.0) || !(vh > 0.0) || !(nh > 0.0)) return out;

  const double fresnel = std::pow(1.0 - std::min(vh, 1.0), 5.0);
  const auto ior = static_cast<double>(surface.ior);
  const double reflectance = (1.0 - ior) / (1.0 + ior) * ((1.0 - ior) / (1.0 + ior));
  Vec3d straight(surface.specularColor), grazing(1.0);
  if (!surface.isSpecularWorkflow) {
    const auto metallic = static_cast<double>(surface.metallic);
    grazing = Vec3d(1.0 - metallic) + Vec3d(surface.diffuseColor) * metallic;
    straight = grazing * (reflectance * (1.0 - metallic) + metallic);
  }
  // D G / (4 n.l n.v) n.l, the cosines of G cancelled.
  const auto lobe = [&](float roughness, double& density) {
    const auto alpha = static_cast<double>(alphaOf(roughness));
    density = facetDensity(alpha, sine2);
    const double k = 0.5 * alpha;
    return density / (4.0 * (nl * (1.0 - k) + k) * (nv * (1.0 - k) + k)) * nl;
  };
  double facing = 0.0;
  Vec3d specular =
      (straight * (1.0 - fresnel) + grazing * fresnel) * lobe(surface.roughness, facing);
  if (surface.clearcoat > 0.0f) {
    double ofCoat = 0.0;
    const double coat = static_cast<double>(surface.clearcoat) *
                        (reflectance * (1.0 - fresnel) + fresnel) *
                        lobe(surface.clearcoatRoughness, ofCoat);
    specular += Vec3d(coat);
    facing = 0.5 * (facing + ofCoat);
  }
  out.specular = Vec3f(specular);
  out.density = static_cast<float>(facing * nh / (4.0 * vh));
  return out;
}

Reflection chooseReflection(const PreviewSurface& surface, const Vec3f& normal,
                            const Vec3f& toViewer, float u, float v, bool coat) {
  using tarn::Vec3d;
  const bool isCoat = coat && surface.clearcoat > 0.0f;
  const auto alpha =
      static_cast<double>(alphaOf(isCoat ? surface.clearcoatRoughness : surface.roughness));
  // A half vector by the density of facets, by its sine: exact for small angles.
  const auto share = static_cast<double>(u);
  const double sine2 = alpha * alpha * share / (1.0 + (alpha * alpha - 1.0) * share);
  const double sine = std::sqrt(sine2), turn = 2.0 * tarn::kPi<double> * static_cast<double>(v);
  const tarn::Frame<double> frame = tarn::frameAbout(Vec3d(normal));
  const Vec3d half = frame.x * (sine * std::cos(turn)) + frame.y * (sine * std::sin(turn)) +
                     frame.z * std::sqrt(std::max(1.0 - sine2, 0.0));
  const Vec3d viewer(toViewer);
  const Vec3d toLight = (half * (2.0 * dot(viewer, half)) - viewer).normalized();
  return reflectionTowards(surface, normal, Vec3f(toLight), toViewer);
}

}  // namespace vela::look
