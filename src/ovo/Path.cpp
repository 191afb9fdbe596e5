#include "ovo/Path.h"

#include <ostream>

#include "ovo/detail/SharedText.h"

namespace ovo {

Path::Path(const char* text) : text_(text ? detail::makeSharedText(text) : nullptr) {}
Path::Path(const std::string& text) : text_(detail::makeSharedText(text)) {}
Path::Path(std::string_view text) : text_(detail::makeSharedText(text)) {}

Path Path::absoluteRoot() { return Path(std::string_view("/")); }

const std::string& Path::asString() const noexcept { return detail::textOf(text_); }
std::size_t Path::hash() const noexcept { return detail::hashOf(text_); }

Path Path::parent() const {
  const std::string_view text = asString();
  const std::size_t slash = text.rfind('/');
  if (slash == std::string_view::npos || text.size() == 1) return Path();
  return Path(text.substr(0, slash == 0 ? 1 : slash));
}

Token Path::name() const {
  const std::string_view text = asString();
  const std::size_t slash = text.rfind('/');
  return Token(slash == std::string_view::npos ? text : text.substr(slash + 1));
}

Path Path::child(const Token& name) const {
  if (name.isEmpty()) return *this;
  const std::string& text = asString();
  std::string joined;
  joined.reserve(text.size() + 1 + name.asString().size());
  joined = text;
  if (!text.empty() && text != "/") joined += '/';
  joined += name.asString();
  return Path(joined);
}

bool Path::hasPrefix(const Path& prefix) const noexcept {
  const std::string& text = asString();
  const std::string& head = prefix.asString();
  if (head.empty() || text.compare(0, head.size(), head) != 0) return false;
  return text.size() == head.size() || head.back() == '/' || text[head.size()] == '/';
}

bool operator==(const Path& a, const Path& b) noexcept {
  return detail::sameText(a.text_, b.text_);
}
bool operator<(const Path& a, const Path& b) noexcept { return a.asString() < b.asString(); }

std::ostream& operator<<(std::ostream& out, const Path& path) { return out << path.asString(); }

}  // namespace ovo
