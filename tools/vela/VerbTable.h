/// \file
/// The one table of verbs, arguments and options. The parser, the help, the man pages, the
/// completion of shells and the suggestions after a slip are all made from it: what is not in the
/// table is not read, and what is in it is described everywhere.
#pragma once

#include <string>
#include <vector>

namespace command {

/// What a shell offers where a value is asked for.
enum class Offer { nothing, words, scenes, files, pictures, selections, folders, verbs };

/// One option, or one argument that stands without a name.
struct OptionRow {
  std::string names;  ///< `-o,--output`, the long one last; of an argument its name, such as `FILE`
  std::string value;  ///< `OUT.exr`; empty for a flag, and for an argument
  std::string help;
  Offer offer = Offer::nothing;
  std::vector<std::string> words = {};  ///< those that the value may be, for Offer::words
  bool repeats = false;                 ///< may be given more than once; of an argument: many
  bool isOptional = false;              ///< of an argument

  /// What the code asks for it by: `--output`, `FILE`.
  [[nodiscard]] std::string key() const { return names.substr(names.rfind(',') + 1); }
  [[nodiscard]] bool isArgument() const { return names[0] != '-'; }
  [[nodiscard]] bool isFlag() const { return value.empty() && !isArgument(); }
};

/// Options under one heading.
struct OptionGroup {
  std::string title;
  std::vector<OptionRow> rows;
};

struct VerbRow {
  std::string name;
  std::vector<std::string> synopses;  ///< each what follows `vela VERB `
  std::string summary;                ///< `renders a scene to a picture.`
  std::string brief;                  ///< for the list of verbs: `a picture, with depth ...`
  std::vector<OptionRow> arguments;
  std::vector<OptionGroup> groups;
  std::vector<std::string> notes;     ///< paragraphs
  std::vector<std::string> examples;  ///< lines that work in the project's folder

  /// The row of a name such as `--output` or `-o`; null when the verb has none.
  [[nodiscard]] const OptionRow* find(const std::string& name) const;
  /// Every option's names.
  [[nodiscard]] std::vector<std::string> optionNames() const;
};

/// In the order of the help.
[[nodiscard]] const std::vector<VerbRow>& verbTable();
/// Null when there is no such verb.
[[nodiscard]] const VerbRow* findVerb(const std::string& name);
/// Options of every verb, read before the verb's own.
[[nodiscard]] const OptionGroup& commonOptions();

/// What an exit code means.
struct ExitRow {
  int code;
  std::string meaning;
};
[[nodiscard]] const std::vector<ExitRow>& exitTable();

/// A variable of the environment that the command looks at.
struct VariableRow {
  std::string name, meaning;
};
[[nodiscard]] const std::vector<VariableRow>& variableTable();

}  // namespace command
