#include "Messages.h"

#include <cctype>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "Suggest.h"
#include "VerbTable.h"

namespace command {

namespace {

constexpr ExitCode usage = kUsage, failed = kBadInput, partly = kPartly;

std::string filled(const char* pattern, std::initializer_list<std::string> values) {
  std::string text;
  for (const char* at = pattern; *at != '\0'; ++at) {
    const bool isPlace =
        at[0] == '{' && std::isdigit(static_cast<unsigned char>(at[1])) && at[2] == '}';
    if (!isPlace) {
      text += *at;
      continue;
    }
    const auto index = static_cast<std::size_t>(at[1] - '0');
    if (index < values.size()) text += values.begin()[index];
    at += 2;
  }
  return text;
}

}  // namespace

const std::vector<MessageRow>& messageTable() {
  static const std::vector<MessageRow> table = {
#define MESSAGE(name, outcome, what, where, why, attempt) \
  {#name, outcome, what, where, why, attempt},
#include "Messages.def"
#undef MESSAGE
  };
  return table;
}

Failure failure(Message message, std::initializer_list<std::string> values) {
  const MessageRow& row = messageTable()[static_cast<std::size_t>(message)];
  return {row.code, filled(row.what, values), filled(row.where, values), filled(row.why, values),
          filled(row.attempt, values)};
}

Failure unknownVerb(const std::string& word) {
  std::vector<std::string> verbs;
  for (const VerbRow& verb : verbTable()) verbs.push_back(verb.name);
  std::string attempt = attemptAmong(word, verbs, "vela ");
  // A scene alone: most want to know what it holds.
  std::error_code none;
  if (attempt.empty() && std::filesystem::exists(word, none)) attempt = "try vela info " + word;
  return failure(Message::unknownVerb, {word, attempt.empty() ? "try vela --help" : attempt});
}

}  // namespace command
