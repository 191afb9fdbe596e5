/// \file
/// Verbs that take several files: one that is bad leaves the others.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Failure.h"

namespace command {

/// Does the work for each argument, which is a file or a reference to one. What is wrong with one
/// of several is said, with its file, and the next one follows; wrong usage ends all. Of a single
/// one what is wrong is thrown, as by any verb.
/// \param work is given the file
/// \return kDone, kPartly where some have failed, kBadInput where all have
/// \throws Failure, Interrupted
[[nodiscard]] ExitCode forEachFile(const std::string& verb,
                                   const std::vector<std::string>& arguments,
                                   const std::function<void(const std::string& file)>& work);

/// Prints what stands between the texts of files: an empty line, but before the first.
class Separator {
 public:
  void print();

 private:
  bool isFirst_ = true;
};

}  // namespace command
