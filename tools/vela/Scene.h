/// \file
/// What of a scene a picture shows: its meshes, their surfaces and its cameras.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Array.h"
#include "ovo/CameraPrim.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "tarn/Box3.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"

namespace command {

/// Which meshes to take.
struct MeshFilter {
  double time = tarn::defaultTimeValue();
  std::vector<std::string> purposes = {"default", "render"};
  bool withInvisible = false;
  std::vector<std::string> includedTypes;  ///< empty: every type
  std::vector<std::string> excludedPaths;  ///< these prims and all below them stay out
  int subdivisionLevel = 0;                ///< how often to refine subdivision surfaces
};

/// What a refined shape was before, and what goes with it now.
struct Refinement {
  int level = 0;
  ovo::Array<tarn::Vec3<float>> points;
  ovo::Array<int> counts, indices;
  ovo::Array<int> sourceFaces;  ///< the face that each refined one comes from
  ovo::Array<int>
      placesOfPoints;  ///< of the points above among the refined ones; -1: it does not come out
  ovo::Array<tarn::Vec3<float>> colours;
  ovo::Token colourInterpolation;  ///< of the refined mesh; empty without colours
};

/// A mesh as it is at the filter's time, or one that is made for a shape prim. Many entries may
/// show the same.
struct Shape {
  ovo::MeshPrim prim;  ///< the prim that it comes from; no valid mesh when that is a shape prim
  ovo::Array<tarn::Vec3<float>> points;
  ovo::Array<int> counts, indices;
  ovo::Array<tarn::Vec3<float>>
      normals;  ///< of a made mesh, one a face-vertex; empty where the prim says what they are
  bool leftHanded = false;
  std::shared_ptr<const Refinement> refinement = nullptr;  ///< null: the mesh as the scene has it

  /// The scene's number of a face: that of the face which a refined one comes from.
  [[nodiscard]] int sceneFace(int face) const {
    return refinement ? refinement->sourceFaces.cdata()[static_cast<std::size_t>(face)] : face;
  }
};

constexpr std::uint32_t kNoInstance = 0xffffffffu;

/// One place of a point instancer.
struct Instance {
  std::uint32_t parent = kNoInstance;  ///< place in MeshList::instances of the one that the
                                       ///< instancer itself is part of
  std::uint32_t instancer = 0;         ///< place in MeshList::instancers
  int index = 0;                       ///< place in the instancer's list of prototype indices
  bool hasColour = false;
  tarn::Vec3<float> colour;  ///< of prototypes that have none
};

/// A shape and where it stands. Its place in MeshList::entries is its entry number.
struct MeshEntry {
  ovo::MeshPrim prim;
  tarn::Mat4<double> worldFromObject;
  std::uint32_t shape = 0;               ///< place in MeshList::shapes
  std::uint32_t instance = kNoInstance;  ///< place in MeshList::instances
};

struct MeshList {
  std::vector<Shape> shapes;
  std::vector<MeshEntry> entries;  ///< in the order of the scene, parents first
  std::vector<Instance> instances;
  std::vector<ovo::Prim> instancers;
  std::map<std::string, std::size_t>
      notShown;                  ///< prims that have a shape but no faces to trace, by type name
  std::size_t badInstances = 0;  ///< instances of no prototype, or without a position
  std::vector<std::string>
      notRefined;  ///< subdivision surfaces that could not be refined: `path: why`

  [[nodiscard]] const Shape& shapeOf(std::size_t entry) const {
    return shapes[entries[entry].shape];
  }
};

/// What an entry is called: its prim's path. That of an instance has the instance's number behind
/// it: `/World/Many/Proto[17]`, for instancers in prototypes of others the outermost first:
/// `/World/Many/Proto/Few/Leaf[17][3]`. The instancer stands in the brackets when the prim does not
/// lie below it: `/Library/Leaf[/World/Many 17]`.
[[nodiscard]] std::string nameOf(const MeshList& list, std::size_t entry);

/// Opens a scene. Why parts of it are missing is said on standard error, a line each.
/// \throws Failure when the file cannot be opened
[[nodiscard]] std::shared_ptr<ovo::Stage> openStage(const char* verb, const std::string& file);

/// Visits the prims of a scene, what is below instances too, the root first and parents before
/// children; `visit` says whether to go on below its prim. The stack is its own: scenes may be
/// nested deeper than the process's.
void forEachPrim(const ovo::Stage& stage, const std::function<bool(const ovo::Prim&)>& visit);

/// The meshes that a picture at the filter's time shows: active, defined, visible and of the right
/// purpose. What lies below a point instancer stands where the instancer puts it, and nowhere else.
/// \throws Failure when there are more instances, or faces to refine, than memory is likely to hold
[[nodiscard]] MeshList listMeshes(const ovo::Stage& stage, const MeshFilter& filter);

/// Says on standard error, in one line, what cannot be shown; nothing when there is nothing to say.
void reportNotShown(const char* verb, const MeshList& list);

/// All cameras of the scene in its order.
[[nodiscard]] std::vector<ovo::CameraPrim> listCameras(const ovo::Stage& stage);

/// The mesh of a prim at the time.
[[nodiscard]] Shape readShape(const ovo::MeshPrim& prim, double time);

/// How far meshes reach in the world.
struct Extent {
  tarn::Box3<double> box;  ///< empty without a finite point
  std::vector<tarn::Vec3<double>>
      outermost;  ///< the farthest points in a few directions, for framing; empty with the box
};

/// The extent of the meshes' points; what is not finite does not count. Of instances it is their
/// prototype's box that counts.
[[nodiscard]] Extent extentOf(const MeshList& list);

/// A mesh's data for shading, read once.
///
/// Values at a place of a face are mixed by mean value coordinates (Hormann and Floater, ACM TOG
/// 25(4), 2006), which are the barycentric ones in a triangle, leave no seam along a quad's
/// diagonal and hold for any polygon.
class Surface {
 public:
  /// \param smooth makes normals for polygon meshes that have none, too
  Surface(const Shape& shape, double time, bool smooth = false);

  /// displayColor at a point of the face; a neutral grey where the scene has none.
  [[nodiscard]] tarn::Vec3<float> colour(int face, const tarn::Vec3<float>& objectPoint) const;

  /// True when the scene gives the mesh a colour.
  [[nodiscard]] bool hasOwnColour() const noexcept { return colours_.spread != Spread::none; }
  /// True when there are normals to shade with beside the faces': the scene's own, or those of a
  /// smooth surface.
  [[nodiscard]] bool hasOwnNormals() const noexcept { return normals_.spread != Spread::none; }
  /// That normal, in object space, pointing out, of any length; only where hasOwnNormals().
  [[nodiscard]] tarn::Vec3<float> normal(int face, const tarn::Vec3<float>& objectPoint) const;
  /// The way, in object space, from a point of the face to the smooth surface that its corners'
  /// normals suggest: zero where that lies behind the face. A ray to a light starts there, or flat
  /// faces would shade each other along the terminator.
  /// \return false, with \p way untouched, when a corner's normal leans more than 45 degrees: a
  ///         cage that coarse suggests nothing
  bool findSmooth(int face, const tarn::Vec3<float>& objectPoint, bool seenFromBehind,
                  tarn::Vec3<float>& way) const;

  /// What is selected of the scene's mesh: all of it, or a value from 0 to 1 for each face or each
  /// point; short lists end in zeros.
  void setSelection(bool whole, const std::vector<float>& faces, const std::vector<float>& points);
  /// How much of a selection there is at a point of the face, 0 to 1.
  [[nodiscard]] float selection(int face, const tarn::Vec3<float>& objectPoint) const;

  [[nodiscard]] bool isLeftHanded() const noexcept { return shape_.leftHanded; }
  [[nodiscard]] std::size_t faceCount() const noexcept { return shape_.counts.size(); }
  /// Faces of the mesh that are triangles, when cut: n - 2 for each face of n corners.
  [[nodiscard]] std::size_t triangleCount() const;

 private:
  enum class Spread { none, constant, face, point, corner };
  struct Values {
    Spread spread = Spread::none;
    ovo::Array<tarn::Vec3<float>> values;
  };

  // How much each corner of a face counts at a point of it.
  struct Weights {
    std::array<double, 16> few;
    std::vector<double> many;
    double* data = few.data();
    std::size_t count = 0;
    void start(std::size_t n) {
      count = n;
      if (n <= few.size()) return;
      many.resize(n);
      data = many.data();
    }
  };
  void weigh(int face, const tarn::Vec3<float>& objectPoint, Weights& weights) const;

  [[nodiscard]] Spread spreadOf(const ovo::Token& interpolation, std::size_t count) const;
  [[nodiscard]] tarn::Vec3<float> at(const Values& values, int face,
                                     const tarn::Vec3<float>& objectPoint) const;
  void smoothNormals();
  [[nodiscard]] bool mayHaveSharpEdges() const;

  Shape shape_;
  double time_;
  std::vector<std::size_t> starts_;  ///< where each face begins in indices_
  Values colours_, normals_, selectedPoints_;
  std::vector<float> selectedFaces_;
  bool isSelected_ = false;
};

}  // namespace command
