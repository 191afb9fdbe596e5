#include "ovo/Stage.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <set>
#include <unordered_set>
#include <utility>

#include "ovo/OpenOptions.h"
#include "ovo/Variants.h"
#include "ovo/detail/StageData.h"
#include "ovo/detail/TextGuard.h"
#include "ovo/detail/UnfinishedFile.h"

namespace ovo {

namespace fs = std::filesystem;

namespace {

const pxr::TfToken& upAxisField() {
  static const auto* const field = new pxr::TfToken("upAxis");
  return *field;
}
const pxr::TfToken& metersField() {
  static const auto* const field = new pxr::TfToken("metersPerUnit");
  return *field;
}

std::shared_ptr<Stage> refuse(std::string* error, const std::string& what, const std::string& why) {
  if (error) *error = what + ": " + why;
  return nullptr;
}

// What OpenUSD said first, in one line.
std::string firstLine(const detail::Problems& problems, const char* otherwise) {
  const std::vector<std::string> list = problems.list();
  if (list.empty()) return otherwise;
  std::string line = list.front().substr(0, list.front().find('\n'));
  return line.size() > 500 ? line.substr(0, 500) + "..." : line;
}

}  // namespace

Stage::Stage(std::unique_ptr<detail::StageData> data) : data_(std::move(data)) {}
Stage::~Stage() = default;

std::shared_ptr<Stage> Stage::open(const std::string& file, std::string* error) {
  return openScene(file, {}, error);
}

std::shared_ptr<Stage> Stage::open(const std::string& file, const StageLimits& limits,
                                   std::string* error) {
  OpenOptions options;
  options.prims = limits.prims;
  return openScene(file, options, error);
}

std::shared_ptr<Stage> openScene(const std::string& file, const OpenOptions& options,
                                 std::string* error) {
  return detail::StageData::openFile(file, options, error);
}

const OpenOptions& openOptionsOf(const Stage& stage) { return detail::StageData::of(stage).limits; }

bool readVariantChoice(const std::string& text, VariantChoice& choice) {
  const std::size_t equals = text.rfind('=');
  const std::size_t colon = text.rfind(':', equals);
  if (equals == std::string::npos || colon == std::string::npos || colon == 0 ||
      colon + 1 == equals)
    return false;
  choice = {Path(text.substr(0, colon)), Token(text.substr(colon + 1, equals - colon - 1)),
            Token(text.substr(equals + 1))};
  return true;
}

std::shared_ptr<Stage> openWithVariants(const std::string& file,
                                        const std::vector<VariantChoice>& choices,
                                        std::string* error) {
  OpenOptions options;
  options.variants = choices;
  return openScene(file, options, error);
}

std::shared_ptr<Stage> detail::StageData::openFile(const std::string& file,
                                                   const OpenOptions& options, std::string* error) {
  if (error) error->clear();
  const std::string what = "cannot open scene '" + file + "'";
  if (const std::string& trouble = detail::startRuntime(); !trouble.empty())
    return refuse(error, what, trouble);

  // What the file system knows is told better here than by a parser.
  std::error_code failed;
  const fs::file_status status = fs::status(file, failed);
  if (file.empty() || !fs::exists(status)) return refuse(error, what, "there is no such file");
  if (fs::is_directory(status)) return refuse(error, what, "it is a folder");
  // To open a pipe would wait for who writes it.
  if (!fs::is_regular_file(status)) return refuse(error, what, "it is no regular file");
  if (fs::file_size(file, failed) == 0) return refuse(error, what, "the file is empty");
  if (access(file.c_str(), R_OK) != 0) return refuse(error, what, "the file may not be read");
  const std::string extension = fs::path(file).extension().string();
  if (extension != ".usd" && extension != ".usda" && extension != ".usdc" && extension != ".usdz")
    return refuse(error, what, "its name ends in none of .usd, .usda, .usdc and .usdz");

  std::string rootFolder;
  if (!options.root.empty()) {
    if (const char* const whyNot = detail::takeRoot(options.root, rootFolder))
      return refuse(error, what, "'" + options.root + "' " + whyNot);
  }
  const ReadContext context(rootFolder, options.layers);
  if (!context.isInside(file))
    return refuse(error, what, "it lies outside of '" + options.root + "'");

  detail::Problems why;
  pxr::SdfLayerRefPtr root;
  {
    const detail::Collector collector(why, true);
    const pxr::ArResolverContextBinder binder{pxr::ArResolverContext(context)};
    // An absolute name, so that the current folder may change while the stage is open.
    root = pxr::SdfLayer::FindOrOpen(fs::absolute(file).lexically_normal().string());
  }
  const std::string tooMany =
      "it is composed of more than " + std::to_string(options.layers) + " files";
  if (context.hasTooManyLayers()) return refuse(error, what, tooMany);
  if (!root) return refuse(error, what, firstLine(why, "the file is no scene"));

  // The edits are above all files: choices written there before anything is composed win.
  const pxr::SdfLayerRefPtr edits = pxr::SdfLayer::CreateAnonymous("edits.usda");
  for (const VariantChoice& choice : options.variants) {
    const detail::Collector collector(why);
    const std::string& text = choice.prim.asString();
    const bool isPath = !detail::whyTextIsUnfit("<" + text + ">") &&
                        pxr::SdfPath::IsValidPathString(text) && text[0] == '/' &&
                        text.size() > 1 && pxr::SdfPath(text).IsPrimPath();
    if (!isPath || !pxr::SdfPath::IsValidIdentifier(choice.set.asString()) ||
        !pxr::SdfSchema::IsValidVariantIdentifier(choice.name.asString()))
      return refuse(error, what,
                    "'" + text + ":" + choice.set.asString() + "=" + choice.name.asString() +
                        "' is no choice of a variant");
    const pxr::SdfPrimSpecHandle spec = pxr::SdfCreatePrimInLayer(edits, pxr::SdfPath(text));
    if (spec) spec->SetVariantSelection(choice.set.asString(), choice.name.asString());
  }

  auto data = std::make_unique<detail::StageData>(root, edits, file, options, context);
  // Files that other stages have open already are not opened again.
  const pxr::SdfLayerHandleSet layers = data->usedLayers();
  if (context.hasTooManyLayers() ||
      static_cast<std::size_t>(std::count_if(layers.begin(), layers.end(), [](const auto& layer) {
        return !layer->IsAnonymous();
      })) > options.layers)
    return refuse(error, what, tooMany);
  if (!data->refusal().empty()) return refuse(error, what, data->refusal());
  for (std::string& text : why.list()) data->problems.add(std::move(text));
  return std::shared_ptr<Stage>(new Stage(std::move(data)));
}

std::unique_ptr<detail::StageData> detail::StageData::ofMemory(const pxr::SdfLayerRefPtr& root) {
  const OpenOptions options;
  return std::make_unique<StageData>(root, pxr::SdfLayerRefPtr(), std::string(), options,
                                     ReadContext({}, options.layers));
}

std::shared_ptr<Stage> Stage::openText(const std::string& text, std::string* error) {
  if (error) error->clear();
  const std::string what = "cannot open scene text";
  if (const std::string& trouble = detail::startRuntime(); !trouble.empty())
    return refuse(error, what, trouble);
  if (text.empty()) return refuse(error, what, "the text is empty");
  if (const char* const why = detail::whyTextIsUnfit(text)) return refuse(error, what, why);
  detail::Problems why;
  pxr::SdfLayerRefPtr root;
  {
    const detail::Collector collector(why, true);
    root = pxr::SdfLayer::CreateAnonymous("text.usda");
    if (!root->ImportFromString(text)) root = pxr::SdfLayerRefPtr();
  }
  if (!root) return refuse(error, what, firstLine(why, "the text is no scene"));
  auto data = detail::StageData::ofMemory(root);
  if (!data->refusal().empty()) return refuse(error, what, data->refusal());
  for (std::string& message : why.list()) data->problems.add(std::move(message));
  return std::shared_ptr<Stage>(new Stage(std::move(data)));
}

std::shared_ptr<Stage> Stage::createInMemory() {
  // Without OpenUSD's plug-in table the process would end here, so an incomplete installation gives
  // null.
  if (!detail::startRuntime().empty()) return nullptr;
  auto data = detail::StageData::ofMemory(pxr::SdfLayer::CreateAnonymous("memory.usda"));
  return std::shared_ptr<Stage>(new Stage(std::move(data)));
}

// Prims. The stage is not changed by handing out handles to it, which const calls do.

Prim Stage::getRootPrim() const {
  return Prim(const_cast<Stage*>(this)->shared_from_this(), data_->rootNode);
}

Prim Stage::getPrimAtPath(const Path& path) const {
  return Prim(const_cast<Stage*>(this)->shared_from_this(), data_->find(path));
}

Prim Stage::getDefaultPrim() const {
  const Token name = getDefaultPrimName();
  if (name.isEmpty()) return Prim();
  return getPrimAtPath(name.asString()[0] == '/' ? Path(name.asString())
                                                 : Path::absoluteRoot().child(name));
}

Prim Stage::definePrim(const Path& path, const Token& type) {
  return Prim(shared_from_this(), data_->define(path, type));
}

bool Stage::findDescendentPrims(const std::vector<Path>& paths, std::vector<Prim>& out) const {
  out.clear();
  const std::shared_ptr<Stage> self = const_cast<Stage*>(this)->shared_from_this();
  std::unordered_set<const detail::PrimNode*> walked;
  std::vector<const detail::PrimNode*> waiting;
  for (const Path& path : paths) {
    const detail::PrimNode* const top = data_->find(path);
    if (!top) continue;
    waiting.assign(top->children.rbegin(), top->children.rend());
    while (!waiting.empty()) {
      const detail::PrimNode* const node = waiting.back();
      waiting.pop_back();
      if (!walked.insert(node).second) continue;
      out.push_back(Prim(self, node));
      waiting.insert(waiting.end(), node->children.rbegin(), node->children.rend());
    }
  }
  return !out.empty();
}

std::vector<std::string> Stage::problems() const { return data_->problems.list(); }
const std::string& Stage::getFile() const noexcept { return data_->file; }

std::vector<std::string> Stage::layerFiles() const {
  std::set<std::string> files;
  for (const pxr::SdfLayerHandle& layer : data_->usedLayers()) {
    if (!layer || layer->IsAnonymous()) continue;
    const std::string path = layer->GetResolvedPath().GetPathString();
    files.insert(pxr::ArIsPackageRelativePath(path)
                     ? pxr::ArSplitPackageRelativePathOuter(path).first
                     : path);
  }
  files.erase(std::string());
  return {files.begin(), files.end()};
}

// What holds for the whole scene

namespace {

// A number of the stage, or `otherwise` where there is none or no usable one.
double numberOf(const detail::StageData& data, const pxr::TfToken& field, double otherwise) {
  pxr::VtValue value;
  if (!data.stageField(field, &value)) return otherwise;
  if (value.IsHolding<float>()) return static_cast<double>(value.UncheckedGet<float>());
  return value.IsHolding<double>() ? value.UncheckedGet<double>() : otherwise;
}

bool setPositive(detail::StageData& data, const pxr::TfToken& field, double value) {
  if (!(value > 0.0) || std::isinf(value) || !data.edit->PermissionToEdit()) return false;
  data.setStageField(field, pxr::VtValue(value));
  return true;
}

}  // namespace

Token Stage::getUpAxis() const {
  pxr::VtValue value;
  if (data_->stageField(upAxisField(), &value) && value.IsHolding<pxr::TfToken>() &&
      value.UncheckedGet<pxr::TfToken>() == "Z")
    return Token("Z");
  return Token("Y");
}

double Stage::getMetersPerUnit() const {
  const double meters = numberOf(*data_, metersField(), 0.01);
  return meters > 0.0 && !std::isinf(meters) ? meters : 0.01;
}

double Stage::getTimeCodesPerSecond() const {
  // A layer's own word comes before any word of a weaker layer, frames per second included.
  for (const pxr::TfToken& field :
       {pxr::SdfFieldKeys->TimeCodesPerSecond, pxr::SdfFieldKeys->FramesPerSecond}) {
    const double rate = numberOf(*data_, field, 0.0);
    if (rate > 0.0) return rate;
  }
  return 24.0;
}

double Stage::getFramesPerSecond() const {
  return numberOf(*data_, pxr::SdfFieldKeys->FramesPerSecond, 24.0);
}

// Old files have frames where newer ones have time codes.
double Stage::getStartTimeCode() const {
  return numberOf(*data_, pxr::SdfFieldKeys->StartTimeCode,
                  numberOf(*data_, pxr::SdfFieldKeys->StartFrame, 0.0));
}
double Stage::getEndTimeCode() const {
  return numberOf(*data_, pxr::SdfFieldKeys->EndTimeCode,
                  numberOf(*data_, pxr::SdfFieldKeys->EndFrame, 0.0));
}

Token Stage::getDefaultPrimName() const {
  pxr::VtValue value;
  if (!data_->stageField(pxr::SdfFieldKeys->DefaultPrim, &value) ||
      !value.IsHolding<pxr::TfToken>())
    return Token();
  return Token(value.UncheckedGet<pxr::TfToken>().GetString());
}

bool Stage::hasUpAxis() const { return data_->stageField(upAxisField(), nullptr); }
bool Stage::hasMetersPerUnit() const { return data_->stageField(metersField(), nullptr); }
bool Stage::hasTimeCodesPerSecond() const {
  return data_->stageField(pxr::SdfFieldKeys->TimeCodesPerSecond, nullptr);
}
bool Stage::hasFramesPerSecond() const {
  return data_->stageField(pxr::SdfFieldKeys->FramesPerSecond, nullptr);
}
bool Stage::hasTimeCodeRange() const {
  const auto has = [this](const pxr::TfToken& field) { return data_->stageField(field, nullptr); };
  return (has(pxr::SdfFieldKeys->StartTimeCode) || has(pxr::SdfFieldKeys->StartFrame)) &&
         (has(pxr::SdfFieldKeys->EndTimeCode) || has(pxr::SdfFieldKeys->EndFrame));
}

bool Stage::setUpAxis(const Token& axis) {
  if ((axis != Token("Y") && axis != Token("Z")) || !data_->edit->PermissionToEdit()) return false;
  data_->setStageField(upAxisField(), pxr::VtValue(pxr::TfToken(axis.asString())));
  return true;
}

bool Stage::setMetersPerUnit(double metersPerUnit) {
  return setPositive(*data_, metersField(), metersPerUnit);
}

bool Stage::setTimeCodesPerSecond(double rate) {
  if (!setPositive(*data_, pxr::SdfFieldKeys->TimeCodesPerSecond, rate)) return false;
  // Times of other files are scaled to this rate.
  data_->recomposeAll();
  return true;
}

bool Stage::setFramesPerSecond(double rate) {
  if (!setPositive(*data_, pxr::SdfFieldKeys->FramesPerSecond, rate)) return false;
  if (!hasTimeCodesPerSecond()) data_->recomposeAll();
  return true;
}

bool Stage::setTimeCodeRange(double start, double end) {
  if (!std::isfinite(start) || !std::isfinite(end) || !data_->edit->PermissionToEdit())
    return false;
  data_->setStageField(pxr::SdfFieldKeys->StartTimeCode, pxr::VtValue(start));
  data_->setStageField(pxr::SdfFieldKeys->EndTimeCode, pxr::VtValue(end));
  return true;
}

bool Stage::setDefaultPrim(const Token& name) {
  if (!pxr::SdfPath::IsValidIdentifier(name.asString()) || !data_->edit->PermissionToEdit())
    return false;
  data_->setStageField(pxr::SdfFieldKeys->DefaultPrim, pxr::VtValue(pxr::TfToken(name.asString())));
  return true;
}

// Files

bool Stage::exportTo(const std::string& file, std::string* error) const {
  if (error) error->clear();
  const auto fail = [&](const std::string& why) {
    if (error) *error = "cannot write scene '" + file + "': " + why;
    return false;
  };
  const std::string extension = fs::path(file).extension().string();
  if (extension != ".usd" && extension != ".usda" && extension != ".usdc")
    return fail("its name ends in none of .usd, .usda and .usdc");
  std::error_code failed;
  // A link stays, and what it leads to is replaced.
  const fs::path behind = fs::canonical(file, failed);
  const fs::path target = failed ? fs::path(file) : behind;
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  if (!fs::is_directory(folder, failed))
    return fail("there is no folder '" + folder.string() + "'");
  const fs::file_status status = fs::status(target, failed);
  if (fs::is_directory(status)) return fail("it is a folder");
  if (fs::exists(status) && !fs::is_regular_file(status)) return fail("it is no regular file");

  // The name of the unfinished file stays within the 255 bytes that file systems allow.
  static std::atomic<unsigned> count{0};
  const fs::path unfinished =
      fs::absolute(folder) / ("." + target.stem().string().substr(0, 200) + "." +
                              std::to_string(getpid()) + "-" + std::to_string(++count) + extension);
  detail::Problems why;
  detail::UnfinishedFile scene(unfinished.string());
  bool written = false;
  {
    const detail::Collector collector(why, true);
    const pxr::SdfLayerRefPtr merged =
        detail::mergeLayers(*data_, fs::absolute(folder).lexically_normal().string());
    written = merged && merged->Export(unfinished.string());
  }
  if (written && !scene.hasFailed()) {
    // Who may read a file is its owner's decision, and stays.
    if (fs::exists(status)) scene.setMode(static_cast<unsigned>(status.permissions()));
    if (scene.replace(target.string())) return true;
  }
  return fail(scene.hasFailed() ? scene.why() : firstLine(why, "the folder may not be written to"));
}

}  // namespace ovo
