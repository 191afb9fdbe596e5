#include "SceneFiles.h"

#include <string>

#include "Interrupt.h"
#include "OutputFile.h"
#include "ovo/Attribute.h"
#include "ovo/PropertyLinks.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

// What a name such as `wood.<UDIM>.png` stands for: tiles 1001 to 1100.
void noteTiles(const std::string& pattern) {
  constexpr const char* kMark = "<UDIM>";
  const std::size_t at = pattern.find(kMark);
  if (at == std::string::npos) return;
  for (int tile = 1001; tile <= 1100; ++tile) {
    std::string name = pattern;
    noteInput(name.replace(at, std::string(kMark).size(), std::to_string(tile)));
  }
}

void noteFile(const ovo::PropertyLinks& prim, const ovo::Token& attribute, double time) {
  ovo::FileReference file;
  if (!prim.file(attribute, file, time)) return;
  // A file in a package is behind the package's own name, in brackets.
  if (!file.resolved.empty()) noteInput(file.resolved.substr(0, file.resolved.find('[')));
  noteTiles(file.anchored);
}

}  // namespace

void noteFilesOf(const ovo::Stage& stage) {
  vela::scene::forEachPrim(
      stage,
      [](const ovo::Prim& prim) {
        const ovo::PropertyLinks links(prim);
        for (const ovo::Token& name : links.propertyNames()) {
          const ovo::Attribute attribute = prim.getAttr(name);
          if (!attribute.isValid() || attribute.typeName().asString() != "asset") continue;
          noteFile(links, name, tarn::defaultTimeValue());
          for (const double time : attribute.timeSamples()) noteFile(links, name, time);
        }
        return true;
      },
      interruptibleWork());
  throwIfInterrupted();
}

}  // namespace command
