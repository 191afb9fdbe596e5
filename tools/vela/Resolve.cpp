#include "Resolve.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Interrupt.h"
#include "Json.h"
#include "Logging.h"
#include "Messages.h"
#include "Python.h"
#include "vela/asset/AssetInfo.h"
#include "vela/asset/AssetManager.h"
#include "vela/log/Log.h"

namespace command {

namespace {

constexpr const char* kVariable = "OPENASSETIO_DEFAULT_CONFIG";

bool exists(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0;
}

// A scheme and its colon, as references of most managers begin. One letter is a drive of another
// system's paths.
bool hasScheme(const std::string& text) {
  std::size_t length = 0;
  while (length < text.size() && (std::isalnum(static_cast<unsigned char>(text[length])) ||
                                  (length > 0 && std::strchr("+.-", text[length]))))
    ++length;
  return length > 1 && length < text.size() && text[length] == ':' &&
         std::isalpha(static_cast<unsigned char>(text[0]));
}

// What nobody would call a file.
bool looksLikeReference(const std::string& text) {
  return hasScheme(text) && text.find("://") == text.find(':');
}

// The configuration's name; empty when there is none. An empty variable is how shells take one away
// for a command.
std::string configuration() {
  const char* const value = std::getenv(kVariable);
  return value ? value : "";
}

Failure noConfiguration(const std::string& reference) {
  return failure(Message::noManager, {reference, kVariable});
}

// Messages of the asset layer belong into the log's file too. On standard error they would say once
// more what the command says in its own form.
void logError(const vela::asset::AssetMessage& message) {
  if (!Halden::Log::path().empty() && !message.text.empty())
    Halden::Log::write(Halden::Log::error, message.text, Halden::Log::channel("Asset System"));
}

// The manager of this process, set up when it is first asked for.
struct Manager {
  bool isThere = false;
  std::string why;     // it is not there
  std::string remark;  // what was said of it
};

const Manager& manager() {
  static const Manager instance = [] {
    Manager made;
    // OpenAssetIO has a log of its own, on standard error. It says as much as ours, unless the user
    // decides otherwise.
    constexpr const char* kSeverities[] = {"6", "5", "4", "2", "1"};
    const unsigned level = Halden::Log::level();
    setenv("OPENASSETIO_LOGGING_SEVERITY", kSeverities[level < 5 ? level : 1], 0);
    const std::string noPython = startPython();
    // Opened now: that it cannot be is said before anything about assets.
    static_cast<void>(Halden::Log::stream());
    vela::asset::AssetMessage error, warning;
    made.isThere = vela::asset::setupManager("", &error, &warning);
    made.remark = warning.reason;
    logError(error);
    if (!warning.text.empty())
      Halden::Log::write(Halden::Log::warning, warning.text, Halden::Log::channel("Asset System"));
    if (!made.isThere) {
      made.why = "the asset manager of " + configuration() + " cannot be set up: " + error.reason;
      if (!noPython.empty())
        made.why += " (managers written in Python are left out: " + noPython + ")";
    }
    return made;
  }();
  return instance;
}

Failure noManager(const std::string& reference, const char* butFirst) {
  return failure(Message::badManager, {reference, butFirst + manager().why, kVariable});
}

// What the manager says of a reference. It must be there.
Resolution resolutionOf(const std::string& reference) {
  Resolution result;
  result.reference = reference;
  std::string why, attempt = "see what the asset manager holds under that name";

  vela::asset::AssetMessage error;
  if (!vela::asset::isAssetPath(reference, &error)) {
    if (error.text.empty()) {  // the manager said no, and that is all
      why = error.reason;
      attempt = "see how references of that manager begin";
    } else {
      why = "Failed to look at an asset reference: " + error.reason;
    }
  } else if (std::string path; vela::asset::resolveAssetLocation(reference, path, &error)) {
    result.path = path;
  } else {
    // Why it failed; else what was said of the manager, such as that it resolves nothing.
    why = !error.text.empty() ? error.reason : manager().remark;
    if (why.empty()) why = "the asset manager has no location for it";
  }
  result.failure =
      failure(Message::cannotResolve, {reference.empty() ? "''" : reference, why, attempt});
  logError(error);
  throwIfInterrupted();
  return result;
}

bool isFileUrl(const std::string& text) {
  constexpr const char* kScheme = "file:";
  return text.size() >= 5 &&
         std::equal(text.begin(), text.begin() + 5, kScheme, [](char a, char b) {
           return std::tolower(static_cast<unsigned char>(a)) == b;
         });
}

// The path of a file: URL (RFC 8089), whether there is a file or not: `file:///a/b%20c`,
// `file://localhost/a/b`, `file:/a/b`.
Resolution resolutionOfUrl(const std::string& url) {
  Resolution result;
  result.reference = url;
  const auto refuse = [&](const char* why) {
    result.path.clear();
    result.failure =
        failure(Message::cannotResolve, {url, why, "name an absolute path: file:///folder/file"});
    return result;
  };
  std::string rest = url.substr(std::strlen("file:"));
  if (rest.compare(0, 2, "//") == 0) {
    const std::size_t slash = std::min(rest.find('/', 2), rest.size());
    const std::string host = rest.substr(2, slash - 2);
    if (!host.empty() && host != "localhost") return refuse("it names another machine");
    rest.erase(0, slash);
  }
  if (rest.empty() || rest[0] != '/') return refuse("its path is not absolute");
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] != '%') {
      result.path += rest[i];
      continue;
    }
    unsigned byte = 0;
    const char* const digits = rest.data() + i + 1;
    const char* const end = rest.data() + std::min(i + 3, rest.size());
    const auto [stop, error] = std::from_chars(digits, end, byte, 16);
    if (error != std::errc() || stop != digits + 2 || byte == 0)
      return refuse("a % in it is not followed by two hexadecimal digits");
    result.path += static_cast<char>(byte);
    i += 2;
  }
  return result;
}

// Files are written where a path says. A manager that may know better is asked only about what
// could be a reference.
void refuseReference(const char* verb, const char* option, const std::string& output) {
  if (!hasScheme(output) || exists(output)) return;
  const std::size_t slash = output.rfind('/');
  const bool hasFolder = slash == std::string::npos || exists(output.substr(0, slash + 1));
  const bool isReference =
      isFileUrl(output) || (!hasFolder && looksLikeReference(output)) ||
      (!configuration().empty() && manager().isThere && vela::asset::isAssetPath(output));
  if (isReference) throw failure(Message::outputReference, {option, output, verb});
}

}  // namespace

std::string fileOf(const std::string& argument) {
  if (argument.empty() || exists(argument)) return argument;
  if (isFileUrl(argument)) {
    const Resolution result = resolutionOfUrl(argument);
    if (!result.isResolved()) throw result.failure;
    return result.path;
  }
  if (configuration().empty()) {
    if (looksLikeReference(argument)) throw noConfiguration(argument);
    return argument;
  }
  if (!manager().isThere)
    throw noManager(argument, looksLikeReference(argument) ? "" : "there is no such file, and ");

  Resolution result = resolutionOf(argument);
  if (result.isResolved()) return result.path;
  // A plain name that is neither a file nor a reference is a missing file.
  if (!looksLikeReference(argument) && !vela::asset::isAssetPath(argument)) return argument;
  throw result.failure;
}

void resolveFiles(RenderOptions& options) {
  for (const PictureOutput& output : options.outputs)
    refuseReference("render", output.isColour ? "--png" : "-o", output.file);
  options.scene.file = fileOf(options.scene.file);
  options.selection = fileOf(options.selection);
}

void resolveFiles(PickOptions& options) { options.scene.file = fileOf(options.scene.file); }

void resolveFiles(SelectOptions& options) {
  refuseReference("select", "-o", options.output);
  options.scene.file = fileOf(options.scene.file);
  options.add = fileOf(options.add);
}

void resolveFiles(MakeOptions& options) { refuseReference("make", "-o", options.output); }

ExitCode resolve(const ResolveOptions& options) {
  // The manager is set up for what needs one. Why it is not there is said once when nothing can be
  // resolved without it.
  const auto isPath = [](const std::string& reference) {
    return exists(reference) || isFileUrl(reference);
  };
  if (std::none_of(options.references.begin(), options.references.end(), isPath)) {
    if (configuration().empty()) throw noConfiguration("");
    if (!manager().isThere) throw noManager("", "");
  }
  std::vector<Resolution> all;
  for (const std::string& reference : options.references) {
    if (exists(reference))
      all.push_back({reference, reference, {}});
    else if (isFileUrl(reference))
      all.push_back(resolutionOfUrl(reference));
    else if (configuration().empty())
      all.push_back({reference, "", noConfiguration(reference)});
    else if (!manager().isThere)
      all.push_back({reference, "", noManager(reference, "")});
    else
      all.push_back(resolutionOf(reference));
  }

  if (options.json) {
    ResolveReport report;
    for (const Resolution& one : all)
      report.references.push_back(
          {one.reference, one.path, one.isResolved() ? "" : one.failure.why});
    std::fputs(toJson(report).c_str(), stdout);
  } else {
    for (const Resolution& one : all)
      if (one.isResolved()) std::printf("%s\n", one.path.c_str());
  }

  std::size_t failed = 0;
  for (const Resolution& one : all) {
    if (one.isResolved()) continue;
    ++failed;
    reportFailure("vela resolve", one.failure);
  }
  return failed == 0 ? kDone : failed < all.size() ? kPartly : kBadInput;
}

}  // namespace command
