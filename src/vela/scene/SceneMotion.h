/// \file
/// What moves while a camera's shutter is open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ovo/CameraPrim.h"
#include "ovo/Stage.h"
#include "tarn/Time.h"
#include "vela/Api.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// The meshes of a scene at several moments, in one list.
///
/// The list begins with its entries at its own time. Behind them stand, moment by moment, the
/// entries that move, as they are then: with a place, and where their points move a shape, of their
/// own. Whatever knows entries by their index so knows the moving ones too.
struct VELA_API SceneMotion {
  /// The entries that move, at one time.
  struct Moment {
    double time = tarn::defaultTimeValue();  ///< the time code
    std::uint32_t first = 0;                 ///< index in MeshList::entries of the first that moves
    std::uint32_t count = 0;                 ///< how many move
  };
  std::vector<Moment> moments;  ///< in the order of their times in addMotion()
  std::size_t entries = 0;      ///< at the list's own time: the first so many of the list
  /// Of each of those: it moves, and rays of a moment meet it as it is then.
  std::vector<bool> moves;
  std::size_t shapes = 0;          ///< at the list's own time: the first so many
  std::vector<double> shapeTimes;  ///< of the shapes behind them

  /// True when an entry moves, or there is something at a moment.
  [[nodiscard]] bool anythingMoves() const;
  /// The time of a shape's values.
  /// \param listTime that of the list
  [[nodiscard]] double timeOfShape(std::size_t shape, double listTime) const {
    return shape < shapes ? listTime : shapeTimes[shape - shapes];
  }
};

/// The middles of equal parts of the time for which a camera's shutter is open.
///
/// \param frame the picture's time
/// \return none when the shutter does not open, when it closes before it opens, when one of its
///         times or the frame is no finite number, and for a count below 1
[[nodiscard]] VELA_API std::vector<double> shutterTimes(const ovo::CameraParameters& camera,
                                                        double frame, int count);

/// Adds to a list what of it moves at other times: meshes that stand elsewhere, instances of point
/// instancers too, and those whose points, faces or made shape change. Where something appears or
/// disappears between them, all of a moment's entries count as moving.
///
/// What belongs to the surfaces (materials, creases) counts as at the list's own time; normals and
/// colours of points that move, as at the moment's.
///
/// \param filter  that the list was made by
/// \param problem on failure: stopped, tooManyInstances or tooManyFaces; else untouched
/// \return nothing on failure; the list may then have entries more
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::openText(
///       "#usda 1.0\ndef Cube \"Box\"\n{\n"
///       "  double3 xformOp:translate.timeSamples = {0: (0, 0, 0), 1: (4, 0, 0)}\n"
///       "  uniform token[] xformOpOrder = [\"xformOp:translate\"]\n}\n"
///       "def Sphere \"Ball\"\n{\n}\n");
///   MeshFilter filter;
///   filter.time = 0.0;
///   MeshList list = listMeshes(*stage, filter).value();
///   const SceneMotion motion = addMotion(*stage, filter, {0.25, 0.75}, list).value();
///   assert(motion.entries == 2 && motion.moves[0] && !motion.moves[1]);
///   const MeshEntry& later = list.entries[motion.moments[1].first];
///   assert(later.worldFromObject[12] == 3.0 && later.shape == list.entries[0].shape);
/// \endcode
[[nodiscard]] VELA_API std::optional<SceneMotion> addMotion(
    const ovo::Stage& stage, const MeshFilter& filter, const std::vector<double>& times,
    MeshList& list, Problem* problem = nullptr, const Work& work = {});

}  // namespace vela::scene
