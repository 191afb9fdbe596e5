/// \file
/// Every public header of the library.
#pragma once

#include "vela/Api.h"
#include "vela/Version.h"
#include "vela/mesh/MeshBuilders.h"
#include "vela/mesh/MeshNormals.h"
#include "vela/mesh/MeshSample.h"
#include "vela/mesh/MeshTopology.h"
#include "vela/mesh/NearestPointQuery.h"
#include "vela/mesh/Triangulate.h"
#include "vela/log/Log.h"
#include "vela/sampling/SamplingRng.h"
#include "vela/intersect/SceneTracer.h"
#include "vela/camera/Camera.h"
#include "vela/camera/LensProjection.h"
#include "vela/camera/MultiProjectionCamera.h"
#include "vela/camera/RayContext.h"
#include "vela/selection/GeoSelection.h"
