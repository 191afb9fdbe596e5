#include "SceneFiles.h"

#include <optional>
#include <utility>

#include "Failure.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "vela/scene/SceneFiles.h"

namespace command {

void noteFilesOf(const ovo::Stage& stage) {
  if (!vela::scene::forEachNamedFile(stage, noteInput, interruptibleWork())) throw Interrupted{};
}

std::vector<std::string> filesOf(const ovo::Stage& stage) {
  std::optional<std::vector<std::string>> files =
      vela::scene::sceneFiles(stage, interruptibleWork());
  if (!files) throw Interrupted{};
  return *std::move(files);
}

}  // namespace command
