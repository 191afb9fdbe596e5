/// \file
/// The one table of what the command says when something is not well. Its rows stand in
/// Messages.def; no other text becomes a Failure.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "Failure.h"

namespace command {

enum class Message {
#define MESSAGE(name, outcome, what, where, why, attempt) name,
#include "Messages.def"
#undef MESSAGE
};

struct MessageRow {
  const char* name;
  ExitCode code;
  const char *what, *where, *why, *attempt;  ///< with {0}, {1} ... for what the caller knows
};

/// By Message.
[[nodiscard]] const std::vector<MessageRow>& messageTable();

/// A row with the values in the places of {0}, {1} ...; values themselves are not looked into.
[[nodiscard]] Failure failure(Message message, std::initializer_list<std::string> values = {});

/// For a word that is no verb: names the verbs that it may stand for.
[[nodiscard]] Failure unknownVerb(const std::string& word);

}  // namespace command
