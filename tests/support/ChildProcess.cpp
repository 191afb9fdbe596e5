#include "support/ChildProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace vela_test {

ChildResult runChild(const std::vector<std::string>& arguments, const Environment& environment,
                     const std::string& folder) {
  // Files, not pipes: a child that writes much to both streams cannot block.
  const TemporaryFolder results;
  const std::string out = results.file("out"), err = results.file("err");

  const pid_t child = fork();
  if (child == 0) {
    for (const auto& [name, value] : environment) {
      if (value)
        setenv(name.c_str(), value->c_str(), 1);
      else
        unsetenv(name.c_str());
    }
    if (!folder.empty() && chdir(folder.c_str()) != 0) _exit(126);
    const int outFile = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int errFile = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(outFile, STDOUT_FILENO);
    dup2(errFile, STDERR_FILENO);
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }

  ChildResult result;
  int status = 0;
  if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status))
    result.exitCode = WEXITSTATUS(status);
  result.out = readFile(out);
  result.err = readFile(err);
  return result;
}

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vela-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) std::abort();
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  return static_cast<bool>(out);
}

}  // namespace vela_test
