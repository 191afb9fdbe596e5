#include "Arguments.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "HelpTexts.h"
#include "Messages.h"
#include "Notices.h"
#include "Suggest.h"
#include "Text.h"

namespace command {

namespace {

// Every option of a verb, in the order of the codes that getopt_long() gives for them.
std::vector<const OptionRow*> rowsOf(const VerbRow& verb) {
  std::vector<const OptionRow*> rows;
  for (const OptionGroup& group : verb.groups)
    for (const OptionRow& row : group.rows) rows.push_back(&row);
  for (const OptionRow& row : commonOptions().rows) rows.push_back(&row);
  return rows;
}

std::vector<std::string> namesOf(const OptionRow& row) { return splitList(row.names); }

Failure unknownOption(const VerbRow& verb, const std::string& given) {
  const std::string name = given.substr(0, given.find('='));
  std::vector<std::string> names = verb.optionNames();
  for (const OptionRow& row : commonOptions().rows) names.push_back(row.key());
  std::string attempt;
  for (const VerbRow& other : verbTable())
    if (attempt.empty() && other.find(name))
      attempt = "vela " + other.name + " has it; try vela help " + verb.name;
  if (attempt.empty()) attempt = attemptAmong(name, names);
  if (attempt.empty()) attempt = "try vela help " + verb.name;
  return failure(Message::unknownOption, {name, attempt});
}

}  // namespace

const std::vector<std::string>& Arguments::all(const char* key) const {
  static const std::vector<std::string> none;
  if (!verb_->find(key)) throw std::logic_error("vela " + verb_->name + " has no row for " + key);
  const auto found = values_.find(key);
  return found == values_.end() ? none : found->second;
}

void Arguments::addMissing(const Arguments& other) {
  for (const auto& [key, values] : other.values_)
    if (values_[key].empty()) values_[key] = values;
}

const std::string& Arguments::text(const char* key) const {
  static const std::string none;
  const std::vector<std::string>& values = all(key);
  return values.empty() ? none : values.back();
}

bool Arguments::read(int count, char** arguments) {
  // getopt_long() says what is wrong by codes, so that each message is ours. It wants the command's
  // name in front, and null behind.
  const std::vector<const OptionRow*> rows = rowsOf(*verb_);
  constexpr int kFirstCode = 256;
  std::vector<std::vector<std::string>> names;
  names.reserve(rows.size());
  for (const OptionRow* row : rows) names.push_back(namesOf(*row));
  std::string letters = "-:";  // arguments in their order; a missing value is told apart
  std::vector<option> options;
  for (std::size_t i = 0; i < rows.size(); ++i)
    for (const std::string& name : names[i]) {
      const bool isFlag = rows[i]->isFlag();
      if (name[1] == '-')
        options.push_back({name.c_str() + 2, isFlag ? no_argument : required_argument, nullptr,
                           kFirstCode + static_cast<int>(i)});
      else
        letters += std::string(1, name[1]) + (isFlag ? "" : ":");
    }
  options.push_back({nullptr, 0, nullptr, 0});
  const auto rowOfLetter = [&](int letter) {
    for (std::size_t i = 0; i < rows.size(); ++i)
      for (const std::string& name : names[i])
        if (name == std::string("-") + static_cast<char>(letter)) return rows[i];
    return static_cast<const OptionRow*>(nullptr);
  };
  const auto rowOfCode = [&](int code) {
    return code >= kFirstCode ? rows[static_cast<std::size_t>(code - kFirstCode)]
                              : rowOfLetter(code);
  };

  std::string self = "vela";
  std::vector<char*> words = {self.data()};
  words.insert(words.end(), arguments, arguments + count);
  words.push_back(nullptr);
  const int wordCount = count + 1;
  std::vector<std::string> loose;
  opterr = 0;
  optind = 0;
  for (;;) {
    const int code = getopt_long(wordCount, words.data(), letters.c_str(), options.data(), nullptr);
    if (code == -1) break;
    if (code == 1) {
      loose.emplace_back(optarg);
      continue;
    }
    const char* const last = words[static_cast<std::size_t>(optind - 1)];
    if (code == '?') {
      if (const OptionRow* row = optopt >= kFirstCode ? rowOfCode(optopt) : nullptr)
        throw failure(Message::needlessValue, {row->key()});
      throw unknownOption(*verb_,
                          optopt != 0 ? std::string("-") + static_cast<char>(optopt) : last);
    }
    const OptionRow& row = *rowOfCode(code == ':' ? optopt : code);
    if (code == ':') throw failure(Message::missingValue, {row.key(), row.value});
    // Beginnings of names would stop to work with the next option that begins so.
    const bool isApart = optarg != nullptr && optarg == last;
    const std::string given = isApart ? words[static_cast<std::size_t>(optind - 2)] : last;
    if (code >= kFirstCode) {
      const std::string name = given.substr(0, given.find('='));
      const std::vector<std::string>& own = names[static_cast<std::size_t>(code - kFirstCode)];
      if (std::find(own.begin(), own.end(), name) == own.end()) throw unknownOption(*verb_, given);
    }
    if (row.key() == "--help") {
      std::fputs(helpOf(*verb_).c_str(), stdout);
      return false;
    }
    if (row.key() == "--strict") {
      setStrict();
      continue;
    }
    // The name of an option is no value: the value was forgotten.
    if (isApart && std::strncmp(optarg, "--", 2) == 0 && verb_->find(optarg))
      throw failure(Message::missingValue, {row.key(), row.value});
    std::vector<std::string>& values = values_[row.key()];
    if (!values.empty() && !row.repeats && !row.isFlag())
      throw failure(Message::givenTwice, {row.key()});
    values.emplace_back(optarg ? optarg : "");
  }
  for (int i = optind; i < wordCount; ++i) loose.emplace_back(words[static_cast<std::size_t>(i)]);

  // Arguments without a name, in their order.
  std::size_t next = 0;
  for (const OptionRow& row : verb_->arguments) {
    std::vector<std::string>& values = values_[row.key()];
    while (next < loose.size() && (values.empty() || row.repeats)) values.push_back(loose[next++]);
    if (values.empty() && !row.isOptional)
      throw failure(Message::missingArgument, {row.key(), verb_->name});
  }
  if (next < loose.size()) throw failure(Message::furtherArgument, {loose[next], verb_->name});
  return true;
}

void moveVerbToFront(std::vector<std::string>& words) {
  // Whether a word is an option's value cannot be known before the verb: an option that takes one
  // anywhere is taken to have one.
  const auto takesValue = [](const std::string& name) {
    for (const OptionRow& row : commonOptions().rows)
      if (row.key() == name) return !row.isFlag();
    for (const VerbRow& verb : verbTable())
      if (const OptionRow* row = verb.find(name)) return !row->isFlag();
    return false;
  };
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (!words[i].empty() && words[i][0] == '-') {
      if (words[i] == "--") return;
      if (takesValue(words[i])) ++i;
      continue;
    }
    std::rotate(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(i),
                words.begin() + static_cast<std::ptrdiff_t>(i) + 1);
    return;
  }
}

}  // namespace command
