/// \file
/// Files that appear whole or not at all, and never in the place of one that the command reads.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>

namespace command {

/// A file whatever its paths are, by device and inode.
using FileIdentity = std::optional<std::pair<dev_t, ino_t>>;

/// Notes a file that is read, so that no output may replace it. Files are compared by device and
/// number: links and other spellings of a path name the same file.
/// \param file one that is not there is passed over
/// \throws Failure when an output that is open already is that file
void noteInput(const std::string& file);

/// Notes a file that the command line names, so that it is not taken for what a killed run has left
/// of an output, whatever its name looks like.
void spareFile(const std::string& file);

/// True when an output that is open would replace a file that is there.
[[nodiscard]] bool replacesFiles();

/// True when what is written to that name comes out of an open descriptor: `-` out of standard
/// output, and any name of the file, pipe or terminal behind it. What is thrown away, as by
/// /dev/null, comes out nowhere.
[[nodiscard]] bool comesOutOf(int descriptor, const std::string& name);

/// What an output holds: pictures and selections are refused names of scenes.
enum class OutputKind { picture, selection, scene, manifest };

/// A file to be written. What was written under its temporary name becomes the final file in
/// commit(); without that it is removed, whatever way the scope is left.
///
/// - A regular file is replaced in one step and keeps its mode, and its owner where the user may
///   give files to others. Through a symbolic link its target is replaced.
/// - `-` is standard output. It, devices, pipes and open descriptors (`/dev/fd/3`) are written
///   through in commit(), from a temporary file in the folder for such. A file behind one may be no
///   input either, since writing to it appends or overwrites.
/// - Two outputs may not be one file, nor one stream, nor the log's file.
/// - Temporary files that a killed process has left of the same output are removed: those of such
///   names that nobody holds locked, and that are no files of this command.
class OutputFile {
 public:
  /// Creates the temporary file. \throws Failure when the folder cannot be written to, or the file
  /// is one that is read, or that another output writes
  /// \param ending of the temporary name where the final one has none, as `-`
  explicit OutputFile(const std::string& finalName, OutputKind kind = OutputKind::picture,
                      const std::string& ending = "");
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Where to write; ends as the final name does. What is there may be replaced as well.
  [[nodiscard]] const std::string& temporaryName() const noexcept { return temporary_; }
  [[nodiscard]] const std::string& finalName() const noexcept { return final_; }

  /// Gives the written file its final name, in one step. \throws Failure when that cannot be done
  void commit();

 private:
  void refuseSameFile() const;
  [[nodiscard]] FileIdentity identity() const;
  void createTemporary(const std::string& folder, const std::string& name);
  void takeOver();
  void keepModeAndOwner() const;
  void writeThrough();
  friend void noteInput(const std::string& file);
  friend bool replacesFiles();

  std::string final_;      // as it was given
  std::string target_;     // what is replaced: absolute, without links; empty to write through
  FileIdentity through_;   // what is written through; none where that is thrown away
  std::string temporary_;  // absolute
  int handle_ = -1;        // of the temporary file, locked while this lives
  bool committed_ = false;
};

}  // namespace command
