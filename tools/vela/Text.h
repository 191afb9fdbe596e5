/// \file
/// Numbers and lists as text, and texts for lines.
#pragma once

#include <string>
#include <vector>

namespace command {

/// The parts of a comma-separated list, blanks at their ends removed, empty ones left out.
[[nodiscard]] std::vector<std::string> splitList(const std::string& list);

/// Breaks a text at blanks into lines of at most that many bytes; a longer word has its own line.
[[nodiscard]] std::string wrapText(const std::string& text, std::size_t columns);

/// A text that stays within its line and does nothing to a terminal: control characters are
/// written as `\n`, `\t` and `\x1b`. Names of files may hold any of them.
[[nodiscard]] std::string printable(const std::string& text);

/// Reads exactly \p count finite numbers separated by commas. \return false for anything else
[[nodiscard]] bool readNumbers(const std::string& text, std::size_t count,
                               std::vector<double>& numbers);

/// The shortest text that reads back as the same number.
[[nodiscard]] std::string toText(float value);
[[nodiscard]] std::string toText(double value);

}  // namespace command
