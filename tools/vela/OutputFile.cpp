#include "OutputFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Interrupt.h"
#include "Messages.h"
#include "vela/log/Log.h"

namespace command {

namespace fs = std::filesystem;

namespace {

FileIdentity identityOf(const struct stat& status) {
  return std::pair(status.st_dev, status.st_ino);
}

FileIdentity identityOf(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 ? identityOf(status) : std::nullopt;
}

std::set<FileIdentity>& inputs() {
  static std::set<FileIdentity> all;
  return all;
}
std::set<FileIdentity>& spared() {
  static std::set<FileIdentity> all;
  return all;
}
std::vector<const OutputFile*>& outputs() {
  static std::vector<const OutputFile*> all;
  return all;
}

Failure cannotWrite(const std::string& file, const std::string& why, const std::string& attempt) {
  return failure(Message::cannotWrite, {file, why, attempt});
}

constexpr const char* kOtherName = "give the output a name of its own";

Failure isRead(const std::string& file) {
  return cannotWrite(file, "it is a file that this command reads", kOtherName);
}

bool hasSceneName(const std::string& file) {
  const std::string extension = fs::path(file).extension().string();
  return extension == ".usd" || extension == ".usda" || extension == ".usdc" ||
         extension == ".usdz";
}

// What open descriptors are reached by. The file behind one is the caller's to replace.
bool namesDescriptor(const std::string& file) {
  for (const char* head : {"/dev/fd/", "/dev/std", "/proc/"})
    if (file.compare(0, std::strlen(head), head) == 0) return true;
  return false;
}

// What is written to these goes nowhere, so that any number of outputs may.
bool isThrownAway(const struct stat& status) {
  struct stat null = {};
  return S_ISCHR(status.st_mode) && stat("/dev/null", &null) == 0 && status.st_rdev == null.st_rdev;
}

// Of a name that is written to: `-` is whatever standard output is.
bool findStatus(const std::string& name, struct stat& status) {
  return (name == "-" ? fstat(STDOUT_FILENO, &status) : stat(name.c_str(), &status)) == 0;
}

// The file that a name leads to, whether it is there or not, as an absolute path without links.
std::string followLinks(const std::string& name) {
  fs::path at = fs::absolute(name);
  // As many links as the system follows.
  for (int i = 0; i < 40; ++i) {
    std::error_code none;
    const fs::path next = fs::read_symlink(at, none);
    if (none) break;
    at = next.is_absolute() ? next : at.parent_path() / next;
  }
  std::error_code failed;
  const fs::path folder = fs::canonical(at.parent_path(), failed);
  return failed ? at.string() : (folder / at.filename()).string();
}

// Begins the names of the temporary files of an output. They stay within the 255 bytes that file
// systems allow a name, with room for a number and the ending; and within the 200 that who writes
// a scene keeps of a name.
std::string temporaryHead(const std::string& name) {
  constexpr std::size_t kMost = 170;
  return "." + name.substr(0, kMost) + ".part-";
}

// The ending of a temporary name: that of the output, by which libraries tell what to write.
std::string temporaryEnding(const std::string& name) {
  const std::string extension = fs::path(name).extension().string();
  return extension.size() > 16 ? "" : extension;
}

// Behind the head stand a process, often a number, and the ending: `.a.exr.part-123-1.exr`.
bool isTemporaryOf(const std::string& found, const std::string& name) {
  const std::string head = temporaryHead(name), ending = temporaryEnding(name);
  if (found.compare(0, head.size(), head) != 0) return false;
  const std::size_t end =
      std::min(found.find_first_not_of("0123456789-", head.size()), found.size());
  const std::string rest = found.substr(end);
  return end > head.size() && (rest.empty() || rest == ending);
}

// The temporary file that a scene is written for which has an unfinished name of its own beside it:
// `.a.usda.part-123.usda` of `..a.usda.part-123.123-1.usda`. Empty for other names.
std::string temporaryOfScene(const std::string& found, const std::string& name) {
  const std::string ending = temporaryEnding(name);
  if (ending.empty() || found.size() <= ending.size() || found.compare(0, 2, "..") != 0 ||
      found.compare(found.size() - ending.size(), ending.size(), ending) != 0)
    return "";
  const std::string stem = found.substr(1, found.size() - 1 - ending.size());
  const std::size_t dot = stem.rfind('.');
  if (stem.find_first_not_of("0123456789-", dot + 1) != std::string::npos) return "";
  const std::string temporary = stem.substr(0, dot) + ending;
  return isTemporaryOf(temporary, name) ? temporary : "";
}

// False where nothing has that name.
bool isHeld(int folder, const std::string& name) {
  const int handle = openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (handle < 0) return false;
  const bool isFree = flock(handle, LOCK_EX | LOCK_NB) == 0;
  close(handle);
  return !isFree;
}

// A file that nobody holds locked was left by a process that is gone. Where the file system has no
// locks nothing is removed: another machine may be writing.
void removeLeftovers(const std::string& folder, const std::string& name) {
  DIR* const listing = opendir(folder.c_str());
  if (!listing) return;
  while (const dirent* const entry = readdir(listing)) {
    const std::string ofScene = temporaryOfScene(entry->d_name, name);
    if (!isTemporaryOf(entry->d_name, name) && (ofScene.empty() || isHeld(dirfd(listing), ofScene)))
      continue;
    const int handle =
        openat(dirfd(listing), entry->d_name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (handle < 0) continue;
    struct stat status = {};
    const bool isFile = fstat(handle, &status) == 0 && S_ISREG(status.st_mode);
    const FileIdentity identity = identityOf(status);
    if (isFile && inputs().count(identity) == 0 && spared().count(identity) == 0 &&
        flock(handle, LOCK_EX | LOCK_NB) == 0)
      unlinkat(dirfd(listing), entry->d_name, 0);
    close(handle);
  }
  closedir(listing);
}

}  // namespace

void noteInput(const std::string& file) {
  struct stat status = {};
  // What a pipe or a terminal gives is not harmed by what is written to it.
  if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  const FileIdentity identity = identityOf(status);
  inputs().insert(identity);
  for (const OutputFile* output : outputs())
    if (output->identity() == identity) throw isRead(output->finalName());
}

void spareFile(const std::string& file) { spared().insert(identityOf(file)); }

bool comesOutOf(int descriptor, const std::string& name) {
  struct stat behind = {}, status = {};
  return fstat(descriptor, &behind) == 0 && findStatus(name, status) &&
         identityOf(status) == identityOf(behind) && !isThrownAway(behind);
}

bool replacesFiles() {
  return std::any_of(outputs().begin(), outputs().end(), [](const OutputFile* output) {
    return !output->target_.empty() && identityOf(output->target_);
  });
}

OutputFile::OutputFile(const std::string& finalName, OutputKind kind, const std::string& ending)
    : final_(finalName) {
  // Whatever is wrong with the name would otherwise be noticed when the picture is done.
  if (final_.empty()) throw cannotWrite("''", "it is no name", "name a file");
  struct stat status = {};
  const bool isThere = findStatus(final_, status);
  if (!isThere && final_ != "-" && errno != ENOENT && errno != ENOTDIR)
    throw cannotWrite(final_, std::strerror(errno), "name a file that may be written to");
  if (isThere && S_ISDIR(status.st_mode))
    throw cannotWrite(final_, "it is a folder", "name a file in it");
  if (kind != OutputKind::scene && hasSceneName(final_))
    throw cannotWrite(final_, "it is named like a scene",
                      kind == OutputKind::picture    ? "name a picture, such as picture.exr"
                      : kind == OutputKind::manifest ? "name a list of names, such as names.json"
                                                     : "name a selection, such as faces.sel");

  if (final_ == "-" || namesDescriptor(final_) || (isThere && !S_ISREG(status.st_mode))) {
    if (isThere && !isThrownAway(status)) through_ = identityOf(status);
    refuseSameFile();
    std::error_code none;
    const fs::path temporary = fs::temp_directory_path(none);
    const std::string folder = none ? "/tmp" : temporary.string();
    const std::string extension = fs::path(final_).extension().string();
    const std::string name = "vela" + (extension.empty() ? ending : extension);
    removeLeftovers(folder, name);
    createTemporary(folder, name);
  } else {
    target_ = followLinks(final_);
    refuseSameFile();
    if (isThere && access(final_.c_str(), W_OK) != 0)
      throw cannotWrite(final_, std::strerror(errno), "name a file that may be written to");

    // Beside the target, so that the rename stays within one file system; the dot keeps it out of
    // `*.exr`.
    const fs::path target(target_);
    removeLeftovers(target.parent_path().string(), target.filename().string());
    createTemporary(target.parent_path().string(), target.filename().string());
    if (isThere) keepModeAndOwner();
  }
  outputs().push_back(this);
}

FileIdentity OutputFile::identity() const {
  return target_.empty() ? through_ : identityOf(target_);
}

// Nothing may take the place of a file that is read, or that another output or the log writes.
void OutputFile::refuseSameFile() const {
  const FileIdentity own = identity();
  if (own && inputs().count(own) > 0) throw isRead(final_);
  const auto isSame = [&](const std::string& target, const FileIdentity& other) {
    return (!target_.empty() && target == target_) || (own && own == other);
  };
  for (const OutputFile* other : outputs())
    if (isSame(other->target_, other->identity()))
      throw cannotWrite(final_, "it is the same file as " + other->final_, kOtherName);
  const std::string& log = Halden::Log::path();
  if (!log.empty() && isSame(followLinks(log), identityOf(log)))
    throw cannotWrite(final_, "it is the log's file", kOtherName);
}

void OutputFile::createTemporary(const std::string& folder, const std::string& name) {
  const std::string head = folder + "/" + temporaryHead(name) + std::to_string(getpid());
  for (int i = 0;; ++i) {
    temporary_ = head + (i > 0 ? "-" + std::to_string(i) : "") + temporaryEnding(name);
    handle_ = open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (handle_ < 0 && errno == EEXIST) continue;
    if (handle_ < 0)
      throw cannotWrite(final_, std::strerror(errno),
                        "name a folder that exists and may be written to");
    // Who clears leftovers may have come between; then the file has no name any more.
    flock(handle_, LOCK_EX | LOCK_NB);
    struct stat status = {};
    if (fstat(handle_, &status) == 0 && status.st_nlink > 0) break;
    close(handle_);
  }
  rememberTemporary(temporary_);
}

// Who writes a scene replaces the temporary file by one of its own.
void OutputFile::takeOver() {
  struct stat held = {}, written = {};
  if (fstat(handle_, &held) != 0 || stat(temporary_.c_str(), &written) != 0 ||
      identityOf(held) == identityOf(written))
    return;
  const int handle = open(temporary_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (handle < 0) return;
  flock(handle, LOCK_EX | LOCK_NB);
  close(std::exchange(handle_, handle));
  if (target_.empty()) return;
  if (identityOf(target_))
    keepModeAndOwner();
  else
    fchmod(handle_, held.st_mode & 07777);
}

// Of the file that is there. A user who may not give files away keeps what was written as his own.
void OutputFile::keepModeAndOwner() const {
  struct stat status = {};
  if (stat(target_.c_str(), &status) != 0) return;
  if (fchown(handle_, status.st_uid, status.st_gid) != 0 &&
      fchown(handle_, static_cast<uid_t>(-1), status.st_gid) != 0)
    errno = 0;
  // After the owner: a change of owner takes rights away.
  fchmod(handle_, status.st_mode & 07777);
}

OutputFile::~OutputFile() {
  outputs().erase(std::remove(outputs().begin(), outputs().end(), this), outputs().end());
  if (!committed_ && !temporary_.empty()) unlink(temporary_.c_str());
  forgetTemporary(temporary_);
  if (handle_ >= 0) close(handle_);
}

void OutputFile::commit() {
  takeOver();
  if (target_.empty()) {
    writeThrough();
    return;
  }
  // The file may have come to be one that is read while this one was written.
  if (const FileIdentity there = identityOf(target_); there && inputs().count(there) > 0)
    throw isRead(final_);
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0)
    throw cannotWrite(final_, std::strerror(errno), "see whether the folder may be written to");
  committed_ = true;
}

// Copies the temporary file into what cannot be replaced.
void OutputFile::writeThrough() {
  const auto fail = [this] {
    return cannotWrite(final_, std::strerror(errno), "see whether it may be written to");
  };
  if (final_ == "-") std::fflush(stdout);
  int to = final_ == "-" ? dup(STDOUT_FILENO) : -1;
  // Without blocking: a pipe that nobody reads must not keep a signal from ending this.
  while (final_ != "-" && to < 0) {
    to = open(final_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NONBLOCK);
    if (to >= 0) break;
    // A pipe without a reader, which may come.
    struct stat status = {};
    const int why = errno;
    const bool isPipe = stat(final_.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    errno = why;
    if (errno != EINTR && !(errno == ENXIO && isPipe)) throw fail();
    throwIfInterrupted();
    poll(nullptr, 0, 50);
  }
  if (to < 0) throw fail();
  const int from = open(temporary_.c_str(), O_RDONLY | O_CLOEXEC);
  std::vector<char> buffer(1 << 16);
  bool isDone = from >= 0;
  while (isDone) {
    const ssize_t size = read(from, buffer.data(), buffer.size());
    if (size < 0) isDone = false;
    if (size <= 0) break;
    for (ssize_t at = 0; at < size;) {
      const ssize_t written = write(to, buffer.data() + at, static_cast<std::size_t>(size - at));
      if (written > 0) {
        at += written;
      } else if (errno == EAGAIN || errno == EINTR) {
        if (isInterrupted()) break;
        struct pollfd ready = {to, POLLOUT, 0};
        poll(&ready, 1, 200);
      } else {
        isDone = false;
        break;
      }
    }
    if (!isDone || isInterrupted()) break;
  }
  const Failure failure = fail();
  if (from >= 0) close(from);
  if (close(to) != 0) isDone = false;
  throwIfInterrupted();
  if (!isDone) throw failure;
}

}  // namespace command
