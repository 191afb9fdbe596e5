#include "vela/scene/SceneMotion.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

#include "ovo/OpenOptions.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/Refinement.h"

namespace vela::scene {

namespace {

template <class T>
bool hasSameBits(const ovo::Array<T>& a, const ovo::Array<T>& b) {
  if (a.isIdentical(b)) return true;
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.cdata(), b.cdata(), a.size() * sizeof(T)) == 0);
}

// Points and counts are the shape's.
bool areSameTubes(const Tubes* listed, const Tubes* then) {
  return listed == then || (listed && then && hasSameBits(listed->radii, then->radii));
}

// Of a shape that is refined the control mesh counts.
bool isSameShape(const Shape& listed, const Shape& then) {
  const Refinement* const refined = listed.refinement.get();
  return hasSameBits(refined ? refined->points : listed.points, then.points) &&
         hasSameBits(refined ? refined->counts : listed.counts, then.counts) &&
         hasSameBits(refined ? refined->indices : listed.indices, then.indices) &&
         hasSameBits(listed.normals, then.normals) && listed.leftHanded == then.leftHanded &&
         areSameTubes(listed.tubes.get(), then.tubes.get());
}

bool isSameInstance(const Instance& a, const Instance& b) {
  return a.parent == b.parent && a.instancer == b.instancer && a.index == b.index;
}

// True when the entries of both lists are of the same things, in the same order.
bool isOfSameThings(const MeshList& list, const SceneMotion& motion, const MeshList& then,
                    std::size_t instances) {
  if (then.entries.size() != motion.entries || then.instances.size() != instances) return false;
  if (!std::equal(then.instances.begin(), then.instances.end(), list.instances.begin(),
                  isSameInstance))
    return false;
  return std::equal(then.entries.begin(), then.entries.end(), list.entries.begin(),
                    [](const MeshEntry& a, const MeshEntry& b) {
                      return a.prim == b.prim && a.instance == b.instance;
                    });
}

bool stopped(Problem* problem) {
  if (problem) *problem = {Problem::Kind::stopped, Problem::Severity::error, "", "stopped"};
  return false;
}

// The moments of a list while they are put together.
class Moments {
 public:
  Moments(const ovo::Stage& stage, const MeshFilter& filter, MeshList& list, SceneMotion& motion)
      : stage_(stage),
        filter_(filter),
        list_(list),
        motion_(motion),
        instances_(list.instances.size()) {
    motion.entries = list.entries.size();
    motion.shapes = list.shapes.size();
    motion.moves.assign(motion.entries, false);
  }

  // The scene at all times, unrefined: most of it is the list's again.
  bool read(const std::vector<double>& times, Problem* problem, const Work& work) {
    const double share = times.empty() ? 1.0 : 1.0 / static_cast<double>(times.size());
    for (std::size_t k = 0; k < times.size(); ++k) {
      if (work.isStopped()) return stopped(problem);
      MeshFilter filter = filter_;
      filter.time = times[k];
      filter.subdivisionLevel = 0;
      const Work part =
          work.part(static_cast<double>(k) * share, static_cast<double>(k + 1) * share);
      std::optional<MeshList> then = listMeshes(stage_, filter, problem, part);
      if (!then) return false;
      add(times[k], std::move(*then));
    }
    return true;
  }

  // Finds what moves at any time, and adds that at each of them.
  bool join(Problem* problem, const Work& work) {
    std::size_t moving = 0;
    for (const Then& then : thens_)
      for (std::size_t i = 0; then.isOfSameThings && i < motion_.entries; ++i)
        if (!motion_.moves[i] && moves(then, i)) motion_.moves[i] = true;
    const bool areSame = std::all_of(thens_.begin(), thens_.end(),
                                     [](const Then& then) { return then.isOfSameThings; });
    if (!areSame) motion_.moves.assign(motion_.entries, true);
    for (const Then& then : thens_)
      moving += then.isOfSameThings ? static_cast<std::size_t>(std::count(
                                          motion_.moves.begin(), motion_.moves.end(), true))
                                    : then.entries.size();
    if (const std::size_t most = ovo::openOptionsOf(stage_).instances; moving > most) {
      if (problem)
        *problem = {Problem::Kind::tooManyInstances, Problem::Severity::error, "the shutter",
                    "at its moments there are more than " + std::to_string(most)};
      return false;
    }
    list_.entries.reserve(motion_.entries + moving);
    for (const Then& then : thens_) {
      if (work.isStopped()) return stopped(problem);
      addMoment(then);
    }
    return true;
  }

 private:
  // What is kept of the scene at one time.
  struct Then {
    double time;
    bool isOfSameThings;
    std::vector<MeshEntry> entries;  // their shapes and instances are numbered as in the list
  };

  [[nodiscard]] bool moves(const Then& then, std::size_t i) const {
    const MeshEntry &a = list_.entries[i], &b = then.entries[i];
    return a.shape != b.shape || !(a.worldFromObject == b.worldFromObject);
  }

  void add(double time, MeshList then) {
    const bool isSame = isOfSameThings(list_, motion_, then, instances_);
    // Shapes that are the list's own, or the last moment's, are not kept twice.
    std::vector<std::uint32_t> numbers;
    for (std::size_t s = 0; s < then.shapes.size(); ++s) {
      const bool isThere = s < motion_.shapes && list_.shapes[s].prim == then.shapes[s].prim &&
                           isSameShape(list_.shapes[s], then.shapes[s]);
      if (isThere) {
        numbers.push_back(static_cast<std::uint32_t>(s));
        continue;
      }
      numbers.push_back(static_cast<std::uint32_t>(list_.shapes.size()));
      list_.shapes.push_back(std::move(then.shapes[s]));
      motion_.shapeTimes.push_back(time);
    }
    if (!isSame) takeInstances(then);
    for (MeshEntry& entry : then.entries) entry.shape = numbers[entry.shape];
    thens_.push_back({time, isSame, std::move(then.entries)});
  }

  // The instances of a moment that has others than the list.
  void takeInstances(MeshList& then) {
    const auto before = static_cast<std::uint32_t>(list_.instances.size());
    const auto instancers = static_cast<std::uint32_t>(list_.instancers.size());
    for (Instance instance : then.instances) {
      if (instance.parent != kNoInstance) instance.parent += before;
      instance.instancer += instancers;
      list_.instances.push_back(instance);
    }
    list_.instancers.insert(list_.instancers.end(), then.instancers.begin(), then.instancers.end());
    for (MeshEntry& entry : then.entries)
      if (entry.instance != kNoInstance) entry.instance += before;
  }

  void addMoment(const Then& then) {
    SceneMotion::Moment moment;
    moment.time = then.time;
    moment.first = static_cast<std::uint32_t>(list_.entries.size());
    for (std::size_t i = 0; i < then.entries.size(); ++i)
      if (!then.isOfSameThings || motion_.moves[i]) list_.entries.push_back(then.entries[i]);
    moment.count = static_cast<std::uint32_t>(list_.entries.size()) - moment.first;
    motion_.moments.push_back(moment);
  }

  const ovo::Stage& stage_;
  const MeshFilter& filter_;
  MeshList& list_;
  SceneMotion& motion_;
  std::size_t instances_;  // of the list at its own time
  std::vector<Then> thens_;
};

// The shapes behind the first so many, each at its own time.
bool refineMoving(MeshList& list, const SceneMotion& motion, int level, Problem* problem,
                  const Work& work) {
  if (level < 1) return true;
  for (std::size_t s = motion.shapes; s < list.shapes.size(); ++s) {
    MeshList one;
    one.shapes.push_back(std::move(list.shapes[s]));
    const bool isDone = refineShapes(one, motion.shapeTimes[s - motion.shapes], level, problem,
                                     work.part(0.0, 0.0));
    list.shapes[s] = std::move(one.shapes.front());
    if (!isDone) return false;
  }
  return true;
}

}  // namespace

bool SceneMotion::anythingMoves() const {
  return std::find(moves.begin(), moves.end(), true) != moves.end() ||
         std::any_of(moments.begin(), moments.end(),
                     [](const Moment& moment) { return moment.count > 0; });
}

std::vector<double> shutterTimes(const ovo::CameraParameters& camera, double frame, int count) {
  std::vector<double> times;
  const double first = frame + camera.shutterOpen, last = frame + camera.shutterClose;
  if (!std::isfinite(first) || !std::isfinite(last) || !(first < last)) return times;
  for (int i = 0; i < count; ++i)
    times.push_back(first + (last - first) * ((static_cast<double>(i) + 0.5) / count));
  return times;
}

std::optional<SceneMotion> addMotion(const ovo::Stage& stage, const MeshFilter& filter,
                                     const std::vector<double>& times, MeshList& list,
                                     Problem* problem, const Work& work) {
  SceneMotion motion;
  Moments moments(stage, filter, list, motion);
  if (!moments.read(times, problem, work.part(0.0, 0.8))) return std::nullopt;
  if (!moments.join(problem, work)) return std::nullopt;
  if (!refineMoving(list, motion, filter.subdivisionLevel, problem, work)) return std::nullopt;
  work.report(1.0);
  return motion;
}

}  // namespace vela::scene
