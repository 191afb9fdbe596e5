// Scene files. The first byte says of what kind: t for text, c for a crate, p for a package; C and
// P have some bytes changed. What opens is read whole, and can be written and opened again with the
// same prims. OpenUSD's reader of crates does not withstand damage: those are tried in a process of
// their own, and the answer is one of those stated.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Require.h"
#include "ovo/Attribute.h"
#include "ovo/LayerUses.h"
#include "ovo/MeshPrim.h"
#include "ovo/Prim.h"
#include "ovo/Primvar.h"
#include "ovo/PropertyLinks.h"
#include "ovo/SceneTrial.h"
#include "ovo/Stage.h"
#include "ovo/Xform.h"
#include "ovo/detail/TestPackage.h"

namespace {

namespace fs = std::filesystem;
using ovo::Prim;
using ovo::Stage;
using vela_test::Bytes;
using vela_test::require;

// A folder of this process alone, removed at its end.
struct Folder {
  Folder() : path(fs::temp_directory_path() / ("vela-fuzz-" + std::to_string(getpid()))) {
    fs::create_directories(path);
  }
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  [[nodiscard]] std::string file(const char* name) const { return path / name; }
  fs::path path;
};
const Folder& folder() {
  static const Folder own;
  return own;
}

void write(const std::string& file, const std::string& content) {
  std::ofstream(file, std::ios::binary) << content;
}

template <class T>
void readAs(const ovo::Attribute& attribute, double time) {
  T value{};
  ovo::Array<T> values;
  static_cast<void>(attribute.get(value, time));
  static_cast<void>(attribute.get(values, time));
}

void readAttribute(const ovo::Attribute& attribute, double time) {
  static_cast<void>(attribute.valueType());
  static_cast<void>(attribute.typeName());
  static_cast<void>(attribute.timeSamples());
  readAs<int>(attribute, time);
  readAs<float>(attribute, time);
  readAs<double>(attribute, time);
  readAs<std::string>(attribute, time);
  readAs<ovo::Token>(attribute, time);
  readAs<tarn::Vec3f>(attribute, time);
  readAs<tarn::Mat4d>(attribute, time);
}

void readAll(const Stage& stage, const std::vector<Prim>& prims) {
  for (const double time : {tarn::defaultTimeValue(), 1.5}) {
    ovo::XformCache xforms(time);
    for (const Prim& prim : prims) {
      require(prim.isValid(), "a prim that was found is valid");
      static_cast<void>(xforms.getLocalToWorld(prim));
      static_cast<void>(prim.isVisible(time));
      static_cast<void>(prim.purpose());
      const ovo::PropertyLinks links(prim);
      static_cast<void>(links.appliedSchemas());
      for (const ovo::Token& name : links.propertyNames()) {
        std::vector<ovo::Path> paths;
        ovo::FileReference file;
        static_cast<void>(links.connections(name, paths));
        static_cast<void>(links.forwardedTargets(name, paths));
        static_cast<void>(links.file(name, file, time));
        static_cast<void>(links.pathExpression(name));
      }
      for (const ovo::Token& name : prim.getAttrNames()) readAttribute(prim.getAttr(name), time);
      for (const ovo::Token& name : prim.getPrimvarNames()) {
        ovo::Array<tarn::Vec3f> values;
        static_cast<void>(prim.getPrimvar(name).computeFlattened(values, time));
      }
      std::vector<ovo::Path> targets;
      static_cast<void>(prim.getRelationshipTargets("prototypes", targets));
      const ovo::MeshPrim mesh(prim);
      if (mesh.isValid()) static_cast<void>(mesh.getBoundsBox(time, false));
    }
  }
  static_cast<void>(stage.problems());
  static_cast<void>(stage.layerFiles());
}

std::vector<Prim> primsOf(const Stage& stage) {
  std::vector<Prim> prims;
  stage.findDescendentPrims({"/"}, prims);
  return prims;
}

void readAndWrite(const Stage& stage, const char* copy) {
  const std::vector<Prim> prims = primsOf(stage);
  readAll(stage, prims);
  const std::string file = folder().file(copy);
  std::string error;
  if (!stage.exportTo(file, &error)) {
    require(!error.empty(), "there is a reason when nothing was written");
    return;
  }
  const auto again = Stage::open(file, &error);
  require(again != nullptr, "what was written opens");
  const std::vector<Prim> same = primsOf(*again);
  require(prims.size() == same.size(), "what was written has the same prims");
  for (std::size_t i = 0; i < prims.size(); ++i)
    require(prims[i].getPath() == same[i].getPath(), "in the same order");
}

// Bytes to change: where, and by what bits.
using Changes = std::vector<std::pair<std::size_t, char>>;

Changes takeChanges(Bytes& bytes) {
  Changes changes(bytes.take<std::uint8_t>() % 8u);
  for (auto& [at, change] : changes) {
    at = bytes.take<std::uint16_t>();
    change = bytes.take<char>();
  }
  return changes;
}

std::string damage(std::string file, const Changes& changes) {
  for (const auto& [at, bits] : changes)
    file[at % file.size()] = static_cast<char>(file[at % file.size()] ^ bits);
  return file;
}

void openFile(const char* name, const std::string& content) {
  const std::string file = folder().file(name);
  write(file, content);
  std::string error;
  const auto stage = Stage::open(file, &error);
  require((stage == nullptr) == !error.empty(), "there is a reason exactly when nothing opened");
  if (stage) readAll(*stage, primsOf(*stage));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, size);
  const char kind = bytes.take<char>();
  const bool isDamaged = kind == 'C' || kind == 'P';
  const auto changes = isDamaged ? takeChanges(bytes) : Changes();
  const std::string text = "#usda 1.0\n" + bytes.rest();
  if (kind == 'p' || kind == 'P') {
    openFile("a.usdz", damage(ovo_test::package("a.usda", text), changes));
    return 0;
  }
  std::string error;
  const auto stage = Stage::openText(text, &error);
  require((stage == nullptr) == !error.empty(), "there is a reason exactly when nothing opened");
  if (!stage) return 0;
  if (kind != 'C') {
    readAndWrite(*stage, kind == 'c' ? "copy.usdc" : "copy.usda");
    return 0;
  }
  const std::string file = folder().file("damaged.usdc");
  if (!stage->exportTo(file)) return 0;
  std::ifstream in(file, std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  write(file, damage(whole, changes));
  ovo::TrialOptions options;
  options.seconds = 10.0;
  const ovo::Trial trial = ovo::tryScene(file, options);
  require(trial.outcome != ovo::Trial::Outcome::notTried, "every file can be tried");
  require((trial.outcome == ovo::Trial::Outcome::opens) == trial.reason.empty(),
          "there is a reason exactly when it does not open");
  return 0;
}
