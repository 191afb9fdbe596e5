/// \file
/// What has to be done once a process before a scene opens, and where OpenUSD's messages go.
#pragma once

#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

namespace ovo::detail {

/// Reasons, each once. Threads: all calls are safe.
class Problems {
 public:
  void add(std::string text);
  /// Adds in an order that does not depend on which thread was first.
  void addSorted(std::vector<std::string> texts);
  [[nodiscard]] std::vector<std::string> list() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> order_;
  std::unordered_set<std::string> known_;
};

/// While it lives, OpenUSD's warnings and errors of this thread are added to \p problems; those of
/// OpenUSD's own threads go to the collector that was set up last. Messages that come while none
/// lives are dropped: nothing of OpenUSD's reaches the screen.
class Collector {
 public:
  explicit Collector(Problems& problems, bool alsoOwnThreads = false);
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

 private:
  Problems* previous_;
  bool shared_;
};

/// While it lives, files that this thread opens are data and no scenes: no parser will see them and
/// nothing in them is looked at. Else the bytes of a picture would count as brackets.
class OpensPlainData {
 public:
  OpensPlainData();
  ~OpensPlainData();
  OpensPlainData(const OpensPlainData&) = delete;
  OpensPlainData& operator=(const OpensPlainData&) = delete;

 private:
  bool before_;
};

/// Takes a folder that a stage's files are to be kept in.
/// \param root set to the folder as an absolute path without links
/// \return null, or why this cannot be done, to follow the folder's name
[[nodiscard]] const char* takeRoot(const std::string& folder, std::string& root);

/// Sets OpenUSD up for this process on the first call. Empty when all is well, else why no scene
/// can be opened.
[[nodiscard]] const std::string& startRuntime();

}  // namespace ovo::detail
