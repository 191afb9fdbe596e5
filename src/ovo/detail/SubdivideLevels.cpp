#include "ovo/detail/SubdivideLevels.h"

#include <algorithm>
#include <utility>

#include "ovo/Tokens.h"

namespace ovo::detail::subdivision {

Sdc::Options optionsOf(const ArgSet& args) {
  const Tokens& t = tokens();
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(
      args.interpolateBoundary == t.none              ? Sdc::Options::VTX_BOUNDARY_NONE
      : args.interpolateBoundary == Token("edgeOnly") ? Sdc::Options::VTX_BOUNDARY_EDGE_ONLY
                                                      : Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  const Token& fvar = args.faceVaryingLinearInterpolation;
  options.SetFVarLinearInterpolation(
      fvar == t.none                  ? Sdc::Options::FVAR_LINEAR_NONE
      : fvar == Token("cornersOnly")  ? Sdc::Options::FVAR_LINEAR_CORNERS_ONLY
      : fvar == Token("cornersPlus2") ? Sdc::Options::FVAR_LINEAR_CORNERS_PLUS2
      : fvar == Token("boundaries")   ? Sdc::Options::FVAR_LINEAR_BOUNDARIES
      : fvar == Token("all")          ? Sdc::Options::FVAR_LINEAR_ALL
                                      : Sdc::Options::FVAR_LINEAR_CORNERS_PLUS1);
  options.SetTriangleSubdivision(args.triangleSubdivisionRule == Token("smooth")
                                     ? Sdc::Options::TRI_SUB_SMOOTH
                                     : Sdc::Options::TRI_SUB_CATMARK);
  return options;
}

std::unique_ptr<Far::TopologyRefiner> makeRefiner(const Level& level, Sdc::SchemeType scheme,
                                                  const Sdc::Options& options) {
  std::vector<int> pairs, corners, holes;
  std::vector<float> pairSharpness, cornerSharpness;
  for (const SharpEdge& e : level.edges) {
    pairs.push_back(e.a);
    pairs.push_back(e.b);
    pairSharpness.push_back(e.sharpness);
  }
  for (const SharpPoint& p : level.points) {
    corners.push_back(p.point);
    cornerSharpness.push_back(p.sharpness);
  }
  for (std::size_t f = 0; f < level.holes.size(); ++f)
    if (level.holes[f]) holes.push_back(static_cast<int>(f));
  std::vector<Far::TopologyDescriptor::FVarChannel> channels(level.channels.size());
  for (std::size_t c = 0; c < channels.size(); ++c) {
    channels[c].numValues = level.channels[c].valueCount;
    channels[c].valueIndices = level.channels[c].valueOfCorner.data();
  }

  Far::TopologyDescriptor mesh;
  mesh.numVertices = level.pointCount;
  mesh.numFaces = static_cast<int>(level.counts.size());
  mesh.numVertsPerFace = level.counts.data();
  mesh.vertIndicesPerFace = level.indices.data();
  mesh.numCreases = static_cast<int>(pairSharpness.size());
  mesh.creaseVertexIndexPairs = pairs.data();
  mesh.creaseWeights = pairSharpness.data();
  mesh.numCorners = static_cast<int>(corners.size());
  mesh.cornerVertexIndices = corners.data();
  mesh.cornerWeights = cornerSharpness.data();
  mesh.numHoles = static_cast<int>(holes.size());
  mesh.holeIndices = holes.data();
  mesh.numFVarChannels = static_cast<int>(channels.size());
  mesh.fvarChannels = channels.data();
  using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
  return std::unique_ptr<Far::TopologyRefiner>(
      Factory::Create(mesh, Factory::Options(scheme, options)));
}

namespace {

// Reads a level of OpenSubdiv's back. `level` has its sources and is empty otherwise.
void readLevel(const Far::TopologyLevel& last, std::size_t channelCount, Level& level) {
  const int faces = last.GetNumFaces();
  level.pointCount = last.GetNumVertices();
  level.counts.resize(at(faces));
  level.indices.reserve(at(last.GetNumFaceVertices()));
  level.channels.resize(channelCount);
  for (std::size_t c = 0; c < channelCount; ++c) {
    level.channels[c].valueCount = last.GetNumFVarValues(static_cast<int>(c));
    level.channels[c].valueOfCorner.reserve(at(last.GetNumFaceVertices()));
  }
  // Faces, and which of them are holes.
  for (int f = 0; f < faces; ++f) {
    const Far::ConstIndexArray corners = last.GetFaceVertices(f);
    level.counts[at(f)] = corners.size();
    level.indices.insert(level.indices.end(), corners.begin(), corners.end());
    for (std::size_t c = 0; c < channelCount; ++c) {
      const Far::ConstIndexArray numbers = last.GetFaceFVarValues(f, static_cast<int>(c));
      std::vector<int>& to = level.channels[c].valueOfCorner;
      to.insert(to.end(), numbers.begin(), numbers.end());
    }
    if (last.IsFaceHole(f)) {
      if (level.holes.empty()) level.holes.assign(at(faces), 0);
      level.holes[at(f)] = 1;
    }
  }
  // The sharpness that is left. OpenSubdiv makes edges along boundaries sharp by itself.
  for (int e = 0; e < last.GetNumEdges(); ++e) {
    if (last.IsEdgeBoundary(e) || !(last.GetEdgeSharpness(e) > 0)) continue;
    const Far::ConstIndexArray ends = last.GetEdgeVertices(e);
    level.edges.push_back(
        {std::min(ends[0], ends[1]), std::max(ends[0], ends[1]), last.GetEdgeSharpness(e)});
  }
  std::sort(level.edges.begin(), level.edges.end(), beforeByEnds);
  for (int p = 0; p < level.pointCount; ++p)
    if (last.GetVertexSharpness(p) > 0) level.points.push_back({p, last.GetVertexSharpness(p)});
}

}  // namespace

bool refineWhole(int levels, Sdc::SchemeType scheme, const Sdc::Options& options, Level& level,
                 std::vector<PointData>& perPoint, CornerDataList& perCorner) {
  const std::unique_ptr<Far::TopologyRefiner> refiner = makeRefiner(level, scheme, options);
  if (!refiner) return false;
  const std::size_t channelCount = level.channels.size();
  std::vector<int> sources = std::move(level.sources);
  level = Level();
  Far::TopologyRefiner::UniformOptions uniform(levels);
  uniform.fullTopologyInLastLevel = true;
  refiner->RefineUniform(uniform);

  // Data, level by level.
  const Far::PrimvarRefiner values(*refiner);
  for (int l = 1; l <= levels; ++l) {
    const Far::TopologyLevel& made = refiner->GetLevel(l);
    for (PointData& data : perPoint) {
      std::vector<WeightedVec3> next(at(made.GetNumVertices()));
      data.interpolate(values, l, data.values, next);
      data.values.swap(next);
    }
    for (auto& data : perCorner)
      data->refine(values, l, made.GetNumFVarValues(static_cast<int>(data->channel)));
    if (sources.empty()) continue;
    std::vector<int> next(at(made.GetNumFaces()));
    for (int f = 0; f < made.GetNumFaces(); ++f)
      next[at(f)] = sources[at(made.GetFaceParentFace(f))];
    sources.swap(next);
  }
  level.sources = std::move(sources);

  readLevel(refiner->GetLevel(levels), channelCount, level);
  return true;
}

}  // namespace ovo::detail::subdivision
