// The program that AssetManager_test.cpp runs: does what its arguments say, in order, in a fresh
// process:
//   python=LIB        starts an interpreter from this libpython and lets go of its lock
//   load-python=LIB   only loads it, for itself alone
//   level=N           the log's level
//   setup=FILE  setup-told=FILE  clear-cache  clear-context
//   has-manager  is-asset=TEXT  location=TEXT   print what they find, a line each
//   info=TEXT         the same through a record
//   threads=COUNT,TEXT  resolves it from so many threads at once and prints how many succeeded
//   finish-python     ends the interpreter
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "vela/asset/AssetInfo.h"
#include "vela/log/Log.h"

namespace {

using namespace vela::asset;

void* saved = nullptr;

template <typename Function>
Function python(const char* name) {
  const auto function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
  if (!function) {
    std::fprintf(stderr, "no %s\n", name);
    std::exit(3);
  }
  return function;
}

void startPython(const std::string& library) {
  if (!dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL)) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(3);
  }
  python<void (*)(int)>("Py_InitializeEx")(0);
  saved = python<void* (*)()>("PyEval_SaveThread")();
}

void finishPython() {
  python<void (*)(void*)>("PyEval_RestoreThread")(saved);
  python<int (*)()>("Py_FinalizeEx")();
}

void resolveFromThreads(int count, const std::string& reference) {
  std::atomic<int> found{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < count; ++t) {
    threads.emplace_back([&] {
      std::string path;
      if (resolveAssetLocation(reference, path)) ++found;
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::printf("%d\n", found.load());
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const std::size_t at = argument.find('=');
    const std::string verb = argument.substr(0, at),
                      rest = at == std::string::npos ? "" : argument.substr(at + 1);
    if (verb == "python") {
      startPython(rest);
    } else if (verb == "load-python") {
      if (!dlopen(rest.c_str(), RTLD_NOW | RTLD_LOCAL)) return 3;
    } else if (verb == "finish-python") {
      finishPython();
    } else if (verb == "level") {
      Halden::Log::setLevel(static_cast<unsigned>(std::strtoul(rest.c_str(), nullptr, 10)));
    } else if (verb == "setup") {
      setupManager(rest);
    } else if (verb == "setup-told") {
      AssetMessage error{"before", "before"}, warning{"before", "before"};
      const bool isThere = setupManager(rest, &error, &warning);
      std::printf("%d [%s] [%s] [%s] [%s]\n", isThere, error.reason.c_str(), error.text.c_str(),
                  warning.reason.c_str(), warning.text.c_str());
    } else if (verb == "clear-cache") {
      clearCache();
    } else if (verb == "clear-context") {
      clearContext();
      std::printf("%s\n", getContext() ? "context" : "no context");
    } else if (verb == "has-manager") {
      std::printf("%s\n", getManager() ? "manager" : "no manager");
    } else if (verb == "is-asset") {
      std::printf("%d\n", isAssetPath(rest) ? 1 : 0);
    } else if (verb == "location") {
      std::string path;
      const bool found = resolveAssetLocation(rest, path);
      std::printf("%d %s\n", found ? 1 : 0, path.c_str());
    } else if (verb == "info") {
      AssetInfo info({kLocatableContentTrait});
      std::string path;
      const bool found = info.resolveLocation(rest, path);
      std::printf("%d %d %s\n", found ? 1 : 0, info.isAsset() ? 1 : 0, path.c_str());
    } else if (verb == "threads") {
      const std::size_t comma = rest.find(',');
      resolveFromThreads(std::atoi(rest.c_str()), rest.substr(comma + 1));
    } else {
      std::fprintf(stderr, "unknown: %s\n", argv[i]);
      return 2;
    }
    std::fflush(stdout);
  }
  return 0;
}
