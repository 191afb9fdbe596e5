/// \file
/// What is selected in a scene: whole objects, and weights on their vertices and faces; with a text
/// form for saving.
///
/// Objects are known by their paths alone: a selection holds no scene, and a path need not name a
/// prim. Which prims lie below selected ones is found on request and kept until the selected
/// objects change.
///
/// Threads: no locks. A selection may be read from several threads while none changes it; the first
/// call of GlobalGeoSelection::GetInstance() may come from any thread. Nothing throws but
/// allocation.
#pragma once

#include <array>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ovo/Path.h"
#include "vela/Api.h"

namespace ovo {
class Stage;
}

namespace vela::Selection {

/// The parts of an object that can be selected one by one; indexes GeoObjectSelection::parts.
enum PartType : int {
  vertices = 0,  ///< one element per point
  faces = 1      ///< one element per face
};

/// How a prim stands to the selected objects.
enum PrimSelectionStatus : int {
  notSelected = 0,  ///< neither of these, or the status is out of date
  selected = 1,     ///< its own path is selected
  descendant = 2    ///< not itself selected, but below a prim that is
};

// ---- Records

/// Values on the vertices, or on the faces, of one object: one per element, in both arrays.
/// The arrays are the caller's and may differ in length; a missing value counts as 0.
struct WeightedPartSelection {
  std::vector<float> selections;  ///< 0 is not selected
  std::vector<float> weights;     ///< of the selections

  /// Number of `selections`.
  [[nodiscard]] std::size_t size() const { return selections.size(); }
  /// True without `selections`, whatever the weights.
  [[nodiscard]] bool empty() const { return selections.empty(); }

  /// Both arrays to `n` values; new ones are 0.
  VELA_API void resize(std::size_t n);
  /// Both arrays to none; their memory is kept.
  VELA_API void clear();
  /// Every selection to 0; the length stays.
  VELA_API void clearSelections();
  /// Every weight to 0; the length stays.
  VELA_API void clearWeights();

  /// Adds the other's values, element by element and without limits, after growing both arrays to
  /// `other.size()` when this part is shorter. What the other does not have counts as 0.
  VELA_API void add(const WeightedPartSelection& other);

  /// Same lengths and equal values; a NaN equals nothing. @{
  friend bool operator==(const WeightedPartSelection& a, const WeightedPartSelection& b) {
    return a.selections == b.selections && a.weights == b.weights;
  }
  friend bool operator!=(const WeightedPartSelection& a, const WeightedPartSelection& b) {
    return !(a == b);
  }
  /// @}
};

/// The selection of one object.
struct GeoObjectSelection {
  bool objectSelected = false;                 ///< as a whole
  std::array<WeightedPartSelection, 2> parts;  ///< by PartType

  /// The selection of one kind of parts. \p type is not checked. @{
  [[nodiscard]] WeightedPartSelection& getPartSelection(PartType type) {
    return parts[static_cast<std::size_t>(type)];
  }
  [[nodiscard]] const WeightedPartSelection& getPartSelection(PartType type) const {
    return parts[static_cast<std::size_t>(type)];
  }
  /// @}

  /// Not selected as a whole, and no `selections` in either part. Weights alone do not count.
  [[nodiscard]] bool isEmpty() const {
    return !objectSelected && parts[0].empty() && parts[1].empty();
  }
};

// ---- GeoSelection

/// Objects by path, each with its selection, and the status of the prims below them.
///
/// \code
///   namespace sel = vela::Selection;
///   sel::GeoSelection selection;
///   selection.setObjectSelected(ovo::Path("/World/Bowl"), true);
///   sel::WeightedPartSelection& faces =
///       selection.getWritablePartSelection(ovo::Path("/World/Vase"), sel::faces);
///   faces.resize(6);
///   faces.selections[2] = 1.0f;
///
///   // Saved and read again.
///   std::stringstream text;
///   text << selection;
///   sel::GeoSelection again;
///   std::string error;
///   if (!again.deserialize(text, &error)) std::cerr << error << '\n';
///   assert(again.size() == 2 && again.isObjectSelected(ovo::Path("/World/Bowl")));
///
///   // What lies below a selected object.
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   stage->definePrim(ovo::Path("/World/Bowl/Rim"));
///   again.updatePrimSelectionStatus(stage);
///   assert(again.getPrimSelectionStatus(ovo::Path("/World/Bowl/Rim")) == sel::descendant);
/// \endcode
class VELA_API GeoSelection {
 public:
  /// Paths and what is kept for each, in no promised order. @{
  using Entries = std::unordered_map<ovo::Path, GeoObjectSelection>;
  using PrimSelectionStatuses = std::unordered_map<ovo::Path, PrimSelectionStatus>;
  using const_iterator = Entries::const_iterator;
  /// @}

  // Entries, as (path, object selection) pairs in no promised order.

  /// The first entry, and behind the last; the order is not promised. @{
  [[nodiscard]] const_iterator begin() const { return entries_.begin(); }
  [[nodiscard]] const_iterator end() const { return entries_.end(); }
  /// @}
  /// The entry of a path; end() when it has none.
  [[nodiscard]] const_iterator find(const ovo::Path& path) const { return entries_.find(path); }
  /// How many entries there are, empty ones too.
  [[nodiscard]] std::size_t size() const { return entries_.size(); }

  /// True when the path has an entry, be it an empty one.
  [[nodiscard]] bool isPathPresent(const ovo::Path& path) const;
  /// False also when the path has no entry.
  [[nodiscard]] bool isObjectSelected(const ovo::Path& path) const;

  // Changes. Only a change of which objects are selected puts the status out of date.

  /// Selects or deselects a whole object; makes its entry when it has none, for `false` too.
  void setObjectSelected(const ovo::Path& path, bool selected);
  /// The part, to be written to; makes the entry, not selected as a whole, when there is none.
  /// The reference holds until the entry is removed.
  WeightedPartSelection& getWritablePartSelection(const ovo::Path& path, PartType type);

  /// Joins the other selection to this one: objects selected in either are selected, values are
  /// added as by WeightedPartSelection::add. Adding a selection to itself doubles its values.
  void addSelection(const GeoSelection& other);
  /// Empties one part of every entry.
  void deselect(PartType type);
  /// Removes the entries that are empty (GeoObjectSelection::isEmpty). The status stays as it is.
  void deleteEmpty();
  /// Empties every entry but keeps it. The status is then empty and valid.
  void clearValuesOnly();
  /// Removes every entry. The status is then empty and valid.
  void clear();

  // Status of prims

  /// Brings the status up to date; does nothing without a stage, or when it is valid.
  void updatePrimSelectionStatus(const std::shared_ptr<ovo::Stage>& stage);
  /// `notSelected` while the status is out of date.
  [[nodiscard]] PrimSelectionStatus getPrimSelectionStatus(const ovo::Path& path) const;
  /// Every prim that is selected or below a selected one; empty while the status is out of date.
  [[nodiscard]] const PrimSelectionStatuses& getPrimSelectionStatus() const {
    return primSelectionStatus_;
  }
  /// True when the status is up to date; in a new selection it is, and empty.
  [[nodiscard]] bool isPrimSelectionStatusValid() const { return !primSelectionStatusDirty_; }

  // Text

  /// Writes the selection as words, numbers and paths, parted by blanks, with the entries in the
  /// order of their paths:
  ///
  ///     geoselection { paths 1 { /world/cube 1
  ///         { verts 4 { 3 1 1 0.5 } 4 { 4 0 } } { faces 0 0 } } }
  ///
  /// A list is its length and then, unless it is 0, runs in braces: how often, and the value with
  /// six significant digits. First a part's selections, then its weights. Neither the stream's
  /// flags nor its locale matter, and both stay. A stream that cannot be written says so by its
  /// state, and throws only when it was told to. Not promised: that NaN, infinities and paths with
  /// blanks in them can be read back, or values to the last bit.
  std::ostream& serialize(std::ostream& out) const;

  /// Replaces this selection by the one that the text describes. Numbers are read as by extraction
  /// in the classic locale, whatever the stream's flags and locale, and both stay.
  ///
  /// The text must go on with a third closing brace or end. At the first word that is not the
  /// expected one, a line on the standard error stream says so, the selection is left empty and the
  /// rest of the text unread. A number that cannot be read shows as the next unexpected word: the
  /// one before it, at position -1.
  /// \return the stream; as a rule at its end, and failed, because a third brace was looked for
  std::istream& deserialize(std::istream& in);

  /// Reads as deserialize does, and says by data what came of it: nothing is written to the
  /// standard error stream.
  ///
  /// \param error  when not null: on failure the unexpected word, its position and what belonged
  ///               there, as `bad token 'x' at position 17, expected '{'`; emptied on success
  /// \return true when the whole text was a selection, which may be an empty one; false leaves this
  ///         selection empty
  bool deserialize(std::istream& in, std::string* error);

 private:
  // Throws the status away.
  void setPrimSelectionStatusDirty();

  Entries entries_;
  PrimSelectionStatuses primSelectionStatus_;
  bool primSelectionStatusDirty_ = false;
};

/// As GeoSelection::serialize.
VELA_API std::ostream& operator<<(std::ostream& out, const GeoSelection& selection);

// ---- GlobalGeoSelection

/// The selection of the running application, and the anchor: what it was when an additive edit
/// began.
///
/// \code
///   auto& global = vela::Selection::GlobalGeoSelection::GetInstance();
///   global.getWritableCurrent().setObjectSelected(ovo::Path("/World/Bowl"), true);
///
///   // An additive edit: what is picked now joins what was selected when it began.
///   global.setAnchorFromCurrent();
///   global.getWritableCurrent().clear();
///   global.getWritableCurrent().setObjectSelected(ovo::Path("/World/Vase"), true);
///   global.addAnchorToCurrent();
///   assert(global.getCurrent().size() == 2);
/// \endcode
class VELA_API GlobalGeoSelection {
 public:
  /// The only one; made at the first call, destroyed when the process ends.
  [[nodiscard]] static GlobalGeoSelection& GetInstance();

  GlobalGeoSelection(const GlobalGeoSelection&) = delete;
  GlobalGeoSelection& operator=(const GlobalGeoSelection&) = delete;

  /// What is selected now. @{
  [[nodiscard]] const GeoSelection& getCurrent() const { return current_; }
  [[nodiscard]] GeoSelection& getWritableCurrent() { return current_; }
  /// @}

  /// What was selected when setAnchorFromCurrent() was called last; empty before.
  [[nodiscard]] const GeoSelection& getAnchor() const { return anchor_; }
  /// Copies the current selection into the anchor.
  void setAnchorFromCurrent() { anchor_ = current_; }
  /// Empties the anchor.
  void clearAnchor() { anchor_.clear(); }
  /// Joins the anchor to the current selection, as GeoSelection::addSelection().
  void addAnchorToCurrent() { current_.addSelection(anchor_); }

 private:
  GlobalGeoSelection() = default;

  GeoSelection current_;
  GeoSelection anchor_;
};

}  // namespace vela::Selection
