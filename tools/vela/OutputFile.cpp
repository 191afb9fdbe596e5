#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Failure.h"
#include "Interrupt.h"

namespace command {

OutputFile::OutputFile(const std::string& finalName) : final_(finalName) {
  // A folder under that name would only be noticed when the picture is done.
  struct stat status = {};
  if (stat(final_.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
    throw Failure{kBadInput, "cannot write", final_, "it is a folder", "name a file in it"};

  // Beside the final name, so that the rename stays within one file system; the dot keeps it out of
  // `*.exr`.
  const std::size_t slash = final_.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : final_.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? final_ : final_.substr(slash + 1);
  temporary_ = folder + "." + name + ".part-" + std::to_string(getpid());
  const int handle = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (handle < 0)
    throw Failure{kBadInput, "cannot write", final_, std::strerror(errno),
                  "name a folder that exists and may be written to"};
  close(handle);
  rememberTemporary(temporary_);
}

OutputFile::~OutputFile() {
  if (!committed_) unlink(temporary_.c_str());
  forgetTemporary(temporary_);
}

void OutputFile::commit() {
  if (std::rename(temporary_.c_str(), final_.c_str()) != 0)
    throw Failure{kBadInput, "cannot write", final_, std::strerror(errno),
                  "see whether the folder may be written to"};
  committed_ = true;
}

}  // namespace command
