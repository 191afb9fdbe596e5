/// \file
/// An immutable word: the name of a prim, an attribute or a type, or a word of the scene
/// vocabulary.
///
/// Threads: a Token is a value. Different Tokens, copies included, may be used from different
/// threads at once.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "ovo/Api.h"

namespace ovo {

namespace detail {

/// Text with its hash, shared by all copies and never changed after it was made. Null stands for
/// the empty text.
struct SharedText;
using SharedTextPtr = std::shared_ptr<const SharedText>;

}  // namespace detail

/// A word that is cheap to copy and to compare: one pointer to shared text with its hash.
/// Every text is a Token, also the empty one and one with zero bytes in it.
///
/// \code
///   const ovo::Token a("points"), b = a;
///   assert(a == b && a.asString() == "points" && a.hash() == b.hash());
///   assert(ovo::Token().isEmpty() && ovo::Token("a") < ovo::Token("ab"));
/// \endcode
class OVO_API Token {
 public:
  /// The empty token.
  Token() noexcept = default;
  Token(const char* text);  ///< null counts as empty
  /// The text as it is. Nothing is checked. @{
  Token(const std::string& text);
  explicit Token(std::string_view text);
  /// @}

  /// The text; the reference lives as long as this token or any copy of it.
  [[nodiscard]] const std::string& asString() const noexcept;
  /// True for the token of no text.
  [[nodiscard]] bool isEmpty() const noexcept { return !text_; }

  /// The same on every platform and in every run; equal tokens have equal hashes.
  [[nodiscard]] std::size_t hash() const noexcept;

  /// By text. @{
  OVO_API friend bool operator==(const Token& a, const Token& b) noexcept;
  friend bool operator!=(const Token& a, const Token& b) noexcept { return !(a == b); }
  /// @}
  /// By bytes, taken as unsigned; a shorter text comes before its continuations.
  OVO_API friend bool operator<(const Token& a, const Token& b) noexcept;
  /// By the same order. @{
  friend bool operator>(const Token& a, const Token& b) noexcept { return b < a; }
  friend bool operator<=(const Token& a, const Token& b) noexcept { return !(b < a); }
  friend bool operator>=(const Token& a, const Token& b) noexcept { return !(a < b); }
  /// @}

  /// Writes the bare text.
  OVO_API friend std::ostream& operator<<(std::ostream& out, const Token& token);

 private:
  detail::SharedTextPtr text_;
};

}  // namespace ovo

/// Hashes as Token::hash().
template <>
struct std::hash<ovo::Token> {
  /// The hash of the token.
  std::size_t operator()(const ovo::Token& token) const noexcept { return token.hash(); }
};
