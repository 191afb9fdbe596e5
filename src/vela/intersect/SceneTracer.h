/// \file
/// The tracer's former place: programs that include it here go on as they are.
#pragma once

#include "vela/trace/SceneTracer.h"
