#include "BuildInfo.h"

#include <link.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Python.h"
#include "vela/Version.h"

namespace command {
namespace {

// The files of the libraries in this process, the program itself left out.
std::vector<std::string> loadedLibraries() {
  std::vector<std::string> files;
  const auto visit = [](dl_phdr_info* info, std::size_t, void* data) -> int {
    const std::string name = info->dlpi_name;
    if (name.find('/') != std::string::npos)
      static_cast<std::vector<std::string>*>(data)->push_back(name);
    return 0;
  };
  dl_iterate_phdr(visit, &files);
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::string buildInfo() {
  std::vector<vela::BuildFact> facts = vela::buildInfo();
  facts.push_back({"Python", pythonInfo()});
  bool isFirst = true;
  for (std::string& file : loadedLibraries()) {
    facts.push_back({isFirst ? "loaded" : "", std::move(file)});
    isFirst = false;
  }
  constexpr std::size_t kColumn = 18;
  std::string text;
  for (const vela::BuildFact& fact : facts) {
    std::string line = fact.name;
    line.resize(std::max(kColumn, line.size() + 1), ' ');
    text += line + fact.value + '\n';
  }
  return text;
}

}  // namespace command
