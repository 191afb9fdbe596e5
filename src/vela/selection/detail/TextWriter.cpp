#include "vela/selection/detail/TextWriter.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace vela::Selection::detail {
namespace {

constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

// Writes a magnitude in [1e-4, 999999.5) with six significant digits and without trailing zeros.
// Exact: a float has 24 bits and 10^9 is 2^9 times a number of 21 bits, so the scaled value fits a
// double's 53, and what is left to do is one rounding, half to even, as the formatted output does
// it.
char* writeFixed(double magnitude, char* out) {
  // Where the first digit stands: magnitude is in [10^exponent, 10^(exponent + 1)).
  int exponent = -4;
  if (magnitude >= 1.0) {
    exponent = 0;
    while (magnitude >= kPowersOfTen[exponent + 1]) ++exponent;
  } else if (magnitude >= 1e-1) {
    exponent = -1;
  } else if (magnitude >= 1e-2) {
    exponent = -2;
  } else if (magnitude >= 1e-3) {
    exponent = -3;
  }

  // Six digits as an integer.
  const double scaled = magnitude * kPowersOfTen[5 - exponent];
  auto digits = static_cast<std::uint32_t>(scaled);
  const double rest = scaled - static_cast<double>(digits);
  if (rest > 0.5 || (rest == 0.5 && (digits & 1u) != 0)) ++digits;
  if (digits == 1000000) {
    digits = 100000;
    ++exponent;
  }
  char text[6];
  for (int i = 5; i >= 0; --i) {
    text[i] = static_cast<char>('0' + digits % 10);
    digits /= 10;
  }
  int count = 6;
  while (count > 1 && text[count - 1] == '0') --count;

  // The decimal point among the digits.
  if (exponent < 0) {
    *out++ = '0';
    *out++ = '.';
    for (int i = exponent; i < -1; ++i) *out++ = '0';
    for (int i = 0; i < count; ++i) *out++ = text[i];
    return out;
  }
  for (int i = 0; i <= exponent; ++i) *out++ = text[i];
  if (count > exponent + 1) {
    *out++ = '.';
    for (int i = exponent + 1; i < count; ++i) *out++ = text[i];
  }
  return out;
}

}  // namespace

void TextWriter::text(std::string_view text) {
  if (text.size() > kCapacity - size_) {
    flush();
    if (text.size() > kCapacity) {
      out_.write(text.data(), static_cast<std::streamsize>(text.size()));
      return;
    }
  }
  std::memcpy(buffer_ + size_, text.data(), text.size());
  size_ += text.size();
}

void TextWriter::number(std::uint64_t value) {
  char* const room = roomForNumber();
  if (value < 10) {
    *room = static_cast<char>('0' + value);
    ++size_;
    return;
  }
  size_ += static_cast<std::size_t>(std::to_chars(room, room + kLongestNumber, value).ptr - room);
}

void TextWriter::number(float value) {
  char* const room = roomForNumber();
  char* end = room;
  const double magnitude = std::fabs(static_cast<double>(value));
  if (magnitude == 0 || (magnitude >= 1e-4 && magnitude < 999999.5)) {
    if (std::signbit(value)) *end++ = '-';
    if (magnitude == 0)
      *end++ = '0';
    else
      end = writeFixed(magnitude, end);
  } else {
    end = std::to_chars(room, room + kLongestNumber, value, std::chars_format::general, 6).ptr;
  }
  size_ += static_cast<std::size_t>(end - room);
}

void TextWriter::flush() {
  out_.write(buffer_, static_cast<std::streamsize>(size_));
  size_ = 0;
}

}  // namespace vela::Selection::detail
