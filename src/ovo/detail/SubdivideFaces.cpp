#include "ovo/detail/SubdivideFaces.h"

#include <algorithm>
#include <utility>

#include "ovo/detail/SubdivideParts.h"

namespace ovo::detail::subdivision {

FaceWriter::FaceWriter(const LastLevel& mesh, std::vector<PointData>& perPoint,
                       CornerDataList& perCorner)
    : mesh_(mesh), perPoint_(perPoint), perCorner_(perCorner) {
  for (PointData& data : perPoint_) {
    data.result.resize(mesh.pointCount);
    data.out = data.result.data();
  }
  counts.resize(mesh.faceCount, static_cast<int>(mesh.faceSize));
  indices.resize(mesh.faceCount * mesh.faceSize);
  if (!mesh.level.sources.empty()) sourceFaces.resize(mesh.faceCount);
  outIndices_ = indices.data();
  outSources_ = sourceFaces.empty() ? nullptr : sourceFaces.data();
  for (auto& data : perCorner_) data->startOutput(mesh.faceCount * mesh.faceSize);
}

void FaceWriter::write(const Part& part, const Far::TopologyRefiner& refiner) {
  const Far::TopologyLevel &base = refiner.GetLevel(0), &next = refiner.GetLevel(1);
  const Level& level = mesh_.level;
  const std::vector<int>& globalPointOf = part.points.globalOf();
  globalOf_.assign(at(next.GetNumVertices()), -1);
  // The part's own faces, not those around them.
  const auto firstOwn =
      std::lower_bound(part.faces.begin(), part.faces.end(), static_cast<int>(part.begin));
  for (auto own = firstOwn; own != part.faces.end() && at(*own) < part.end; ++own) {
    const int local = static_cast<int>(own - part.faces.begin());
    if (base.IsFaceHole(local)) {
      hasHoles_ = true;
      continue;
    }

    // What the refined points around the face are called outside the part.
    const Far::ConstIndexArray corners = base.GetFaceVertices(local),
                               edges = base.GetFaceEdges(local);
    for (int k = 0; k < corners.size(); ++k) {
      globalOf_[at(base.GetVertexChildVertex(corners[k]))] = globalPointOf[at(corners[k])];
      globalOf_[at(base.GetEdgeChildVertex(edges[k]))] =
          static_cast<int>(mesh_.firstEdge) + mesh_.edgeOfCorner[at(mesh_.firstOf[at(*own)] + k)];
    }
    if (!mesh_.triangles)
      globalOf_[at(base.GetFaceChildVertex(local))] = static_cast<int>(mesh_.firstFace) + *own;

    // The faces that it becomes, with their points and the data of their corners.
    const Far::ConstIndexArray children = base.GetFaceChildFaces(local);
    for (int i = 0; i < children.size(); ++i) {
      const Far::ConstIndexArray child = next.GetFaceVertices(children[i]);
      for (int k = 0; k < child.size(); ++k) {
        const int p = globalOf_[at(child[k])];
        outIndices_[written_ + at(k)] = p;
        for (PointData& data : perPoint_) data.out[at(p)] = data.part[at(child[k])].value;
      }
      if (outSources_) outSources_[written_ / mesh_.faceSize] = level.sources[at(*own)];
      for (auto& data : perCorner_) {
        const Far::ConstIndexArray values =
            next.GetFaceFVarValues(children[i], static_cast<int>(data->channel));
        for (int k = 0; k < values.size(); ++k) data->write(written_ + at(k), values[k]);
      }
      written_ += mesh_.faceSize;
    }
  }
}

void FaceWriter::finish() {
  for (auto& data : perCorner_) data->finish(written_);
  if (!hasHoles_) return;
  indices.resize(written_);
  counts.resize(written_ / mesh_.faceSize);
  if (outSources_) sourceFaces.resize(written_ / mesh_.faceSize);

  // Points move up to fill the room of those that nothing uses.
  kept.assign(mesh_.pointCount, -1);
  for (const int p : indices.view()) kept[at(p)] = 0;
  int count = 0;
  for (std::size_t p = 0; p < mesh_.pointCount; ++p)
    if (kept[p] == 0) {
      for (PointData& data : perPoint_) data.out[at(count)] = data.out[p];
      kept[p] = count++;
    }
  for (PointData& data : perPoint_) data.result.resize(at(count));
  for (int& p : indices) p = kept[at(p)];
}

}  // namespace ovo::detail::subdivision
