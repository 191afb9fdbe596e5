#include "vela/scene/SceneMeshes.h"

#include <algorithm>

#include "ovo/Tokens.h"
#include "ovo/Xform.h"
#include "vela/scene/Refinement.h"
#include "vela/scene/detail/InstanceExpander.h"
#include "vela/scene/detail/ShapeReader.h"

namespace vela::scene {

std::optional<MeshList> listMeshes(const ovo::Stage& stage, const MeshFilter& filter,
                                   Problem* problem, const Work& work) {
  const auto stopped = [&] {
    if (problem) *problem = {Problem::Kind::stopped, Problem::Severity::error, "", "stopped"};
    return std::nullopt;
  };
  MeshList list;
  ovo::XformCache xforms(filter.time);
  detail::ShapeReader shapes(list, filter);
  detail::InstanceExpander instances(stage, list, filter, shapes, work);
  const ovo::Tokens& names = ovo::tokens();

  // Depth first, without recursion: scenes may be nested deeper than the process's stack. How many
  // prims there are is known at the end only, so each prim counts as an equal share of its parent.
  const Work walk = work.part(0.0, filter.subdivisionLevel > 0 ? 0.5 : 1.0);
  struct Open {
    ovo::Prim prim;
    double share;
  };
  std::vector<Open> open;
  std::vector<ovo::Prim> children;
  double done = 0.0;
  const auto finish = [&](double share) {
    done += share;
    walk.report(std::min(done, 1.0));
  };
  const auto push = [&](const ovo::Prim& parent, double share) {
    parent.getChildren(children, true, false, true);
    if (children.empty()) return finish(share);
    const double each = share / static_cast<double>(children.size());
    for (auto child = children.rbegin(); child != children.rend(); ++child)
      open.push_back({*child, each});
  };
  push(stage.getRootPrim(), 1.0);
  while (!open.empty()) {
    if (work.isStopped()) return stopped();
    const auto [prim, share] = open.back();
    open.pop_back();
    const bool isInMask = shapes.isInMask(prim);
    if (shapes.isExcluded(prim) || (!isInMask && !shapes.isAboveMask(prim))) {
      finish(share);
      continue;
    }

    const bool isSeen = filter.withInvisible || prim.isVisible(filter.time);
    // What lies below an instancer are its prototypes: drawn where they stand they would be strays.
    if (prim.getTypeName() == names.PointInstancer) {
      if (isSeen &&
          !instances.expand(prim, xforms.getLocalToWorld(prim), kNoInstance, prim.purpose())) {
        if (problem) *problem = instances.problem();
        return std::nullopt;
      }
      finish(share);
      continue;
    }
    if (isInMask && isSeen && shapes.isWantedType(prim) && shapes.isWantedPurpose(prim.purpose()))
      if (const std::optional<std::uint32_t> shape = shapes.find(prim))
        list.entries.push_back(
            {ovo::MeshPrim(prim), xforms.getLocalToWorld(prim), *shape, kNoInstance});
    push(prim, share);
  }
  if (!refineShapes(list, filter.time, filter.subdivisionLevel, problem, work.part(0.5, 1.0)))
    return std::nullopt;
  work.report(1.0);
  return list;
}

std::vector<Problem> MeshList::problems() const {
  using Kind = Problem::Kind;
  constexpr Problem::Severity kNote = Problem::Severity::note;
  std::vector<Problem> problems;
  if (badInstances > 0)
    problems.push_back(
        {Kind::badInstances, kNote, "", "no prototype or no position", badInstances});
  problems.insert(problems.end(), notRefined.begin(), notRefined.end());
  for (const auto& [type, count] : notShown)
    problems.push_back({Kind::notShown, kNote, type, "prims of this type cannot be shown", count});
  return problems;
}

std::string nameOf(const MeshList& list, std::size_t entry) {
  const MeshEntry& from = list.entries[entry];
  const ovo::Path& path = from.prim.getPath();
  std::string indices;
  for (std::uint32_t i = from.instance; i != kNoInstance; i = list.instances[i].parent) {
    const ovo::Path& instancer = list.instancers[list.instances[i].instancer].getPath();
    const std::string named = path.hasPrefix(instancer) ? "" : instancer.asString() + " ";
    indices.insert(0, "[" + named + std::to_string(list.instances[i].index) + "]");
  }
  return path.asString() + indices;
}

}  // namespace vela::scene
