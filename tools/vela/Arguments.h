/// \file
/// A command line, read as the table of verbs says.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "VerbTable.h"

namespace command {

/// What a verb was given, as text, by the keys of its rows. Asking for a key that the verb's row
/// does not have is a fault of the program.
class Arguments {
 public:
  explicit Arguments(const VerbRow& verb) : verb_(&verb) {}

  /// Reads what follows the verb.
  /// \return false when help was asked for and printed
  /// \throws Failure (usage) for what the table does not have, or not so
  bool read(int count, char** arguments);

  /// Forgets what was given of an option.
  void remove(const char* key) { values_.erase(key); }

  /// Takes from another command line of the same verb what this one does not have.
  void addMissing(const Arguments& other);

  [[nodiscard]] const std::string& verb() const { return verb_->name; }
  /// Whether the verb has a row of that key at all.
  [[nodiscard]] bool knows(const char* key) const { return verb_->find(key) != nullptr; }
  [[nodiscard]] bool has(const char* key) const { return !all(key).empty(); }
  /// Empty when it was not given.
  [[nodiscard]] const std::string& text(const char* key) const;
  [[nodiscard]] const std::vector<std::string>& all(const char* key) const;

 private:
  const VerbRow* verb_;
  std::map<std::string, std::vector<std::string>> values_;
};

/// Puts the verb in front of options that stand before it: `--json info FILE` is `info --json
/// FILE`. Without a verb nothing changes.
/// \param words what follows the command's own name
void moveVerbToFront(std::vector<std::string>& words);

}  // namespace command
