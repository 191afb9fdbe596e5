#include "vela/mesh/MeshSample.h"

namespace vela {

// KEEP(flags-from-each-other): each flag is the negation of the other and neither is cleared here; whoever believes them
// holds them against the counts.
void MeshSample::addTri(int a, int b, int c) {
  vertsPerFace_.push_back(3);
  allTriangles = !allQuads;
  faceVertPointIndices_.push_back(a);
  faceVertPointIndices_.push_back(b);
  faceVertPointIndices_.push_back(c);
}

void MeshSample::addQuad(int a, int b, int c, int d) {
  vertsPerFace_.push_back(4);
  allQuads = !allTriangles;
  faceVertPointIndices_.push_back(a);
  faceVertPointIndices_.push_back(b);
  faceVertPointIndices_.push_back(c);
  faceVertPointIndices_.push_back(d);
}

void MeshSample::clearFaces() {
  vertsPerFace_.clear();
  faceVertPointIndices_.clear();
}

void MeshSample::reserveFaceVertSpace(std::size_t nFaces, std::size_t nVerts) {
  vertsPerFace_.reserve(nFaces);
  faceVertPointIndices_.reserve(nVerts);
}

}  // namespace vela
