/// \file
/// The process-wide log: lines with a header, filtered by level, in one file or on the standard
/// error stream.
///
/// The environment chooses, once: `HALDEN_LOG_FILE` the file (empty: the standard error stream),
/// else `TEMP` its folder; `HALDEN_LOG_LEVEL` the level. A line looks like
///
///     [Error][2026/03/03:09:05:00] text                     no application name, no identifier
///     [app Error][2026/03/03:09:05:00] text                 an application name
///     [Asset System Error][2026/03/03:09:05:00] text        an identifier
///     [app/Asset System Error][2026/03/03:09:05:00] text    both
///     [Asset System] text                                   an identifier's replaced header
///
/// with the local time. Threads: every function may be called from any thread; lines never mix. A
/// line is in the file when the call that ends it returns. Nothing throws but allocation.
///
/// \code
///   Halden::Log::setApplicationName("turntable");
///   Halden::Log::setLevel(Halden::Log::parseLevel("warning"));
///
///   // A whole line at once, or piece by piece.
///   const unsigned textures = Halden::Log::channel("Textures");
///   Halden::Log::write(Halden::Log::error, "no such file", textures);
///   if (Halden::Log::Line line = Halden::Log::header(Halden::Log::warning, textures))
///     Halden::Log::stream() << 3 << " files are read twice\n";
///
///   // Filtered lines cost a comparison.
///   const bool isWritten = static_cast<bool>(Halden::Log::header(Halden::Log::verbose));
///   assert(!isWritten);
/// \endcode
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "vela/Api.h"

namespace Halden::Log {

/// A message is written when its level is not above the log's: quiet messages always are.
enum Level : unsigned {
  quiet = 0,    ///< written at every level of the log
  error = 1,    ///< something failed
  warning = 2,  ///< something may be wrong
  message = 3,  ///< worth knowing
  verbose = 4,  ///< every step
  /// No level: what parseLevel gives for any other text, and the log's own level before its first
  /// use.
  unset = 5
};

// ---- Settings

/// Sets the level; with `readEnvironment` a readable `HALDEN_LOG_LEVEL` then replaces it.
/// `unset` takes the log back to before its first use: the next message finds `error`, or what the
/// environment says.
VELA_API void setLevel(unsigned level, bool readEnvironment = false);

/// The level as it stands: `unset` until the first message was filtered or a level was set.
[[nodiscard]] VELA_API unsigned level();

/// "quiet" 0, "error" 1, "warning" 2, "message" 3, "verbose" and "all" 4; any other text, upper
/// case too, 5.
[[nodiscard]] VELA_API unsigned parseLevel(std::string_view text);

/// The name in every following header; empty (the default) leaves it out.
VELA_API void setApplicationName(std::string name);

/// Lets messages of a sub-system through and gives the text of their headers; a second call
/// replaces the text.
/// \param identifier  any number but 0, which stands for "no sub-system" and is ignored here
VELA_API void enableIdentifier(unsigned identifier, std::string text);

/// Shortens the headers of a sub-system to "[text] ": no application name, level or time. Does not
/// enable it.
/// \param identifier  any number but 0, which is ignored
VELA_API void replaceHeader(unsigned identifier, std::string text);

/// The channel of that name: an identifier that was enabled with this text, else a new one (from
/// 0x10000 up), enabled.
[[nodiscard]] VELA_API unsigned channel(std::string_view name);

// ---- Where lines go

/// The log file's path, found at the first call and the same ever after. It need not be a file that
/// can be opened.
[[nodiscard]] VELA_API const std::string& path();

/// The stream that lines go to, opened at the first call: the file, for appending, else the
/// standard error stream, which is told once why the file could not be opened. Write to it only
/// while a Line is held.
[[nodiscard]] VELA_API std::ostream& stream();

// ---- Lines

/// One line being written: holds the log's mutex until it dies, and flushes then.
/// False when the message is filtered: nothing was written and no mutex is held. It must die on the
/// thread that made it. A thread may start a second line while it holds one; the texts then follow
/// one another as written.
class VELA_API Line {
 public:
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  /// Takes the line over. The other is false then, and its end writes nothing.
  Line(Line&& other) noexcept : held_(other.held_) { other.held_ = false; }
  ~Line();

  /// True while the line is to be written; false when it was filtered, or moved from.
  explicit operator bool() const { return held_; }

 private:
  friend VELA_API Line header(unsigned level, unsigned identifier);
  explicit Line(bool held) : held_(held) {}

  bool held_;
};

/// Begins a line: filters, takes the mutex, writes the header. The caller writes the text and the
/// line end to stream().
/// \param level       0 to 4; messages of any other level are filtered
/// \param identifier  0, or the sub-system, which must have been enabled
[[nodiscard]] VELA_API Line header(unsigned level, unsigned identifier = 0);

/// Writes a whole line in one piece: header, text, line end. Filtered as by header().
VELA_API void write(unsigned level, std::string_view text, unsigned identifier = 0);

}  // namespace Halden::Log
