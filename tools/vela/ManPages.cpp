// Man pages, in the macros of man(7).
#include <cstddef>
#include <string>

#include "HelpTexts.h"
#include "Text.h"
#include "vela/Version.h"

namespace command {

namespace {

// Text as troff takes it: hyphens that can be copied, no line that begins as a request.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\')
      out += "\\e";
    else if (c == '-')
      out += "\\-";
    else
      out += c;
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out.insert(0, "\\&");
  return out;
}

std::string paragraph(const std::string& text) { return ".PP\n" + escaped(text) + "\n"; }

std::string section(const std::string& title) {
  std::string capitals;
  for (const char c : title)
    capitals += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return ".SH " + capitals + "\n";
}

std::string rows(const std::vector<OptionRow>& options) {
  std::string text;
  for (const OptionRow& row : options) {
    std::string names;
    for (const std::string& name : splitList(row.names))
      names += (names.empty() ? "" : ", ") + ("\\fB" + escaped(name) + "\\fR");
    if (!row.value.empty()) names += " \\fI" + escaped(row.value) + "\\fR";
    text += ".TP\n" + names + "\n" + escaped(row.help) + "\n";
  }
  return text;
}

std::string closing() {
  std::string text = section("Exit status");
  for (const ExitRow& row : exitTable())
    text += ".TP\n\\fB" + std::to_string(row.code) + "\\fR\n" + escaped(row.meaning) + "\n";
  text += section("Environment");
  for (const VariableRow& row : variableTable())
    text += ".TP\n\\fB" + escaped(row.name) + "\\fR\n" + escaped(row.meaning) + "\n";
  return text;
}

std::string pageName(const VerbRow* verb) { return verb ? "vela-" + verb->name : "vela"; }

}  // namespace

std::string manPage(const VerbRow* verb) {
  const std::string name = pageName(verb);
  std::string summary = verb ? verb->summary : "pictures and facts of 3D scenes.";
  summary.pop_back();
  std::string text = ".TH " + escaped(name) + " 1 \"\" \"vela " + vela::version() +
                     "\" \"vela\"\n.nh\n" + section("Name") + escaped(name + " - " + summary) +
                     "\n" + section("Synopsis");
  if (!verb) {
    text += ".B vela\n\\fIVERB\\fR ...\n" + section("Verbs");
    for (const VerbRow& row : verbTable())
      text += ".TP\n\\fB" + escaped("vela " + row.name) + "\\fR\n" + escaped(row.brief) + "; see " +
              escaped("vela-" + row.name) + "(1)\n";
    text += section("Options of every verb") + rows(commonOptions().rows);
    return text + closing();
  }

  for (const std::string& synopsis : verb->synopses)
    text += (&synopsis == &verb->synopses.front() ? "" : ".br\n") +
            ("\\fB" + escaped("vela " + verb->name) + "\\fR " + escaped(synopsis) + "\n");
  text += section("Description") + escaped(verb->summary) + "\n";
  for (const std::string& note : verb->notes) text += paragraph(note);
  if (!verb->arguments.empty()) text += section("Arguments") + rows(verb->arguments);
  for (const OptionGroup& group : verb->groups)
    if (!group.rows.empty()) text += section(group.title) + rows(group.rows);
  text += section(commonOptions().title) + rows(commonOptions().rows) + closing();
  if (!verb->examples.empty()) text += section("Examples");
  // Within the 80 columns that a terminal has, of which the page's own margin takes seven.
  constexpr std::size_t kColumns = 80 - 7;
  for (const std::string& example : verb->examples)
    text += ".PP\n.nf\n" + escaped(exampleLines(example, 0, kColumns)) + ".fi\n";
  text += section("See also");
  text += "vela(1)";
  for (const VerbRow& row : verbTable())
    if (row.name != verb->name) text += ", " + escaped("vela-" + row.name) + "(1)";
  return text + "\n";
}

}  // namespace command
