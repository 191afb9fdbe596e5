/// \file
/// The address of a prim in a scene, such as `/World/Chair`.
///
/// Threads: a Path is a value. Different Paths, copies included, may be used from different threads
/// at once.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "ovo/Token.h"

namespace ovo {

/// Names joined by '/'. A Path keeps any text as it is and never checks it: a text that is no
/// address simply finds no prim. Cheap to copy and to compare.
///
/// \code
///   const ovo::Path chair("/World/Chair");
///   assert(chair.parent() == ovo::Path("/World") && chair.name() == ovo::Token("Chair"));
///   assert(chair.child("Leg").hasPrefix(chair) && !ovo::Path("/World/Chairs").hasPrefix(chair));
/// \endcode
class OVO_API Path {
 public:
  /// The empty path, the address of nothing.
  Path() noexcept = default;
  Path(const char* text);  ///< null counts as empty
  /// The text as it is. Nothing is checked. @{
  Path(const std::string& text);
  explicit Path(std::string_view text);
  /// @}

  /// `/`, the address of a stage's root.
  [[nodiscard]] static Path absoluteRoot();

  /// The text; the reference lives as long as this path or any copy of it.
  [[nodiscard]] const std::string& asString() const noexcept;
  /// True for the path of nothing.
  [[nodiscard]] bool isEmpty() const noexcept { return !text_; }

  /// The same on every platform and in every run; equal paths have equal hashes.
  [[nodiscard]] std::size_t hash() const noexcept;

  /// What stands before the last '/': `/A` for `/A/B`, `/` for `/A`. Empty for `/`, for a text
  /// without '/' and for the empty path.
  [[nodiscard]] Path parent() const;

  /// What stands behind the last '/', or the whole text without one; empty for `/`.
  [[nodiscard]] Token name() const;

  /// This path with one more name: `/A` and `B` give `/A/B`, `/` and `A` give `/A`, the empty path
  /// and `A` give `A`. An empty name gives this path itself.
  [[nodiscard]] Path child(const Token& name) const;

  /// True when this is \p prefix or lies below it, by whole names: `/AB` is not below `/A`. Every
  /// path that begins with '/' lies below `/`. False when either is empty.
  [[nodiscard]] bool hasPrefix(const Path& prefix) const noexcept;

  /// By text. `/A/` and `/A` differ. @{
  OVO_API friend bool operator==(const Path& a, const Path& b) noexcept;
  friend bool operator!=(const Path& a, const Path& b) noexcept { return !(a == b); }
  /// @}
  /// By bytes, taken as unsigned; a shorter text comes before its continuations. This is not the
  /// order of a walk through the scene: `/A-b` comes before `/A/b`.
  OVO_API friend bool operator<(const Path& a, const Path& b) noexcept;
  /// By the same order. @{
  friend bool operator>(const Path& a, const Path& b) noexcept { return b < a; }
  friend bool operator<=(const Path& a, const Path& b) noexcept { return !(b < a); }
  friend bool operator>=(const Path& a, const Path& b) noexcept { return !(a < b); }
  /// @}

  /// Writes the bare text.
  OVO_API friend std::ostream& operator<<(std::ostream& out, const Path& path);

 private:
  detail::SharedTextPtr text_;
};

}  // namespace ovo

/// Hashes as Path::hash().
template <>
struct std::hash<ovo::Path> {
  /// The hash of the path.
  std::size_t operator()(const ovo::Path& path) const noexcept { return path.hash(); }
};
