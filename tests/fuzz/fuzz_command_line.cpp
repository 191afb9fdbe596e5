// Lines as the words of a command line: they are options of a verb, or there is one clear line that
// says why not.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Failure.h"
#include "Options.h"
#include "fuzz/Require.h"

namespace {

using vela_test::require;

// Words may name files to read: of a folder without any. Help that was asked for goes nowhere.
const bool isSetUp = [] {
  std::string folder = std::filesystem::temp_directory_path() / "vela-fuzz-XXXXXX";
  const int nowhere = open("/dev/null", O_WRONLY);
  return mkdtemp(folder.data()) && chdir(folder.c_str()) == 0 && rmdir(folder.c_str()) == 0 &&
         nowhere >= 0 && dup2(nowhere, STDOUT_FILENO) >= 0;
}();

template <class VerbOptions>
void read(std::vector<char*>& words) {
  VerbOptions options;
  command::readArguments(static_cast<int>(words.size()), words.data(), options);
}

void readVerb(const std::string& verb, std::vector<char*>& words) {
  using namespace command;
  if (verb == "render") read<RenderOptions>(words);
  if (verb == "submit") read<SubmitOptions>(words);
  if (verb == "view") read<ViewVerbOptions>(words);
  if (verb == "pick") read<PickOptions>(words);
  if (verb == "explain") read<ExplainOptions>(words);
  if (verb == "info") read<InfoOptions>(words);
  if (verb == "mesh") read<MeshOptions>(words);
  if (verb == "make") read<MakeOptions>(words);
  if (verb == "channels") read<ChannelsOptions>(words);
  if (verb == "select") read<SelectOptions>(words);
  if (verb == "resolve") read<ResolveOptions>(words);
  if (verb == "selftest") read<SelftestOptions>(words);
  if (verb == "help") read<HelpOptions>(words);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  require(isSetUp, "there is a folder without files");
  std::vector<std::string> words;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(in, line);) words.emplace_back(line.c_str());
  const std::size_t count = words.size();
  command::moveVerbToFront(words);
  require(words.size() == count, "no word is lost");
  if (words.empty()) return 0;
  std::vector<char*> arguments;
  for (std::size_t i = 1; i < words.size(); ++i) arguments.push_back(words[i].data());
  try {
    readVerb(words.front(), arguments);
  } catch (const command::Failure& failure) {
    const std::string line = command::describe(failure);
    require(!failure.what.empty() && line.size() > failure.what.size(), "what, and more of it");
    require(failure.code == command::kUsage || failure.code == command::kBadInput, "a stated code");
  }
  return 0;
}
