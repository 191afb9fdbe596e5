/// \file
/// Words and numbers from a stream, exactly as formatted extraction in the classic locale with
/// default flags reads them, but straight from the stream's buffer.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <streambuf>
#include <string>

namespace vela::Selection::detail {

/// Reads in place of the stream while it lives: the stream's own position and state follow when it
/// dies. As with extraction, the first failure makes every later read fail, without taking anything
/// more from the text.
class TextReader {
 public:
  explicit TextReader(std::istream& in);
  ~TextReader();
  TextReader(const TextReader&) = delete;
  TextReader& operator=(const TextReader&) = delete;

  /// A position in the text, as std::istream::tellg gives it; remembered cheaply, worked out when
  /// asked for.
  using Mark = std::optional<std::uint64_t>;
  [[nodiscard]] Mark mark();
  /// -1 when the reads had failed, or the text was at its end, when the mark was made, and for
  /// streams that cannot tell their position.
  [[nodiscard]] std::streamoff position(const Mark& mark);

  /// The next word; untouched when there is none.
  void word(std::string& token);
  /// False, with 0, when there is no number, and with the largest one when it does not fit. A minus
  /// sign wraps. All as extraction has it.
  bool number(std::uint64_t& value);
  /// False when there is no number or it is out of range. "inf" and "nan" cannot be read.
  bool number(float& value);
  /// 0 or 1; false, with the value untouched, for anything else.
  bool number(bool& value);

  /// Ends the reading from here on, like a number that could not be read.
  void fail() { state_ |= std::ios_base::failbit; }

  /// How many characters are known to be there. Costs nothing, and may be less than there are.
  [[nodiscard]] std::size_t charactersAtHand() const {
    return static_cast<std::size_t>(end_ - next_);
  }

 private:
  static constexpr int kEnd = -1;

  [[nodiscard]] bool isGood() const { return state_ == std::ios_base::goodbit; }
  // Skips blanks; false when nothing may be read or nothing is left.
  bool begin();
  // The next character without taking it, or kEnd.
  int peek() { return next_ != end_ ? static_cast<unsigned char>(*next_) : refill(); }
  void take() { ++next_; }
  int refill();
  // Makes the stream's buffer agree with what was taken.
  void commit();
  [[nodiscard]] std::uint64_t taken() const {
    return takenBefore_ + static_cast<std::uint64_t>(next_ - first_);
  }
  // Sign and digits; false when there was no digit or the magnitude does not fit.
  bool integer(bool& negative, std::uint64_t& magnitude, bool& anyDigit);

  std::istream& in_;
  std::streambuf* const buffer_;
  std::ios_base::iostate state_;

  // The window: part of the stream's get area, or a single character of a stream that has none.
  const char* first_ = nullptr;
  const char* next_ = nullptr;
  const char* end_ = nullptr;
  bool isSingle_ = false;
  char single_ = 0;
  std::uint64_t takenBefore_ = 0;

  std::string numberText_;
};

}  // namespace vela::Selection::detail
