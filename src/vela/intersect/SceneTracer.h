/// \file
/// The tracer's former header: programs that include it here need no change.
#pragma once

#include "vela/trace/SceneTracer.h"
