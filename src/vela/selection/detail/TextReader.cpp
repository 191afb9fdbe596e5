#include "vela/selection/detail/TextReader.h"

#include <charconv>
#include <limits>
#include <locale>
#include <sstream>

namespace vela::Selection::detail {
namespace {

// The get area of a stream buffer, which the language lets derived classes see.
struct GetArea : std::streambuf {
  using std::streambuf::egptr;
  using std::streambuf::gbump;
  using std::streambuf::gptr;
};

const char* areaNext(std::streambuf& buffer) { return (buffer.*&GetArea::gptr)(); }
const char* areaEnd(std::streambuf& buffer) { return (buffer.*&GetArea::egptr)(); }

void areaAdvance(std::streambuf& buffer, std::uint64_t count) {
  constexpr int kMost = std::numeric_limits<int>::max();
  while (count > static_cast<std::uint64_t>(kMost)) {
    (buffer.*&GetArea::gbump)(kMost);
    count -= static_cast<std::uint64_t>(kMost);
  }
  (buffer.*&GetArea::gbump)(static_cast<int>(count));
}

// The blanks of the classic locale.
constexpr bool isBlank(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isDigit(int c) { return c >= '0' && c <= '9'; }

// Powers of ten that a float holds exactly.
constexpr float kPowersOfTen[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f,
                                  1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
constexpr std::uint32_t kMostExactPower = 10;
// Up to here every integer is a float.
constexpr std::uint64_t kMostExactInteger = std::uint64_t{1} << 24;

}  // namespace

TextReader::TextReader(std::istream& in) : in_(in), buffer_(in.rdbuf()), state_(in.rdstate()) {
  if (isGood() && in.tie()) in.tie()->flush();
}

TextReader::~TextReader() {
  commit();
  try {
    in_.setstate(state_);
  } catch (const std::ios_base::failure&) {  // the state is set all the same, and nothing is thrown
                                             // from here
  }
}

// ---- The window

void TextReader::commit() {
  const auto count = static_cast<std::uint64_t>(next_ - first_);
  takenBefore_ += count;
  if (count > 0) {
    if (isSingle_) {
      try {
        buffer_->sbumpc();
      } catch (...) {
        state_ |= std::ios_base::badbit;
      }
    } else {
      areaAdvance(*buffer_, count);
    }
  }
  first_ = next_ = end_ = nullptr;
}

int TextReader::refill() {
  commit();
  int c = kEnd;
  try {
    const auto got = buffer_->sgetc();
    if (!std::streambuf::traits_type::eq_int_type(got, std::streambuf::traits_type::eof()))
      c = static_cast<unsigned char>(std::streambuf::traits_type::to_char_type(got));
  } catch (...) {  // extraction, too, takes a buffer that throws for a broken stream
    state_ |= std::ios_base::badbit;
  }
  if (c == kEnd) return kEnd;

  isSingle_ = areaNext(*buffer_) == areaEnd(*buffer_);
  if (isSingle_) {
    single_ = static_cast<char>(c);
    first_ = next_ = &single_;
    end_ = first_ + 1;
  } else {
    first_ = next_ = areaNext(*buffer_);
    end_ = areaEnd(*buffer_);
  }
  return c;
}

// ---- Positions

TextReader::Mark TextReader::mark() {
  if (!isGood()) {
    state_ |= std::ios_base::failbit;
    return std::nullopt;
  }
  return taken();
}

std::streamoff TextReader::position(const Mark& mark) {
  if (!mark) return -1;
  commit();
  try {
    const std::streamoff now = buffer_->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    return now < 0 ? -1 : now - static_cast<std::streamoff>(taken() - *mark);
  } catch (...) {
    state_ |= std::ios_base::badbit;
    return -1;
  }
}

// ---- Words and numbers

bool TextReader::begin() {
  if (isGood()) {
    int c = peek();
    while (isBlank(c)) {
      take();
      c = peek();
    }
    if (c != kEnd) return true;
    state_ |= std::ios_base::eofbit;
  }
  state_ |= std::ios_base::failbit;
  return false;
}

void TextReader::word(std::string& token) {
  if (!begin()) return;
  token.clear();
  int c = peek();
  while (c != kEnd && !isBlank(c)) {
    const char* const start = next_;
    do ++next_;
    while (next_ != end_ && !isBlank(static_cast<unsigned char>(*next_)));
    token.append(start, next_);
    c = peek();
  }
  if (c == kEnd) state_ |= std::ios_base::eofbit;
}

bool TextReader::integer(bool& negative, std::uint64_t& magnitude, bool& anyDigit) {
  negative = false;
  magnitude = 0;
  anyDigit = false;
  int c = peek();
  if (c == '-' || c == '+') {
    negative = c == '-';
    take();
    c = peek();
  }

  bool fits = true;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  while (isDigit(c)) {
    anyDigit = true;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (magnitude > kMost / 10 || magnitude * 10 > kMost - digit)
      fits = false;  // the remaining digits still belong to the number
    else
      magnitude = magnitude * 10 + digit;
    take();
    c = peek();
  }
  if (c == kEnd) state_ |= std::ios_base::eofbit;
  return anyDigit && fits;
}

bool TextReader::number(std::uint64_t& value) {
  value = 0;
  if (!begin()) return false;
  bool negative = false, anyDigit = false;
  std::uint64_t magnitude = 0;
  if (!integer(negative, magnitude, anyDigit)) {
    state_ |= std::ios_base::failbit;
    if (anyDigit) value = std::numeric_limits<std::uint64_t>::max();
    return false;
  }
  value = negative ? std::uint64_t{0} - magnitude : magnitude;
  return true;
}

bool TextReader::number(bool& value) {
  if (!begin()) return false;
  bool negative = false, anyDigit = false;
  std::uint64_t magnitude = 0;
  // -0 is 0; -1 is no truth value.
  if (!integer(negative, magnitude, anyDigit) || magnitude > 1 || (negative && magnitude == 1)) {
    state_ |= std::ios_base::failbit;
    return false;
  }
  value = magnitude == 1;
  return true;
}

bool TextReader::number(float& value) {
  if (!begin()) return false;

  // Sign, digits with at most one point, and an exponent once there was a digit: what extraction
  // takes from the text, even where that cannot be read as a number. Leading zeros count as one.
  numberText_.clear();
  bool negative = false, anyDigit = false, hasPoint = false, hasExponent = false;
  std::uint64_t digits = 0;  // without the point; meaningful up to kMostExactInteger
  std::uint32_t fraction = 0;
  int c = peek();
  if (c == '-' || c == '+') {
    negative = c == '-';
    if (negative) numberText_ += '-';
    take();
    c = peek();
  }
  while (c == '0') {
    if (!anyDigit) numberText_ += '0';
    anyDigit = true;
    take();
    c = peek();
  }
  for (;; c = peek()) {
    if (isDigit(c)) {
      anyDigit = true;
      if (digits <= kMostExactInteger) digits = digits * 10 + static_cast<std::uint64_t>(c - '0');
      if (hasPoint && !hasExponent && fraction <= kMostExactPower) ++fraction;
    } else if (c == '.' && !hasPoint && !hasExponent) {
      hasPoint = true;
    } else if ((c == 'e' || c == 'E') && !hasExponent && anyDigit) {
      hasExponent = true;
      numberText_ += 'e';
      take();
      c = peek();
      if (c != '-' && c != '+') {
        if (c == kEnd) break;
        // The next round looks at this character.
        if (!isDigit(c)) break;
        continue;
      }
    } else {
      break;
    }
    numberText_ += static_cast<char>(c);
    take();
  }
  if (c == kEnd) state_ |= std::ios_base::eofbit;

  // Integer and power of ten are both exact: one division rounds as the whole conversion would.
  if (anyDigit && !hasExponent && digits <= kMostExactInteger && fraction <= kMostExactPower) {
    const float magnitude = static_cast<float>(digits) / kPowersOfTen[fraction];
    value = negative ? -magnitude : magnitude;
    return true;
  }

  float converted = 0;
  const char* const end = numberText_.data() + numberText_.size();
  const std::from_chars_result result = std::from_chars(numberText_.data(), end, converted);
  bool isNumber = result.ec == std::errc() && result.ptr == end;
  if (result.ec == std::errc::result_out_of_range) {
    // Too large is a failure and too small is not; only the extraction itself says which it was.
    std::istringstream text(numberText_);
    text.imbue(std::locale::classic());
    isNumber = static_cast<bool>(text >> converted);
  }
  if (!isNumber) {
    state_ |= std::ios_base::failbit;
    return false;
  }
  value = converted;
  return true;
}

}  // namespace vela::Selection::detail
