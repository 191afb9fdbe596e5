/// \file
/// What a farm would take for a job: measured on a little of it here, and told for several numbers
/// of machines.
#pragma once

#include <memory>

#include "Options.h"
#include "ovo/Stage.h"

namespace command {

/// Measures the first, the middle and the last frame of a job, each for some seconds, and prints
/// what the job takes.
/// \param openSeconds what opening the scene took
/// \throws Failure, Interrupted
void printEstimate(const SubmitOptions& options, const std::shared_ptr<ovo::Stage>& stage,
                   double openSeconds);

}  // namespace command
