/// \file
/// What a verb says besides its result: warnings and notes, on standard error.
///
/// A line is said once however often it comes up. The log's level keeps lines back: with `warning`
/// notes, with `error` and `quiet` warnings too. With `--strict` whatever is said, or would be,
/// turns a good end into the exit code 3.
#pragma once

#include <string>
#include <vector>

namespace command {

enum class Notice { note, warning };

/// \param head what every line begins with, such as "vela render"
void setNoticeHead(const std::string& head);
/// The level that the command line or the environment asks for: lines above it are kept back.
void setNoticeLevel(unsigned level);
void setStrict();

/// `vela VERB: note: TEXT`.
void say(Notice notice, const std::string& text);

/// Lines that say the same of different things become one with a count: those that are equal but
/// for what stands in quotes, in brackets or between @, for paths and for numbers.
void sayAlike(Notice notice, const std::vector<std::string>& texts);

/// True under --strict when anything was said.
[[nodiscard]] bool isLessThanStrict();

/// A word of a line, such as `error:`, coloured where standard error is a terminal that shows
/// colours and NO_COLOR does not forbid it.
[[nodiscard]] std::string coloured(const std::string& word);

}  // namespace command
