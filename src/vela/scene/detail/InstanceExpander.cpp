#include "vela/scene/detail/InstanceExpander.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "ovo/PointInstancerPrim.h"
#include "ovo/Tokens.h"
#include "ovo/Xform.h"

namespace vela::scene::detail {

namespace {

using tarn::Mat4d;
using tarn::Vec3d;
using tarn::Vec4d;

constexpr std::size_t kDeepest = 32;

}  // namespace

Mat4d InstanceExpander::Instancer::instancerFromInstance(std::size_t i) const {
  Mat4d m;
  const Vec3d at(positions.view()[i]);
  m.translate(at.x, at.y, at.z);

  if (!orientations.empty()) m *= Mat4d::fromQuaternion(Vec4d(orientations.view()[i]));
  if (!scales.empty()) {
    const Vec3d by(scales.view()[i]);
    m.scale(by.x, by.y, by.z);
  }
  return m;
}

bool InstanceExpander::refuse(const ovo::Prim& instancer, const char* what) {
  problem_ = {Problem::Kind::tooManyInstances, Problem::Severity::error,
              instancer.getPath().asString(), what + std::to_string(mostInstances_)};
  return false;
}

bool InstanceExpander::expand(const ovo::Prim& instancer, const Mat4d& worldFromInstancer,
                              std::uint32_t parent, const ovo::Token& purpose) {
  // An instancer that is part of its own prototype would never end.
  if (open_.size() >= kDeepest || std::find(open_.begin(), open_.end(), instancer) != open_.end())
    return true;
  open_.push_back(instancer);
  const Instancer& from = read(instancer, purpose);

  for (std::size_t i = 0; i < from.protoIndices.size(); ++i) {
    if (++visited_ > mostInstances_) return refuse(instancer, "there are more than ");
    if (visited_ % 1024 == 0 && work_.isStopped()) {
      problem_ = {Problem::Kind::stopped, Problem::Severity::error, "", "stopped"};
      return false;
    }
    if (!from.mask.empty() && !from.mask[i]) continue;
    const int prototype = from.protoIndices.view()[i];
    if (prototype < 0 || static_cast<std::size_t>(prototype) >= from.prototypes.size() ||
        !from.prototypes[static_cast<std::size_t>(prototype)] || i >= from.positions.size()) {
      ++list_.badInstances;
      continue;
    }
    const std::vector<Part>& parts = *from.prototypes[static_cast<std::size_t>(prototype)];
    if (parts.empty()) continue;

    const auto number = static_cast<std::uint32_t>(list_.instances.size());
    Instance instance;
    instance.parent = parent;
    instance.instancer = from.number;
    instance.index = static_cast<int>(i);
    if (!from.colours.empty()) {
      instance.hasColour = true;
      instance.colour = from.colours.view()[from.colours.size() == 1 ? 0 : i];
    } else if (parent != kNoInstance) {
      instance.hasColour = list_.instances[parent].hasColour;
      instance.colour = list_.instances[parent].colour;
    }
    list_.instances.push_back(instance);
    const Mat4d worldFromInstance = worldFromInstancer * from.instancerFromInstance(i);
    for (const Part& part : parts) {
      if (part.shape)
        list_.entries.push_back({ovo::MeshPrim(part.prim),
                                 worldFromInstance * part.instanceFromPart, *part.shape, number});
      else if (!expand(part.prim, worldFromInstance * part.instanceFromPart, number, part.purpose))
        return false;
    }
    if (list_.entries.size() > mostInstances_)
      return refuse(instancer, "their parts are more than ");
  }
  open_.pop_back();
  return true;
}

const InstanceExpander::Instancer& InstanceExpander::read(const ovo::Prim& prim,
                                                          const ovo::Token& purpose) {
  const auto [place, isNew] = known_.try_emplace({prim, purpose});
  Instancer& out = place->second;
  if (!isNew) return out;
  const ovo::Tokens& names = ovo::tokens();
  const double time = filter_.time;
  out.number = static_cast<std::uint32_t>(list_.instancers.size());
  list_.instancers.push_back(prim);

  // Lists. One whose length is not that of the instances says nothing about them; float
  // orientations go before half ones.
  prim.getAttr(names.protoIndices).get(out.protoIndices, time);
  const std::size_t count = out.protoIndices.size();
  prim.getAttr(names.positions).get(out.positions, time);
  prim.getAttr(names.scales).get(out.scales, time);
  prim.getAttr(names.orientationsf).get(out.orientations, time);
  if (out.orientations.empty()) prim.getAttr(names.orientations).get(out.orientations, time);
  if (out.scales.size() != count) out.scales.clear();
  if (out.orientations.size() != count) out.orientations.clear();
  const ovo::Primvar colour = prim.getPrimvar(names.displayColor);
  if (colour.isValid()) colour.computeFlattened(out.colours, time);
  if (colour.isValid() && colour.interpolation() == names.constant && out.colours.size() > 1)
    out.colours.resize(1);
  if (out.colours.size() != 1 && out.colours.size() != count) out.colours.clear();

  // An inactive instance is not there, whatever is asked for; an invisible one can be asked for.
  using ovo::PointInstancerPrim;
  out.mask = PointInstancerPrim(prim).computeMask(
      time, filter_.withInvisible ? PointInstancerPrim::inactive
                                  : PointInstancerPrim::inactiveOrInvisible);

  std::vector<ovo::Path> paths;
  prim.getRelationshipTargets(names.prototypes, paths);
  for (const ovo::Path& path : paths) {
    const ovo::Prim root = stage_.getPrimAtPath(path);
    out.prototypes.emplace_back();
    if (root.isValid()) out.prototypes.back() = partsOf(root, purpose);
  }
  return out;
}

std::vector<InstanceExpander::Part> InstanceExpander::partsOf(const ovo::Prim& root,
                                                              const ovo::Token& purpose) {
  struct State {
    Mat4d instanceFromPrim;
    ovo::Token purpose;
  };
  std::vector<Part> parts;
  std::unordered_map<ovo::Prim, State> states;
  const ovo::Tokens& names = ovo::tokens();

  // A prim is passed over with all below it when it has no state.
  const auto visit = [&](const ovo::Prim& prim, const State& above) {
    if (!prim.isActive() || shapes_.isExcluded(prim) || (root.isDefined() && !prim.isDefined()))
      return;
    ovo::Token visibility;
    if (!filter_.withInvisible && prim.getAttr(names.visibility).get(visibility, filter_.time) &&
        visibility == names.invisible)
      return;
    State state = above;
    if (const ovo::Attribute own = prim.getAttr(names.purpose); own.hasAuthoredValue())
      own.get(state.purpose, filter_.time);
    if (const ovo::XformablePrim placed(prim); placed.isValid()) {
      const Mat4d local = placed.getLocalXform(filter_.time);
      state.instanceFromPrim = placed.resetsXformStack() ? local : above.instanceFromPrim * local;
    }
    if (prim.getTypeName() == names.PointInstancer) {
      parts.push_back({prim, state.instanceFromPrim, std::nullopt, state.purpose});
      return;
    }
    if (shapes_.isWantedType(prim) && shapes_.isWantedPurpose(state.purpose))
      if (const std::optional<std::uint32_t> shape = shapes_.find(prim))
        parts.push_back({prim, state.instanceFromPrim, shape, state.purpose});
    states.emplace(prim, state);
  };

  visit(root, {Mat4d(), purpose});
  std::vector<ovo::Prim> below;
  stage_.findDescendentPrims({root.getPath()}, below);
  for (const ovo::Prim& prim : below) {
    const auto above = states.find(prim.parent());
    if (above == states.end()) continue;
    const State state = above->second;
    visit(prim, state);
  }
  return parts;
}

}  // namespace vela::scene::detail
