#include "HelpTexts.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <vector>

#include "Messages.h"
#include "Text.h"

namespace command {

namespace {

constexpr std::size_t kColumns = 80, kNames = 25;

// A text in lines, each behind the indent.
std::string indented(const std::string& text, std::size_t indent) {
  std::istringstream lines(wrapText(text, kColumns - indent));
  std::string all;
  for (std::string line; std::getline(lines, line);) all += std::string(indent, ' ') + line + "\n";
  return all;
}

std::string label(const OptionRow& row) {
  std::string text;
  for (const std::string& name : splitList(row.names)) text += (text.empty() ? "" : ", ") + name;
  return row.value.empty() ? text : text + " " + row.value;
}

// Name and value in front, the help beside or below them.
std::string entry(const std::string& name, const std::string& help) {
  std::string text = "  " + name;
  const std::string beside = indented(help, kNames);
  if (text.size() + 1 < kNames) return text + beside.substr(text.size());
  return text + "\n" + beside;
}

std::string exitList() {
  std::string text = "Exit codes: ";
  for (const ExitRow& row : exitTable())
    text +=
        (&row == &exitTable().front() ? "" : "; ") + std::to_string(row.code) + " " + row.meaning;
  return text + ".";
}

}  // namespace

std::string exampleLines(const std::string& example, std::size_t indent, std::size_t columns) {
  std::vector<std::string> parts;
  std::istringstream words(example);
  for (std::string word; words >> word;) {
    const bool isValue = word[0] != '-' && parts.size() > 1 && parts.back()[0] == '-' &&
                         parts.back().find(' ') == std::string::npos;
    if (isValue)
      parts.back() += " " + word;
    else
      parts.push_back(word);
  }
  std::string text, line(indent, ' ');
  for (const std::string& part : parts) {
    if (line.size() + 1 + part.size() + 2 > columns) {
      text += line + " \\\n";
      line.assign(indent + 3, ' ');
    }
    line += (line.size() > indent ? " " : "") + part;
  }
  return text + line + "\n";
}

std::string overallHelp() {
  std::string text = "vela: pictures and facts of 3D scenes (.usd .usda .usdc .usdz)\n\n";
  for (const VerbRow& verb : verbTable()) {
    // The short form of each: without the options.
    std::string line = "vela " + verb.name + " " + verb.synopses.front();
    if (const std::size_t at = line.find(" [options]"); at != std::string::npos) line.resize(at);
    if (const std::size_t at = line.find(" [--png"); at != std::string::npos) line.resize(at);
    text += "  " + line + "\n" + indented(verb.brief, 6);
  }
  text += "  vela --version [--build-info]\n\n";
  text +=
      indented("vela help VERB and vela VERB --help say the options of a verb, with examples.", 0);
  text += "\nEvery verb takes\n";
  for (const OptionRow& row : commonOptions().rows) text += entry(label(row), row.help);
  text += "\nEnvironment\n";
  for (const VariableRow& row : variableTable())
    text += "  " + row.name + "\n" + indented(row.meaning, 6);
  return text + "\n" + indented(exitList(), 0);
}

std::string helpOf(const VerbRow& verb) {
  std::string text;
  for (const std::string& synopsis : verb.synopses)
    text += "vela " + verb.name + " " + synopsis + "\n";
  text += indented(verb.summary, 2) + "\n";
  for (const OptionRow& row : verb.arguments) text += entry(label(row), row.help);
  for (const OptionGroup& group : verb.groups) {
    if (!verb.arguments.empty() || &group != &verb.groups.front()) text += "\n";
    text += group.title + "\n";
    for (const OptionRow& row : group.rows) text += entry(label(row), row.help);
  }
  for (const std::string& note : verb.notes) text += "\n" + indented(note, 0);
  if (!verb.examples.empty()) text += "\nExamples\n";
  for (const std::string& example : verb.examples) text += exampleLines(example, 2, kColumns);
  return text;
}

std::string writeShare(const std::string& folder) {
  std::string why;
  const auto write = [&](const std::string& name, const std::string& text) {
    const std::filesystem::path file = std::filesystem::path(folder) / name;
    std::error_code none;
    std::filesystem::create_directories(file.parent_path(), none);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out && why.empty()) why = file.string();
  };
  write("man/man1/vela.1", manPage(nullptr));
  for (const VerbRow& verb : verbTable())
    write("man/man1/vela-" + verb.name + ".1", manPage(&verb));
  write("bash-completion/completions/vela", completion("bash"));
  write("zsh/site-functions/_vela", completion("zsh"));
  write("fish/vendor_completions.d/vela.fish", completion("fish"));
  return why;
}

std::string messageList() {
  std::string text;
  for (const MessageRow& row : messageTable()) {
    const Failure pattern{row.code, row.what, row.where, row.why, row.attempt};
    text += std::to_string(row.code) + "  " + row.name + "\n" + indented(describe(pattern), 4);
  }
  return text;
}

}  // namespace command
