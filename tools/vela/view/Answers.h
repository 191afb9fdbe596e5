/// \file
/// What the page may ask for, a path each.
#pragma once

#include <string>

#include "view/Access.h"
#include "view/Http.h"
#include "view/Pictures.h"
#include "view/Session.h"

namespace command::viewer {

/// Answers requests: the page's own files, and JSON about the scene.
///
/// No path and no text of a request names a file: the page's files are in the program, and the
/// scene is the one that the command line names.
///
/// Threads: const calls may run from any number of threads at once.
class Answers {
 public:
  Answers(Session& session, Pictures& pictures, const Access& access)
      : session_(session), pictures_(pictures), access_(access) {}

  /// Never throws: what fails is an answer too.
  [[nodiscard]] HttpResponse answer(const HttpRequest& request) const;

 private:
  [[nodiscard]] HttpResponse answerPost(const std::string& path, const std::string& body) const;

  Session& session_;
  Pictures& pictures_;
  const Access& access_;
};

}  // namespace command::viewer
