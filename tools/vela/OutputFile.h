/// \file
/// A file that appears whole or not at all.
#pragma once

#include <string>

namespace command {

/// Holds a temporary name beside the final one. What was written under it becomes the final file in
/// commit(); without that it is removed, whatever way the scope is left.
class OutputFile {
 public:
  /// Creates the temporary file. \throws Failure when the folder cannot be written to
  explicit OutputFile(const std::string& finalName);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Where to write.
  [[nodiscard]] const std::string& temporaryName() const noexcept { return temporary_; }
  [[nodiscard]] const std::string& finalName() const noexcept { return final_; }

  /// Gives the written file its final name, in one step. \throws Failure when that cannot be done
  void commit();

 private:
  std::string final_, temporary_;
  bool committed_ = false;
};

}  // namespace command
