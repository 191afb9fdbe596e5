#include "ovo/detail/UnfinishedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace ovo::detail {

namespace {

thread_local UnfinishedFile* tlsCurrent = nullptr;

}  // namespace

UnfinishedFile::UnfinishedFile(std::string name) : name_(std::move(name)), before_(tlsCurrent) {
  tlsCurrent = this;
}

UnfinishedFile::~UnfinishedFile() {
  tlsCurrent = before_;
  if (handle_ >= 0) close(handle_);
  // Where the process resolves file names in its own way the file may be there without a handle.
  if (hasName_ || handle_ < 0) unlink(name_.c_str());
}

UnfinishedFile* UnfinishedFile::of(const std::string& name) noexcept {
  return tlsCurrent && tlsCurrent->name_ == name ? tlsCurrent : nullptr;
}

bool UnfinishedFile::fail() {
  if (error_ == 0) error_ = errno;
  return false;
}

std::string UnfinishedFile::openName() const { return "/proc/self/fd/" + std::to_string(handle_); }

bool UnfinishedFile::open() {
  const std::filesystem::path parent = std::filesystem::path(name_).parent_path();
  const std::string folder = parent.empty() ? "." : parent.string();
  handle_ = ::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0666);
  if (handle_ >= 0) {
    // It is named by way of the table of open files, which not every root has.
    if (access(openName().c_str(), F_OK) == 0) return true;
    close(handle_);
  }
  handle_ = ::open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  hasName_ = handle_ >= 0;
  return hasName_ || fail();
}

bool UnfinishedFile::write(const void* bytes, std::size_t count, std::size_t offset) {
  if (hasFailed()) return false;
  const auto* at = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = pwrite(handle_, at, count, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written == 0) errno = ENOSPC;
    if (written <= 0) return fail();
    at += written;
    offset += static_cast<std::size_t>(written);
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool UnfinishedFile::finish() {
  if (hasFailed() || hasName_) return !hasFailed();
  hasName_ = linkat(AT_FDCWD, openName().c_str(), AT_FDCWD, name_.c_str(), AT_SYMLINK_FOLLOW) == 0;
  return hasName_ || fail();
}

bool UnfinishedFile::replace(const std::string& target) {
  if (hasFailed()) return false;
  if (std::rename(name_.c_str(), target.c_str()) != 0) return fail();
  hasName_ = false;
  return true;
}

std::string UnfinishedFile::why() const { return std::generic_category().message(error_); }

void UnfinishedFile::setMode(unsigned mode) {
  // A file system without permissions leaves nothing to keep.
  if (handle_ < 0 || fchmod(handle_, mode) != 0) chmod(name_.c_str(), mode);
}

}  // namespace ovo::detail
