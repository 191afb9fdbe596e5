/// \file
/// What a rectangle of a picture shows, as a selection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "vela/Api.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/View.h"
#include "vela/scene/Work.h"
#include "vela/selection/GeoSelection.h"

namespace vela::scene {

/// Pixels of a picture, both corners included; x0 <= x1, y0 <= y1.
struct PixelRect {
  /// A corner, in pixels from the top left. @{
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  /// @}
};

/// What of the meshes is picked.
enum class PickedPart {
  objects,   ///< whole prims
  faces,     ///< the faces that are met
  vertices,  ///< of the faces that are met, the points that lie within the rectangle
};

/// Faces of entries, by the scene's indices.
///
/// \code
///   vela::scene::FacesMet met(2);
///   met.add(1, 5);
///   assert(!met.any(0) && met.any(1) && met.of(1)[5]);
/// \endcode
class VELA_API FacesMet {
 public:
  /// None of \p entries entries.
  explicit FacesMet(std::size_t entries) : met_(entries) {}

  /// Adds a face of an entry. Neither may be negative, and the entry must be one of them.
  void add(std::size_t entry, std::int32_t sceneFace);
  /// As many as it was made for.
  [[nodiscard]] std::size_t numEntries() const { return met_.size(); }
  /// True when a face of the entry was met.
  [[nodiscard]] bool any(std::size_t entry) const { return !met_[entry].empty(); }
  /// One flag a face, up to the last that was met or a little more.
  [[nodiscard]] const std::vector<bool>& of(std::size_t entry) const { return met_[entry]; }

 private:
  std::vector<std::vector<bool>> met_;
};

/// The faces that rays through the centres of the rectangle's pixels meet.
///
/// \param list    the caster's
/// \param rect    what lies outside the picture meets nothing
/// \param through false: the nearest one of each ray, what shows. True: all of them
/// \return nothing when the work was stopped
[[nodiscard]] VELA_API std::optional<FacesMet> facesInRect(const MeshList& list,
                                                           const RayCaster& caster,
                                                           const View& view, const PixelRect& rect,
                                                           bool through, const Work& work = {});

/// Adds what was met to a selection. Picked elements get the value 1, whatever they had; those of
/// refined surfaces are the scene's own faces and points. Instances select their prototype.
///
/// \param met  of facesInRect with the same list, view and rectangle
/// \return how many entries something was picked of
VELA_API std::size_t addToSelection(const FacesMet& met, const MeshList& list, const View& view,
                                    const PixelRect& rect, PickedPart part,
                                    Selection::GeoSelection& selection);

/// Picks through a rectangle: facesInRect and addToSelection in one.
///
/// \return how many entries something was picked of; nothing when the work was stopped, with
///         \p selection untouched
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   const MeshList list = listMeshes(*stage, MeshFilter()).value();
///   const Extent extent = extentOf(list);
///   const RayCaster caster(CasterKind::tracer, list, extent, tarn::defaultTimeValue());
///   const View view = makeView(*stage, ViewOptions(), extent).value();
///
///   // What shows in the middle of the picture.
///   const PixelRect rect{view.width / 2 - 20, view.height / 2 - 20, view.width / 2 + 20,
///                        view.height / 2 + 20};
///   vela::Selection::GeoSelection selection;
///   const auto picked =
///       pickRect(list, caster, view, rect, false, PickedPart::objects, selection);
///   assert(picked && *picked >= selection.size() && selection.size() > 0);
/// \endcode
[[nodiscard]] VELA_API std::optional<std::size_t> pickRect(
    const MeshList& list, const RayCaster& caster, const View& view, const PixelRect& rect,
    bool through, PickedPart part, Selection::GeoSelection& selection, const Work& work = {});

}  // namespace vela::scene
