// What completes command lines in bash, zsh and fish.
#include <string>
#include <vector>

#include "HelpTexts.h"
#include "Text.h"

namespace command {

namespace {

// Endings that go with a kind of file; none for any file.
std::vector<std::string> endingsOf(Offer offer) {
  if (offer == Offer::scenes) return {"usd", "usda", "usdc", "usdz"};
  if (offer == Offer::selections) return {"sel"};
  return {};
}

bool isFile(Offer offer) {
  return offer == Offer::scenes || offer == Offer::files || offer == Offer::pictures ||
         offer == Offer::selections;
}

std::vector<std::string> wordsOf(const OptionRow& row) {
  if (row.offer != Offer::verbs) return row.words;
  std::vector<std::string> names;
  for (const VerbRow& verb : verbTable()) names.push_back(verb.name);
  return names;
}

std::string joined(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

// The own rows of a verb, then those of every verb.
std::vector<const OptionRow*> optionsOf(const VerbRow& verb) {
  std::vector<const OptionRow*> rows;
  for (const OptionGroup& group : verb.groups)
    for (const OptionRow& row : group.rows) rows.push_back(&row);
  for (const OptionRow& row : commonOptions().rows) rows.push_back(&row);
  return rows;
}

// The first sentence, or clause, of a help text.
std::string gist(const OptionRow& row) {
  std::string text = row.help.substr(0, row.help.find(". "));
  text.resize(std::min(text.find(';'), text.size()));
  return text;
}

std::string escaped(const std::string& text, const std::string& special) {
  std::string out;
  for (const char c : text) {
    if (special.find(c) != std::string::npos) out += '\\';
    out += c;
  }
  return out;
}

// ---- bash

std::string bashValues(const OptionRow& row) {
  // A folder is offered with every kind of file: what is looked for may lie in it.
  if (row.offer == Offer::folders) return "compgen -d -- \"$word\"";
  const std::vector<std::string> words = wordsOf(row), endings = endingsOf(row.offer);
  // Of a list the word behind the last comma.
  if (!words.empty() && row.value == "LIST")
    return "compgen -P \"${word%\"${word##*,}\"}\" -W \"" + joined(words, " ") +
           "\" -- \"${word##*,}\"";
  if (!words.empty()) return "compgen -W \"" + joined(words, " ") + "\" -- \"$word\"";
  if (!endings.empty())
    return "compgen -f -X '!*.@(" + joined(endings, "|") +
           ")' -- \"$word\"; compgen -d -- \"$word\"";
  return isFile(row.offer) ? "compgen -f -- \"$word\"" : ":";
}

std::string bash() {
  std::vector<std::string> verbs;
  for (const VerbRow& verb : verbTable()) verbs.push_back(verb.name);
  std::string text =
      "# bash completion of vela; made by `vela help --completion bash`.\n"
      "_vela_values() {\n  local verb=$1 before=$2 word=$3\n  shopt -q extglob || { shopt -s "
      "extglob; "
      "local off=1; }\n  case \"$verb $before\" in\n";
  for (const VerbRow& verb : verbTable())
    for (const OptionRow* row : optionsOf(verb))
      if (!row->isFlag()) {
        std::vector<std::string> patterns;
        for (const std::string& name : splitList(row->names))
          patterns.push_back("\"" + verb.name + " " + name + "\"");
        text += "    " + joined(patterns, "|") + ") " + bashValues(*row) + " ;;\n";
      }
  for (const VerbRow& verb : verbTable()) {
    std::string values = ":";
    for (const OptionRow& row : verb.arguments)
      if (values == ":") values = bashValues(row);
    text += "    \"" + verb.name + " \"*) " + values + " ;;\n";
  }
  text +=
      "  esac\n  [ -z \"${off-}\" ] || shopt -u extglob\n}\n"
      "_vela() {\n"
      "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} verb=\"\" i "
      "list=\"\"\n"
      // The shell takes --lens=WORD apart.
      "  if [ \"$word\" = \"=\" ]; then word=\"\"\n"
      "  elif [ \"$before\" = \"=\" ]; then before=${COMP_WORDS[COMP_CWORD-2]}; fi\n"
      "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
      "    case \"${COMP_WORDS[i]}\" in " +
      joined(verbs, "|") +
      ") verb=${COMP_WORDS[i]}; break ;; esac\n"
      "  done\n"
      "  if [ -z \"$verb\" ]; then\n"
      "    mapfile -t COMPREPLY < <(compgen -W \"" +
      joined(verbs, " ") +
      " --help --version\" -- \"$word\")\n    return\n  fi\n"
      "  if [[ $word == -* ]]; then\n    case \"$verb\" in\n";
  for (const VerbRow& verb : verbTable()) {
    std::vector<std::string> names;
    for (const OptionRow* row : optionsOf(verb))
      for (const std::string& name : splitList(row->names)) names.push_back(name);
    text += "      " + verb.name + ") list=\"" + joined(names, " ") + "\" ;;\n";
  }
  return text +
         "    esac\n    mapfile -t COMPREPLY < <(compgen -W \"$list\" -- \"$word\")\n    return\n"
         "  fi\n"
         "  mapfile -t COMPREPLY < <(_vela_values \"$verb\" \"$before\" \"$word\")\n"
         "}\n"
         "complete -o filenames -F _vela vela\n";
}

// ---- zsh

std::string zshAction(const OptionRow& row) {
  const std::vector<std::string> words = wordsOf(row), endings = endingsOf(row.offer);
  if (!words.empty() && row.value == "LIST") return "_values -s , word " + joined(words, " ");
  if (!words.empty()) return "(" + joined(words, " ") + ")";
  if (row.offer == Offer::folders) return "_files -/";
  if (!endings.empty()) return "_files -g \"*.(" + joined(endings, "|") + ")(-.)\"";
  return isFile(row.offer) ? "_files" : "";
}

std::string zshRow(const OptionRow& row) {
  const std::string help = escaped(gist(row), "[]:\\");
  const std::string value =
      row.isFlag()
          ? ""
          : ":" + escaped(row.isArgument() ? row.names : row.value, ":\\") + ":" + zshAction(row);
  std::string text;
  const auto quoted = [](const std::string& spec) {
    std::string out = "'";
    for (const char c : spec) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
  };
  if (row.isArgument()) return "        " + quoted((row.repeats ? "*" : "") + value) + " \\\n";
  for (const std::string& name : splitList(row.names))
    text +=
        "        " + quoted((row.repeats ? "*" : "") + name + "[" + help + "]" + value) + " \\\n";
  return text;
}

std::string zsh() {
  std::string text =
      "#compdef vela\n# zsh completion of vela; made by `vela help --completion zsh`.\n"
      "_vela() {\n  local verb\n  if ((CURRENT == 2)); then\n    local -a verbs\n    verbs=(\n";
  for (const VerbRow& verb : verbTable())
    text += "      '" + verb.name + ":" + escaped(verb.brief, ":") + "'\n";
  text +=
      "    )\n    _describe verb verbs\n    return\n  fi\n"
      "  verb=$words[2]\n  shift words\n  ((CURRENT--))\n  case $verb in\n";
  for (const VerbRow& verb : verbTable()) {
    text += "    " + verb.name + ")\n      _arguments \\\n";
    for (const OptionRow* row : optionsOf(verb)) text += zshRow(*row);
    for (const OptionRow& row : verb.arguments) text += zshRow(row);
    text.resize(text.size() - 3);
    text += "\n      ;;\n";
  }
  return text + "  esac\n}\n_vela \"$@\"\n";
}

// ---- fish

std::string fish() {
  std::string text =
      "# fish completion of vela; made by `vela help --completion fish`.\ncomplete -c vela -f\n";
  const auto quoted = [](const std::string& value) { return "'" + escaped(value, "'\\") + "'"; };
  for (const VerbRow& verb : verbTable())
    text += "complete -c vela -n __fish_use_subcommand -a " + verb.name + " -d " +
            quoted(verb.brief) + "\n";
  for (const VerbRow& verb : verbTable()) {
    const std::string head = "complete -c vela -n '__fish_seen_subcommand_from " + verb.name + "'";
    for (const OptionRow* row : optionsOf(verb)) {
      std::string line = head;
      for (const std::string& name : splitList(row->names))
        line += name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1);
      const std::vector<std::string> words = wordsOf(*row);
      if (!row->isFlag())
        line += isFile(row->offer)             ? " -r -F"
                : row->offer == Offer::folders ? " -x -a '(__fish_complete_directories)'"
                                               : " -x";
      if (!words.empty()) line += " -a " + quoted(joined(words, " "));
      text += line + " -d " + quoted(gist(*row)) + "\n";
    }
    for (const OptionRow& row : verb.arguments) {
      const std::vector<std::string> words = wordsOf(row);
      if (!words.empty())
        text += head + " -a " + quoted(joined(words, " ")) + "\n";
      else if (isFile(row.offer))
        text += head + " -F\n";
    }
  }
  return text;
}

}  // namespace

std::string completion(const std::string& shell) {
  return shell == "bash" ? bash() : shell == "zsh" ? zsh() : fish();
}

}  // namespace command
