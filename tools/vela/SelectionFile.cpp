#include "SelectionFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "Interrupt.h"
#include "Messages.h"
#include "OutputFile.h"

namespace command {

namespace {

// More than any selection: a file that never ends must not fill the memory.
constexpr std::size_t kMostBytes = std::size_t{1} << 30;

// All of a file, or of what comes out of a pipe or device. Signals end it.
std::string readWhole(const std::string& file) {
  const auto fail = [&file](const char* why) { return failure(Message::noSelection, {file, why}); };
  // A pipe opens at once even when nobody writes into it yet.
  const int handle = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (handle < 0) throw fail(std::strerror(errno));
  const std::unique_ptr<const int, void (*)(const int*)> closer(&handle,
                                                                [](const int* h) { close(*h); });
  struct stat status = {};
  if (fstat(handle, &status) == 0 && S_ISDIR(status.st_mode)) throw fail(std::strerror(EISDIR));
  const bool isPipe = S_ISFIFO(status.st_mode);
  std::string text;
  std::vector<char> buffer(1 << 16);
  for (;;) {
    throwIfInterrupted();
    struct pollfd ready = {handle, POLLIN, 0};
    if (poll(&ready, 1, 200) <= 0) continue;
    const ssize_t size = read(handle, buffer.data(), buffer.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (size < 0) throw fail(std::strerror(errno));
    if (size == 0) break;
    text.append(buffer.data(), static_cast<std::size_t>(size));
    if (text.size() > kMostBytes) throw fail("it is larger than 1 GB");
  }
  if (text.empty()) throw fail(isPipe ? "nothing came" : "it is empty");
  return text;
}

}  // namespace

vela::Selection::GeoSelection readSelection(const std::string& file, bool mayBeReplaced) {
  if (!mayBeReplaced) noteInput(file);
  std::istringstream text(readWhole(file));

  vela::Selection::GeoSelection selection;
  std::string error;
  if (!selection.deserialize(text, &error)) {
    throw failure(Message::damagedSelection, {file, error});
  }
  return selection;
}

void writeSelection(const vela::Selection::GeoSelection& selection, OutputFile& output) {
  std::ofstream out(output.temporaryName(), std::ios::binary | std::ios::trunc);
  selection.serialize(out);
  out << '\n';
  out.close();
  if (!out)
    throw failure(Message::cannotWrite,
                  {output.finalName(), std::strerror(errno), "see whether the disk is full"});
  output.commit();
}

}  // namespace command
