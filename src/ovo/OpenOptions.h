/// \file
/// Scenes opened under limits and within a folder: for files that come from anywhere.
///
/// What a damaged binary file can do to its reader no option prevents; see tryScene() in
/// SceneTrial.h, which reads a file in a process of its own first.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Fwd.h"
#include "ovo/Variants.h"

namespace ovo {

/// How a scene is opened, and what it may make this process do: by its files, and later by what is
/// asked of it.
struct OpenOptions {
  /// Prims, at two to three kilobytes of memory each. A scene of more is opened with so many, the
  /// first in the order of the scene, and problems() says so.
  std::size_t prims = 2'000'000;
  /// Files that the scene may be composed of. One of more is not opened.
  std::size_t layers = 100'000;
  /// Places in files that have a say about prims, all prims together, at some 300 bytes each. A
  /// scene of more is cut as with prims.
  std::size_t arcs = 20'000'000;
  /// Arcs of one prim that lead from one to the next, as a reference to a prim that has a
  /// reference. A scene with a longer chain is not opened: the time for a prim grows with the
  /// square of its.
  std::size_t arcChain = 500;
  /// Prims within prims; 1000 at the most, which is the default. What lies deeper is left out, and
  /// problems() says so.
  std::size_t depth = 1000;
  /// Instances of point instancers, and the meshes that they place, at some 300 bytes each: a few
  /// kilobytes of instancers within instancers may stand for more than any memory holds. Of a scene
  /// with more no list of meshes and no picture is made.
  std::size_t instances = 10'000'000;
  /// Faces of refined surfaces, at some 300 bytes each; the same.
  std::size_t faces = 10'000'000;
  /// Pixels of a texture, up to 2^30, which is the default. Larger ones count as missing.
  std::size_t texturePixels = std::size_t{1} << 30;
  /// When not empty: a folder. References, payloads, sublayers and files that attributes name are
  /// found in it and below it alone; what lies elsewhere is missing, and problems() says so. Links
  /// count as what they lead to.
  std::string root;
  /// Stronger than the choices of the files, see openWithVariants().
  std::vector<VariantChoice> variants;
};

/// As Stage::open, by options.
///
/// \return null, with \p error set when not null, as Stage::open and openWithVariants(); for a
///         scene of too many layers or too long a chain of arcs; and with a root: for a root that
///         is no folder, a file that lies outside of it, and in a process whose host has set
///         OpenUSD's resolver of file names before the first scene was opened, since nothing would
///         keep arcs inside then
///
/// \code
///   ovo::OpenOptions options;
///   options.prims = 10000;
///   options.root = "examples/demo";
///   std::string why;
///   const auto stage = ovo::openScene("examples/demo/demo.usda", options, &why);
///   if (!stage) throw std::runtime_error(why);
///   assert(stage->problems().empty());
///   options.root = "examples/demo/assets";
///   assert(!ovo::openScene("examples/demo/demo.usda", options, &why));
///   assert(why.find("outside") != std::string::npos);
/// \endcode
[[nodiscard]] OVO_API std::shared_ptr<Stage> openScene(const std::string& file,
                                                       const OpenOptions& options,
                                                       std::string* error = nullptr);

/// What a stage was opened with; of one that lives in memory the defaults.
[[nodiscard]] OVO_API const OpenOptions& openOptionsOf(const Stage& stage);

}  // namespace ovo
