/// \file
/// Scene files while OpenUSD writes them.
#pragma once

#include <cstddef>
#include <string>

namespace ovo::detail {

/// A file that this thread has OpenUSD write. Where the file system can do that it has no name
/// until it is whole, so that a process that is killed leaves nothing. It is removed unless it
/// replaces another.
///
/// OpenUSD by itself writes to a second temporary file, which a killed process leaves behind, and
/// takes a crate of which only the first bytes found room on the disk for written.
///
/// Threads: OpenUSD must open the file on the thread that made this.
class UnfinishedFile {
 public:
  /// \param name of the file until it is whole; nothing may have that name
  explicit UnfinishedFile(std::string name);
  ~UnfinishedFile();
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  /// The one that this thread is to write under that name, or null.
  [[nodiscard]] static UnfinishedFile* of(const std::string& name) noexcept;

  /// Makes the file. \return false when that cannot be done
  bool open();
  /// Writes all bytes. \return false when that cannot be done, now or before
  bool write(const void* bytes, std::size_t count, std::size_t offset);
  [[nodiscard]] bool hasFailed() const noexcept { return error_ != 0; }

  /// Gives the whole file its name. \return false when something could not be done
  bool finish();

  /// Puts the file in the place of another, or where none is, in one step.
  /// \return false when something could not be done; why() says what
  bool replace(const std::string& target);
  [[nodiscard]] std::string why() const;

  /// Gives the file the permissions of another, as bits of stat's st_mode.
  void setMode(unsigned mode);

 private:
  bool fail();
  [[nodiscard]] std::string openName() const;

  std::string name_;
  UnfinishedFile* before_;
  int handle_ = -1;
  int error_ = 0;
  bool hasName_ = false;
};

}  // namespace ovo::detail
