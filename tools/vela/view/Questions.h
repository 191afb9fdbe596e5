/// \file
/// The questions of the page, by their paths: `/picture`, `/pick` ...
#pragma once

#include <functional>
#include <string>

#include "view/Http.h"
#include "view/Pictures.h"
#include "view/Session.h"

namespace command::viewer {

/// What questions are about.
struct Subject {
  Session& session;
  Pictures& pictures;
};

/// \throws BadAsk for a body that cannot be read, Failure, Interrupted
using Question = std::function<HttpResponse(const Subject&, const std::string& body)>;

/// Null when there is none at that path.
[[nodiscard]] const Question* findQuestion(const std::string& path);

}  // namespace command::viewer
