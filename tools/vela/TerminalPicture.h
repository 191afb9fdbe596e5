/// \file
/// Images as text, for terminals.
#pragma once

#include <cstdio>
#include <string>

#include "vela/picture/DisplayImage.h"

namespace command {

/// How many cells there are for a text.
struct TerminalSize {
  int columns = 80;
  int rows = 0;  ///< 0: any number, as in a file
  bool isTerminal = false;
};

/// The size of the terminal that a stream goes to. Elsewhere, and where a terminal does not tell
/// its width, it is as wide as COLUMNS says, else 80 columns.
[[nodiscard]] TerminalSize terminalSize(std::FILE* stream);

/// An image in lines of cells, each an upper half block over the lower half's colour: two pixels a
/// cell, in 24-bit colour. Without colour cells are characters of a grey ramp, from a blank for
/// black to `@` for white. What an image shows nothing at is black.
/// \param size an image that does not fit is reduced by the means of areas, keeping its shape; none
///             is enlarged
[[nodiscard]] std::string terminalPicture(const vela::picture::DisplayImage& image,
                                          const TerminalSize& size, bool isColoured);

/// Prints it: without colour where NO_COLOR asks for that, or a terminal that is called dumb has
/// none. One line of a terminal stays free, for the prompt.
/// \param title a line above it; none when empty
void showPicture(const vela::picture::DisplayImage& image, const std::string& title,
                 std::FILE* stream);

}  // namespace command
