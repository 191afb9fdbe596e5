#include "ovo/Token.h"

#include <ostream>

#include "ovo/detail/SharedText.h"
#include "tarn/Hash.h"

namespace ovo {

namespace detail {

namespace {

std::size_t hashText(std::string_view text) noexcept {
  tarn::Hash hash;
  hash.append(text.data(), text.size());
  return static_cast<std::size_t>(hash.value());
}

}  // namespace

SharedText::SharedText(std::string_view from) : text(from), hash(hashText(from)) {}

SharedTextPtr makeSharedText(std::string_view text) {
  return text.empty() ? nullptr : std::make_shared<const SharedText>(text);
}

const std::string& textOf(const SharedTextPtr& text) noexcept {
  // Never destroyed: tokens in other static objects are still read while the process ends.
  static const std::string* const empty = new std::string;
  return text ? text->text : *empty;
}

std::size_t hashOf(const SharedTextPtr& text) noexcept {
  static const std::size_t emptyHash = hashText({});
  return text ? text->hash : emptyHash;
}

bool sameText(const SharedTextPtr& a, const SharedTextPtr& b) noexcept {
  if (a == b) return true;
  return a && b && a->hash == b->hash && a->text == b->text;
}

}  // namespace detail

Token::Token(const char* text) : text_(text ? detail::makeSharedText(text) : nullptr) {}
Token::Token(const std::string& text) : text_(detail::makeSharedText(text)) {}
Token::Token(std::string_view text) : text_(detail::makeSharedText(text)) {}

const std::string& Token::asString() const noexcept { return detail::textOf(text_); }
std::size_t Token::hash() const noexcept { return detail::hashOf(text_); }

bool operator==(const Token& a, const Token& b) noexcept {
  return detail::sameText(a.text_, b.text_);
}
bool operator<(const Token& a, const Token& b) noexcept { return a.asString() < b.asString(); }

std::ostream& operator<<(std::ostream& out, const Token& token) { return out << token.asString(); }

}  // namespace ovo
