#include "vela/scene/FrameRange.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <set>

namespace vela::scene {

namespace {

constexpr std::size_t kMostFrames = 1'000'000;

// A number at the start of a text, which is cut off. Exponents are no part of it: `1e3` is none.
bool readNumber(const std::string& text, std::size_t& at, double& value) {
  std::size_t end = at;
  if (end < text.size() && text[end] == '-') ++end;
  while (end < text.size() &&
         (std::isdigit(static_cast<unsigned char>(text[end])) || text[end] == '.'))
    ++end;
  const auto [stop, error] =
      std::from_chars(text.data() + at, text.data() + end, value, std::chars_format::fixed);
  if (error != std::errc() || stop != text.data() + end) return false;
  at = end;
  return std::abs(value) <= 1e9;
}

// Where a frame stands in a name.
struct Place {
  std::size_t begin = 0, end = 0;
  std::size_t width = 0;
  char fill = '0';
};

std::optional<Place> findPlace(const std::string& name, std::size_t from) {
  for (std::size_t i = from; i < name.size(); ++i) {
    if (name[i] == '#') {
      const std::size_t end = std::min(name.find_first_not_of('#', i), name.size());
      return Place{i, end, end - i, '0'};
    }
    if (name[i] != '%') continue;
    std::size_t end = i + 1;
    while (end < name.size() && std::isdigit(static_cast<unsigned char>(name[end]))) ++end;
    if (end >= name.size() || name[end] != 'd' || end - i > 4) continue;
    Place place{i, end + 1, 0, name[i + 1] == '0' ? '0' : ' '};
    std::from_chars(name.data() + i + 1, name.data() + end, place.width);
    return place;
  }
  return std::nullopt;
}

std::string textOf(double frame, std::size_t width, char fill) {
  const double whole = std::trunc(frame);
  std::string digits = std::to_string(static_cast<long long>(std::abs(whole)));
  const bool isNegative = std::signbit(frame) && frame != 0.0;
  const std::size_t used = digits.size() + (isNegative ? 1 : 0);
  const std::string filling(width > used ? width - used : 0, fill);
  std::string text;
  if (isNegative)
    text = fill == '0' ? "-" + filling + digits : filling + "-" + digits;
  else
    text = filling + digits;
  if (frame != whole) {
    // The shortest decimals of the frame itself: those of the difference would show its rounding.
    char all[512];
    const auto end = std::to_chars(all, all + sizeof all, frame, std::chars_format::fixed).ptr;
    const std::string shortest(all, end);
    text += shortest.substr(shortest.find('.'));
  }
  return text;
}

}  // namespace

std::optional<std::vector<double>> parseFrames(const std::string& text, std::string* error) {
  const auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return std::nullopt;
  };
  std::vector<double> frames;
  std::set<double> known;
  std::size_t at = 0;
  for (;;) {
    double first = 0.0, last = 0.0, step = 1.0;
    if (!readNumber(text, at, first)) return fail("a frame is missing or no number");
    last = first;
    if (at < text.size() && text[at] == '-') {
      ++at;
      if (!readNumber(text, at, last)) return fail("the end of a range is missing or no number");
      if (at < text.size() && text[at] == 'x') {
        ++at;
        if (!readNumber(text, at, step) || !(step > 0.0))
          return fail("the step of a range is not above 0");
      }
    }
    // By multiples of the step, so that no error adds up; a step that ends a rounding error short
    // of the last frame still has it.
    const double count = std::floor(std::abs(last - first) / step + 1e-9);
    if (count + static_cast<double>(frames.size()) >= static_cast<double>(kMostFrames))
      return fail("these are more than " + std::to_string(kMostFrames) + " frames");
    for (std::size_t i = 0; i <= static_cast<std::size_t>(count); ++i) {
      const double steps = static_cast<double>(i);
      const double frame = first + (last < first ? -steps : steps) * step;
      if (known.insert(frame).second) frames.push_back(frame);
    }
    if (at == text.size()) return frames;
    if (text[at] != ',') return fail("frames are apart by commas");
    ++at;
  }
}

bool hasFramePlace(const std::string& name) { return findPlace(name, 0).has_value(); }

std::string nameOfFrame(const std::string& name, double frame) {
  std::string text;
  std::size_t at = 0;
  while (const std::optional<Place> place = findPlace(name, at)) {
    text.append(name, at, place->begin - at);
    text += textOf(frame, place->width, place->fill);
    at = place->end;
  }
  return text + name.substr(at);
}

}  // namespace vela::scene
