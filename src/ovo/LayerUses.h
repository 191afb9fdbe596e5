/// \file
/// Which files a scene is composed of, and what brings them in.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Path.h"

namespace ovo {

class Stage;

/// A layer that has something to say, by one kind of arc.
struct LayerUse {
  std::string file;  ///< absolute; within a package as `/a/b.usdz[c.usdc]`
  /// `root` for the opened file; `sublayer`, `reference`, `payload`, `inherit`, `specialize`,
  /// `variant`.
  std::string arc;
  std::string from;  ///< the file that has the arc; empty for the root. Of a sublayer the one on
                     ///< top of its stack
  std::size_t prims = 0;  ///< that have opinions by it
};

/// In the order in which they come up: prim by prim, of each from strong to weak. Layers that are
/// brought in but say nothing about any prim are not among them, nor are edits.
///
/// \code
///   const auto stage = ovo::Stage::open("examples/demo/demo.usda");
///   const std::vector<ovo::LayerUse> uses = ovo::layerUses(*stage);
///   assert(!uses.empty() && uses[0].arc == "root" && uses[0].from.empty());
/// \endcode
[[nodiscard]] OVO_API std::vector<LayerUse> layerUses(const Stage& stage);

/// A layer that a scene leads to and that cannot be read: it is not there, or it is damaged.
struct MissingLayer {
  std::string file;  ///< where it is looked for: absolute, or a name that is looked for on the
                     ///< search path
  std::string arc;   ///< `sublayer`, `reference`, `payload`
  std::string from;  ///< the file that has the arc, absolute; empty for a scene in memory
  Path prim;         ///< that the arc is at, in the file; `/` for a sublayer
};

/// Those that were met since the stage was opened, in order of their names, each arc once.
///
/// \code
///   const auto stage = ovo::Stage::openText(
///       "#usda 1.0\ndef \"A\" (references = @/none/chair.usda@</Chair>)\n{\n}\n");
///   const std::vector<ovo::MissingLayer> missing = ovo::missingLayers(*stage);
///   assert(missing.size() == 1 && missing[0].file == "/none/chair.usda");
///   assert(missing[0].arc == "reference" && missing[0].prim == "/A");
/// \endcode
[[nodiscard]] OVO_API std::vector<MissingLayer> missingLayers(const Stage& stage);

}  // namespace ovo
