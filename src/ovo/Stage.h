/// \file
/// A composed scene.
///
/// Threads: const calls are safe from several threads, and so are reads through the handles they
/// give. A change (definePrim, the set calls, those of Prim and Attribute) needs the caller to keep
/// all other use of the stage away meanwhile. Different stages do not disturb each other, even of
/// the same file.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Path.h"
#include "ovo/Prim.h"
#include "ovo/Token.h"

namespace ovo {

namespace detail {
class StageData;
}

/// How much a scene may hold, so that a small file cannot use up a machine.
struct StageLimits {
  /// Prims, at two to three kilobytes of memory each. A scene of more is opened with so many, the
  /// first in the order of the scene, and problems() says so.
  std::size_t prims = 2'000'000;
};

/// A scene as its files compose it: sublayers, references, payloads (all loaded), variants,
/// inherits, specializes and instances, resolved when it is opened. Value clips are not read.
///
/// Edits are kept in memory, above all opinions of the file, and seen by this stage alone;
/// exportTo() writes them. A file that several stages have open is read once: what changes on disk
/// shows when no stage has it open any more.
///
/// \code
///   std::string why;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda", &why);
///   if (!stage) throw std::runtime_error(why);
///   for (const std::string& problem : stage->problems()) std::cerr << problem << '\n';
///   assert(stage->getDefaultPrim().getPath() == ovo::Path("/Demo"));
///   assert(!ovo::Stage::open("missing.usda", &why) && !why.empty());
/// \endcode
class OVO_API Stage : public std::enable_shared_from_this<Stage> {
 public:
  /// Opens a scene file: .usd, .usda, .usdc or .usdz.
  ///
  /// \param file  a path of the file system; relative ones are taken from the current folder
  /// \param error when not null: set to why the file cannot be opened, `what: why`; emptied on
  ///              success
  /// \return null when the root file is missing, empty, no scene, cut off, or nested deeper than
  ///         any scene is (so that reading it would use up the stack). Trouble with files that it
  ///         names is no failure: the stage opens without them, and problems() says why
  [[nodiscard]] static std::shared_ptr<Stage> open(const std::string& file,
                                                   std::string* error = nullptr);
  /// The same under other limits than the default ones.
  [[nodiscard]] static std::shared_ptr<Stage> open(const std::string& file,
                                                   const StageLimits& limits,
                                                   std::string* error = nullptr);
  /// Opens a scene given as text, as a .usda file has it. Relative file names in it are found from
  /// the current folder.
  [[nodiscard]] static std::shared_ptr<Stage> openText(const std::string& text,
                                                       std::string* error = nullptr);
  /// A new, empty scene. Null only when the installation is incomplete.
  [[nodiscard]] static std::shared_ptr<Stage> createInMemory();

  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage();

  // Prims

  /// The root of all prims, at `/`: always valid, without a type.
  [[nodiscard]] Prim getRootPrim() const;
  /// Not valid when nothing is composed there.
  [[nodiscard]] Prim getPrimAtPath(const Path& path) const;
  /// The prim that the file names as its own, for references without a path; may be invalid.
  [[nodiscard]] Prim getDefaultPrim() const;

  /// Makes sure that a prim of that type is defined there: it, and those above it that are not yet
  /// defined, which get no type. What the prim has already stays; an empty type leaves its type.
  /// \return not valid when the path is no absolute prim path, lies inside an instance or below an
  ///         inactive prim
  Prim definePrim(const Path& path, const Token& type = Token());

  /// All prims below the given ones.
  ///
  /// \param paths those that name no prim are passed over
  /// \param out   emptied first; each prim once, in the order of the paths and then of the scene,
  ///              parents first. The given prims come only where they lie below another. Everything
  ///              that is composed comes, inactive and abstract prims, `over`s and what is below
  ///              instances too
  /// \return true when anything was found
  bool findDescendentPrims(const std::vector<Path>& paths, std::vector<Prim>& out) const;

  // Files

  /// Writes the root layer of the scene, with this stage's edits in it, as .usda, .usdc or .usd
  /// (binary). Arcs to other files are kept as arcs; file names relative to the opened file are
  /// written so that they hold from the new place. The file appears whole or not at all: it is
  /// written beside its place and renamed. A file that is there keeps its permissions, and a link
  /// its place: what it leads to is replaced.
  /// \return false, with the reason in \p error when not null, when it cannot be written
  bool exportTo(const std::string& file, std::string* error = nullptr) const;

  /// Why parts of the scene are missing or cannot be read, each reason once, in the order in which
  /// they were found. Reads of values may add to it.
  [[nodiscard]] std::vector<std::string> problems() const;

  /// The opened file as it was given; empty for a scene in memory.
  [[nodiscard]] const std::string& getFile() const noexcept;

  /// The files that the scene is composed of: the opened one and each layer that it leads to, with
  /// a package standing for the layers in it. Absolute and sorted, each once; those that could not
  /// be read are missing. Value clips, textures and other files that attributes name are not among
  /// them.
  [[nodiscard]] std::vector<std::string> layerFiles() const;

  // What holds for the whole scene. The setters give false for values that no scene may have.

  [[nodiscard]] Token getUpAxis() const;          ///< `Y` or `Z`; `Y` where the file does not say
  [[nodiscard]] double getMetersPerUnit() const;  ///< 0.01 where the file does not say
  [[nodiscard]] double getTimeCodesPerSecond() const;  ///< falls back to frames per second, then 24
  [[nodiscard]] double getFramesPerSecond() const;     ///< 24 where the file does not say
  [[nodiscard]] double getStartTimeCode() const;       ///< 0 where the file does not say
  [[nodiscard]] double getEndTimeCode() const;         ///< 0 where the file does not say
  /// As the file names it, whether there is such a prim or not; empty where it does not say.
  [[nodiscard]] Token getDefaultPrimName() const;

  /// Whether the file itself says so, or this stage's edits: a fallback does not count. @{
  [[nodiscard]] bool hasUpAxis() const;
  [[nodiscard]] bool hasMetersPerUnit() const;
  [[nodiscard]] bool hasTimeCodesPerSecond() const;
  [[nodiscard]] bool hasFramesPerSecond() const;
  /// @}
  [[nodiscard]] bool hasTimeCodeRange() const;  ///< both ends are given

  bool setUpAxis(const Token& axis);                ///< `Y` or `Z`
  bool setMetersPerUnit(double metersPerUnit);      ///< finite and above 0
  bool setTimeCodesPerSecond(double rate);          ///< finite and above 0
  bool setFramesPerSecond(double rate);             ///< finite and above 0
  bool setTimeCodeRange(double start, double end);  ///< finite
  bool setDefaultPrim(const Token& name);           ///< the name of a top prim

 private:
  friend class Attribute;
  friend class Prim;
  friend class Primvar;
  friend class detail::StageData;
  explicit Stage(std::unique_ptr<detail::StageData> data);

  std::unique_ptr<detail::StageData> data_;
};

}  // namespace ovo
