/// \file
/// Runs a program as a process of its own: for whatever the environment decides once in a process's
/// life.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vela_test {

struct ChildResult {
  int exitCode = -1;  ///< -1 when a signal ended it or it could not be started
  std::string out;    ///< all of its standard output
  std::string err;    ///< all of its standard error stream
};

/// Changes to the environment the child inherits: a text sets a variable, nullopt removes it.
using Environment = std::map<std::string, std::optional<std::string>>;

/// Runs `arguments[0]` with the rest as its arguments and waits for its end.
/// \param folder  the child's working folder; empty: this process's
ChildResult runChild(const std::vector<std::string>& arguments, const Environment& environment = {},
                     const std::string& folder = {});

/// An empty folder that is removed, with all that is in it, when the object dies.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::string& path);

/// Writes a file anew. False when that failed.
bool writeFile(const std::string& path, const std::string& content);

}  // namespace vela_test
