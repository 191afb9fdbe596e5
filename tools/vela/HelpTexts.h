/// \file
/// What `vela help` prints, made from the table of verbs: help of at most 80 columns, man pages,
/// and what completes command lines in shells.
#pragma once

#include <cstddef>
#include <string>

#include "VerbTable.h"

namespace command {

/// The verbs, what holds for all of them, and the exit codes.
[[nodiscard]] std::string overallHelp();
/// Examples come last.
[[nodiscard]] std::string helpOf(const VerbRow& verb);

/// The source of a man page: of the verb, or of the command when null.
[[nodiscard]] std::string manPage(const VerbRow* verb);

/// A command line in lines that a shell reads as one, each with its line end; those after the first
/// stand three columns further in. An option stays with its value.
[[nodiscard]] std::string exampleLines(const std::string& example, std::size_t indent,
                                       std::size_t columns);

/// \param shell bash, zsh or fish
[[nodiscard]] std::string completion(const std::string& shell);

/// Writes man pages and completions below a folder, where a `share` has them: `man/man1`,
/// `bash-completion/completions`, `zsh/site-functions`, `fish/vendor_completions.d`.
/// \return the file that could not be written; empty when all were
std::string writeShare(const std::string& folder);

/// Every row of the table of messages, with its exit code.
[[nodiscard]] std::string messageList();

}  // namespace command
