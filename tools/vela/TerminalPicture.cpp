#include "TerminalPicture.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <system_error>

namespace command {

namespace {

using vela::picture::DisplayImage;
using Colour = std::array<int, 3>;

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

// The mean of the pixels of one field of a grid that is laid over the image. No field is empty,
// since there are at most as many fields as pixels each way.
Colour meanOf(const DisplayImage& image, int column, int columns, int row, int rows) {
  const auto start = [](int index, int count, int pixels) {
    return static_cast<int>(static_cast<std::int64_t>(index) * pixels / count);
  };
  const int x0 = start(column, columns, image.width), x1 = start(column + 1, columns, image.width);
  const int y0 = start(row, rows, image.height), y1 = start(row + 1, rows, image.height);
  const std::size_t channels = image.hasAlpha ? 4 : 3;
  // In 255ths of codes, for alpha.
  std::array<std::int64_t, 3> sums = {};
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) {
      const std::size_t pixel =
          static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) +
          static_cast<std::size_t>(x);
      const std::uint8_t* const codes = &image.codes[pixel * channels];
      const int alpha = image.hasAlpha ? codes[3] : 255;
      for (std::size_t k = 0; k < 3; ++k) sums[k] += codes[k] * alpha;
    }
  const std::int64_t whole = 255 * static_cast<std::int64_t>(x1 - x0) * (y1 - y0);
  Colour mean = {};
  for (std::size_t k = 0; k < 3; ++k) mean[k] = static_cast<int>((sums[k] + whole / 2) / whole);
  return mean;
}

std::string codes(const char* ground, const Colour& colour) {
  return std::string("\x1b[") + ground + ";2;" + std::to_string(colour[0]) + ";" +
         std::to_string(colour[1]) + ";" + std::to_string(colour[2]) + "m";
}

// How light a colour is to the eye: the weights of sRGB's primaries, in thousandths.
int greyOf(const Colour& c) { return (213 * c[0] + 715 * c[1] + 72 * c[2]) / 1000; }

}  // namespace

TerminalSize terminalSize(std::FILE* stream) {
  TerminalSize result;
  struct winsize size = {};
  result.isTerminal = isatty(fileno(stream)) != 0;
  if (result.isTerminal && ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    result.columns = size.ws_col;
    result.rows = size.ws_row;
    return result;
  }
  const std::string asked = variable("COLUMNS");
  constexpr int kWidest = 16384;
  int columns = 0;
  const auto [stop, error] = std::from_chars(asked.data(), asked.data() + asked.size(), columns);
  if (error == std::errc() && stop == asked.data() + asked.size() && columns > 0 &&
      columns <= kWidest)
    result.columns = columns;
  return result;
}

std::string terminalPicture(const DisplayImage& image, const TerminalSize& size, bool isColoured) {
  static const std::string ramp = " .:-=+*#%@";
  if (image.width < 1 || image.height < 1) return "";
  // The share of the image's size that fits both ways.
  double share = std::min(1.0, static_cast<double>(size.columns) / image.width);
  if (size.rows > 0) share = std::min(share, 2.0 * size.rows / image.height);
  const auto reduced = [&](int pixels) {
    return std::clamp(static_cast<int>(std::lround(pixels * share)), 1, pixels);
  };
  const int width = std::min(reduced(image.width), std::max(size.columns, 1));
  const int height = reduced(image.height);

  std::string text;
  for (int y = 0; y < height; y += 2) {
    for (int x = 0; x < width; ++x) {
      const Colour upper = meanOf(image, x, width, y, height);
      const bool hasLower = y + 1 < height;
      const Colour lower = hasLower ? meanOf(image, x, width, y + 1, height) : upper;
      if (isColoured) {
        text += codes("38", upper);
        // The last line of an odd number has the terminal's own colour below.
        text += hasLower ? codes("48", lower) : "\x1b[49m";
        text += "\xe2\x96\x80";
      } else {
        const int grey = (greyOf(upper) + greyOf(lower)) / 2;
        text += ramp[static_cast<std::size_t>(grey) * ramp.size() / 256];
      }
    }
    text += isColoured ? "\x1b[0m\n" : "\n";
  }
  return text;
}

void showPicture(const DisplayImage& image, const std::string& title, std::FILE* stream) {
  TerminalSize size = terminalSize(stream);
  if (size.rows > 0) size.rows = std::max(1, size.rows - (title.empty() ? 1 : 2));
  const bool isDumb = size.isTerminal && variable("TERM") == "dumb";
  if (!title.empty()) std::fprintf(stream, "%s\n", title.c_str());
  std::fputs(terminalPicture(image, size, variable("NO_COLOR").empty() && !isDumb).c_str(), stream);
  std::fflush(stream);
}

}  // namespace command
