/// \file
/// What a job on many machines takes: a model with a part for each step of a task, filled with what
/// was measured on one machine.
#pragma once

#include "vela/picture/Api.h"

namespace vela::picture {

/// What one machine was measured to take: seconds, and bytes.
struct FarmMeasure {
  double start = 0.0;  ///< of a process, until it opens the scene and after its last file
  double open = 0.0;   ///< the scene, once a process
  double build = 0.0;  ///< of a frame: reading its meshes, and the structures that rays meet
  /// Of a frame, all of its pixels: what rays meet, and making colours of that. @{
  double trace = 0.0, shade = 0.0;
  /// @}
  double write = 0.0;       ///< of a frame, all of its files
  double sceneBytes = 0.0;  ///< what a machine needs before it begins
  double frameBytes = 0.0;  ///< the files of a frame
};

/// How a job is spread.
struct FarmPlan {
  int frames = 1;               ///< 1 or more, as the others
  int machines = 1;             ///< each of the kind that was measured, one task at a time
  int chunk = 1;                ///< frames a task, where frames are not cut
  int tiles = 1;                ///< bands of a frame, a task each; above 1 a task more joins them
  double sessionSeconds = 0.0;  ///< of the farm's engine, once a machine
  double taskSeconds = 0.0;     ///< of the farm's engine, once a task
  double bytesPerSecond = 0.0;  ///< to and from a machine; 0: files are where it is
  double hourPrice = 0.0;       ///< of a machine
};

/// How long a job takes, and what it costs.
struct FarmCost {
  double seconds = 0.0;       ///< from the beginning to the last file
  double machineHours = 0.0;  ///< of all machines, each until it has nothing to do any more
  double price = 0.0;         ///< machineHours at hourPrice
  int machines = 0;           ///< that get a task at all
};

/// Predicts a job.
///
/// A machine gets the scene's files, starts the engine's session, whose check starts a process and
/// opens the scene, and then takes tasks. A task starts a process, opens the scene, and of each of
/// its frames builds, traces, shades and writes. A band has its share of rays, writes its share of
/// files and builds all of the scene; the join begins when all bands are done, builds the scene
/// again, and reads bands in the time that it took to write them.
///
/// Not in it: machines and frames that differ, a network that several machines share, failures.
///
/// \code
///   vela::picture::FarmMeasure measure;
///   measure.trace = 3600.0;
///   vela::picture::FarmPlan plan;
///   plan.frames = 10;
///   plan.machines = 4;
///   plan.hourPrice = 0.5;
///   const vela::picture::FarmCost cost = vela::picture::farmCost(measure, plan);
///   assert(cost.seconds == 3 * 3600.0 && cost.machineHours == 10.0 && cost.price == 5.0);
/// \endcode
[[nodiscard]] VELA_PICTURE_API FarmCost farmCost(const FarmMeasure& measure, const FarmPlan& plan);

}  // namespace vela::picture
