#include "vela/picture/FarmCost.h"

#include <algorithm>
#include <cstdint>

namespace vela::picture {

namespace {

std::int64_t dividedUp(std::int64_t a, std::int64_t b) { return (a + b - 1) / b; }

double transfer(double bytes, const FarmPlan& plan) {
  return plan.bytesPerSecond > 0.0 ? bytes / plan.bytesPerSecond : 0.0;
}

}  // namespace

FarmCost farmCost(const FarmMeasure& measure, const FarmPlan& plan) {
  const std::int64_t frames = std::max(plan.frames, 1), machines = std::max(plan.machines, 1);
  const std::int64_t chunk = std::max(plan.chunk, 1), tiles = std::max(plan.tiles, 1);
  const double process = measure.start + measure.open;
  const double session = transfer(measure.sceneBytes, plan) + plan.sessionSeconds + process;
  const double task = plan.taskSeconds + process;
  const double rays = measure.trace + measure.shade;
  const double files = measure.write + transfer(measure.frameBytes, plan);
  FarmCost cost;

  double busy = 0.0;  // of all machines
  if (tiles == 1) {
    const std::int64_t tasks = dividedUp(frames, chunk);
    const std::int64_t used = std::min(tasks, machines);
    const std::int64_t most = dividedUp(tasks, used);  // tasks of the machine with the most
    const double frame = measure.build + rays + files;
    cost.machines = static_cast<int>(used);
    cost.seconds = session + static_cast<double>(most) * task +
                   static_cast<double>(std::min(most * chunk, frames)) * frame;
    busy = static_cast<double>(used) * session + static_cast<double>(tasks) * task +
           static_cast<double>(frames) * frame;
  } else {
    const std::int64_t bands = frames * tiles;
    const std::int64_t used = std::min(bands, machines), joiners = std::min(frames, used);
    const double share = 1.0 / static_cast<double>(tiles);
    const double band = task + measure.build + share * (rays + files);
    const double join = task + measure.build + 2.0 * files;
    cost.machines = static_cast<int>(used);
    cost.seconds = session + static_cast<double>(dividedUp(bands, used)) * band +
                   static_cast<double>(dividedUp(frames, joiners)) * join;
    busy = static_cast<double>(used) * session + static_cast<double>(bands) * band +
           static_cast<double>(frames) * join;
  }
  cost.machineHours = busy / 3600.0;
  cost.price = cost.machineHours * plan.hourPrice;
  return cost;
}

}  // namespace vela::picture
