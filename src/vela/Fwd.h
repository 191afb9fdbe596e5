/// \file
/// The names of the library's classes, for headers that only pass them on.
#pragma once

#include "ovo/Fwd.h"
#include "tarn/Fwd.h"

namespace vela {

// channels
class BraeGlobalChannelManager;
class Channel;
class ChannelAlias;
class ChannelManager;
class ChannelPack;
class ChannelSet;
class LayerAlias;

// camera
class Axis;
class Camera;
class CylindricalProjection;
class LensProjectionFunction;
class LinearProjection;
class MultiProjectionCamera;
class RayContext;
class SphericalProjection;
class WarpedLinearProjection;
struct ProjectCoord;
struct ProjectionImageContext;

// mesh
class MeshSample;
class MeshTopology;
class NearestPointQuery;

// intersect
class Acceleration;
class AccelerationModel;
class BvhAcceleration;
class GridAcceleration;
class HitDetectModel;
class HitDetector;
class MeshAccelerator;
class NoAcceleration;
class PrimAccelerationModel;
class TriangleAccelerationModel;
struct BvhNode;
struct CollisionResult;
struct IntersectionContext;

// trace
class SceneTracer;
struct TracerHit;

// sampling
class SamplingRng;
class SamplingRngSet;

namespace Selection {
class GeoSelection;
class GlobalGeoSelection;
struct GeoObjectSelection;
struct WeightedPartSelection;
}  // namespace Selection

namespace asset {
class AssetData;
class AssetInfo;
}  // namespace asset

}  // namespace vela
