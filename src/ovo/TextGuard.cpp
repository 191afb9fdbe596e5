#include "ovo/detail/TextGuard.h"

#include <algorithm>

namespace ovo::detail {

namespace {

constexpr const char* kTooDeep = "nested more than 500 deep";
static_assert(kMaxTextNesting == 500, "the message says the number");
constexpr const char* kPathTooLong = "a path has more than 1000 names";
static_assert(kMaxPrimNesting == 1000, "the message says the number");
constexpr const char* kZeroByte = "the text has a zero byte in it";

bool opens(char c) { return c == '{' || c == '[' || c == '('; }
bool closes(char c) { return c == '}' || c == ']' || c == ')'; }
bool isOfPath(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '/' || static_cast<unsigned char>(c) >= 0x80;
}

// Steps over a text token by token, just as the parser splits it: where the two differ, brackets
// could hide in what only one of them takes for a comment, a string or a file name. Where the
// parser stops with an error it does not matter how this goes on.
class TextGuard {
 public:
  explicit TextGuard(std::string_view text)
      : text_(text),
        // Only attributes of this type have their strings parsed as path expressions.
        hasPathExpressions_(text.find("pathExpression") != std::string_view::npos) {}

  const char* run() {
    while (at_ < text_.size() && !why_) {
      const char c = text_[at_];
      if (c == '#' || (c == '/' && next(1) == '/')) {
        at_ = text_.find('\n', at_);
      } else if (c == '/' && next(1) == '*') {
        at_ = text_.find("*/", at_ + 2);
        if (at_ != std::string_view::npos) at_ += 2;
      } else if (c == '@') {
        skipFileName();
      } else if (c == '"' || c == '\'') {
        skipString(c);
      } else {
        measurePath(c);
        if (opens(c) && ++depth_ > kMaxTextNesting) why_ = kTooDeep;
        if (closes(c) && depth_ > 0) --depth_;
        ++at_;
      }
    }
    return why_;
  }

 private:
  [[nodiscard]] char next(std::size_t ahead) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }
  [[nodiscard]] bool isTriple(char c) const { return next(1) == c && next(2) == c; }

  // @name@ or @@@name@@@. The latter holds single and double signs, three in a row after a
  // backslash, and up to two signs before its end.
  void skipFileName() {
    const bool triple = isTriple('@');
    const std::size_t begin = at_ + (triple ? 3 : 1);
    std::size_t end = begin;
    for (;; ++end) {
      end = text_.find_first_of("@\n", end);
      if (end == std::string_view::npos || text_[end] == '\n' || !triple) break;
      if (text_.substr(end, 3) != "@@@") continue;
      if (end == begin || text_[end - 1] != '\\') break;
      end += 2;
    }
    end = std::min(end, text_.size());
    const std::string_view name = text_.substr(begin, end - begin);
    // In an expression brackets may stand in quotes, where closing ones close nothing. So only
    // opening ones count.
    if (!name.empty() && name[0] == '`' &&
        std::count_if(name.begin(), name.end(), opens) > std::ptrdiff_t{kMaxTextNesting})
      why_ = kTooDeep;
    at_ = end + (triple ? 3 : 1);
    for (int i = 0; triple && i < 2 && next(0) == '@'; ++i) ++at_;
  }

  void skipString(char quote) {
    const bool triple = isTriple(quote);
    at_ += triple ? 3 : 1;
    const bool mayBeExpression = hasPathExpressions_ || next(0) == '`' || next(0) == '\\';
    bool hasQuotes = false, isPath = true;
    std::size_t depth = 0, opened = 0, complements = 0, names = 0;
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (c == '\\') {
        ++at_;
        // A character by its number may be any other.
        const char escaped = next(0);
        hasQuotes = true;
        if (escaped == 'x' || (escaped >= '0' && escaped <= '7')) {
          ++opened;
          ++names;
        }
        continue;
      }
      if (c == quote && (!triple || isTriple(quote))) {
        at_ += triple ? 3 : 1;
        break;
      }
      if (c == '\n' && !triple) break;
      if (opens(c)) {
        ++opened;
        if (++depth > kMaxTextNesting) why_ = kTooDeep;
      }
      if (closes(c) && depth > 0) --depth;
      isPath = isPath && isOfPath(c);
      hasQuotes = hasQuotes || c == '"' || c == '\'';
      names += c == '/';
      // Complements nest without brackets.
      complements = c == '~' ? complements + 1 : 0;
      if (complements > kMaxTextNesting) why_ = kTooDeep;
    }
    // Within the quotes of an expression closing brackets close nothing, as in file names.
    if (mayBeExpression && hasQuotes && opened > kMaxTextNesting) why_ = kTooDeep;
    // The default prim is named by a string, which may be a path.
    if (isPath && names > kMaxPrimNesting) why_ = kPathTooLong;
  }

  // Composition goes up a path from name to name, by recursion. A path stands between < and >.
  void measurePath(char c) {
    if (c == '<') {
      inPath_ = true;
      names_ = 0;
    } else if (c == '>' || c == '\n') {
      inPath_ = false;
    } else if (inPath_ && (c == '/' || c == '{') && ++names_ > kMaxPrimNesting) {
      why_ = kPathTooLong;
    }
  }

  std::string_view text_;
  bool hasPathExpressions_;
  bool inPath_ = false;
  std::size_t at_ = 0, depth_ = 0, names_ = 0;
  const char* why_ = nullptr;
};

}  // namespace

const char* whyTextIsUnfit(std::string_view text) noexcept {
  if (text.substr(0, 5) == "#usda" && text.find('\0') != std::string_view::npos) return kZeroByte;
  return TextGuard(text).run();
}

}  // namespace ovo::detail
