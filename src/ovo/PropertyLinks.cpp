#include "ovo/PropertyLinks.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <unordered_set>
#include <utility>

#include "ovo/Stage.h"
#include "ovo/detail/Resolve.h"
#include "ovo/detail/StageData.h"

namespace ovo {

namespace {

std::vector<Path> toPaths(const pxr::SdfPathVector& from) {
  std::vector<Path> paths;
  paths.reserve(from.size());
  for (const pxr::SdfPath& path : from) paths.emplace_back(path.GetAsString());
  return paths;
}

bool isName(const Token& name) {
  return pxr::SdfPath::IsValidNamespacedIdentifier(name.asString());
}

// The folders that names without one are looked for in: those of the stage, then those of the
// environment.
std::vector<std::string> searchPath(const pxr::ArResolverContext& context) {
  std::vector<std::string> folders;
  if (const auto* const own = context.Get<pxr::ArDefaultResolverContext>())
    folders = own->GetSearchPath();
  if (const char* const more = std::getenv("PXR_AR_DEFAULT_SEARCH_PATH")) {
    const std::string text = more;
    for (std::size_t from = 0; from <= text.size();) {
      const std::size_t to = std::min(text.find(':', from), text.size());
      if (to > from) folders.push_back(text.substr(from, to - from));
      from = to + 1;
    }
  }
  return folders;
}

// Schemas applied to a prim, in order.
std::vector<Token> schemasOf(const detail::PrimNode& node) {
  static const pxr::TfToken field("apiSchemas");
  pxr::TfTokenVector composed;
  for (auto opinion = node.opinions.rbegin(); opinion != node.opinions.rend(); ++opinion) {
    pxr::SdfTokenListOp edits;
    if (opinion->layer->HasField(opinion->path, field, &edits)) edits.ApplyOperations(&composed);
  }
  std::vector<Token> names;
  names.reserve(composed.size());
  for (const pxr::TfToken& name : composed) names.emplace_back(name.GetString());
  return names;
}

bool isRelativeName(const std::string& name) {
  return !name.empty() && name[0] != '/' && name.find("://") == std::string::npos;
}

}  // namespace

FileBytes::FileBytes(std::shared_ptr<const char> bytes, std::size_t size) noexcept
    : bytes_(std::move(bytes)), size_(size) {}

std::vector<Token> PropertyLinks::propertyNames(std::string_view prefix) const {
  std::vector<Token> names;
  if (!isValid()) return names;
  std::set<pxr::TfToken, pxr::TfDictionaryLessThan> sorted;
  pxr::TfTokenVector order;
  bool hasOrder = false;
  for (const detail::Opinion& opinion : node_->opinions) {
    pxr::TfTokenVector properties;
    opinion.layer->HasField(opinion.path, pxr::SdfChildrenKeys->PropertyChildren, &properties);
    for (const pxr::TfToken& property : properties)
      if (std::string_view(property.GetString()).substr(0, prefix.size()) == prefix)
        sorted.insert(property);
    if (!hasOrder)
      hasOrder = opinion.layer->HasField(opinion.path, pxr::SdfFieldKeys->PropertyOrder, &order);
  }
  pxr::TfTokenVector ordered(sorted.begin(), sorted.end());
  if (hasOrder) pxr::SdfApplyListOrdering(&ordered, order);
  names.reserve(ordered.size());
  for (const pxr::TfToken& name : ordered) names.emplace_back(name.GetString());
  return names;
}

void PropertyLinks::split(const Path& path, Path& prim, Token& property) {
  const std::string& text = path.asString();
  const std::size_t slash = text.rfind('/');
  const std::size_t dot = text.find('.', slash == std::string::npos ? 0 : slash);
  if (dot == std::string::npos) {
    prim = path;
    property = Token();
    return;
  }
  prim = Path(text.substr(0, dot));
  property = Token(text.substr(dot + 1));
}

Token PropertyLinks::propertyWord(const Token& property, const Token& field) const {
  if (!isValid() || !isName(property)) return Token();
  pxr::VtValue value;
  if (!detail::findField(*node_, pxr::TfToken(property.asString()), pxr::TfToken(field.asString()),
                         value))
    return Token();
  if (value.IsHolding<pxr::TfToken>()) return Token(value.UncheckedGet<pxr::TfToken>().GetString());
  if (value.IsHolding<std::string>()) return Token(value.UncheckedGet<std::string>());
  return Token();
}

std::vector<Token> PropertyLinks::appliedSchemas() const {
  return isValid() ? schemasOf(*node_) : std::vector<Token>();
}

bool PropertyLinks::connections(const Token& attribute, std::vector<Path>& sources) const {
  sources.clear();
  if (!isValid() || !isName(attribute)) return false;
  const pxr::TfToken name(attribute.asString());
  if (!detail::hasProperty(*node_, name, pxr::SdfSpecTypeAttribute)) return false;
  sources = toPaths(detail::composePaths(*node_, name, pxr::SdfFieldKeys->ConnectionPaths));
  return true;
}

bool PropertyLinks::forwardedTargets(const Token& relationship, std::vector<Path>& targets) const {
  targets.clear();
  std::vector<Path> own;
  if (!getRelationshipTargets(relationship, own)) return false;

  // A list instead of recursion: how far they lead is the scene's choice. Each relationship is
  // replaced once, so that a cycle ends.
  std::unordered_set<Path> replaced{Path(getPath().asString() + "." + relationship.asString())};
  std::vector<Path> open(own.rbegin(), own.rend());
  while (!open.empty()) {
    const Path target = open.back();
    open.pop_back();
    Path primPath;
    Token property;
    split(target, primPath, property);
    std::vector<Path> further;
    if (!property.isEmpty() &&
        getStage()->getPrimAtPath(primPath).getRelationshipTargets(property, further)) {
      if (replaced.insert(target).second) open.insert(open.end(), further.rbegin(), further.rend());
      continue;
    }
    if (std::find(targets.begin(), targets.end(), target) == targets.end())
      targets.push_back(target);
  }
  return true;
}

bool PropertyLinks::file(const Token& attribute, FileReference& file, double time) const {
  if (!isValid() || !isName(attribute)) return false;
  const detail::Collector collector(node_->stage->problems);
  const detail::Found found =
      detail::findValue(*node_, pxr::TfToken(attribute.asString()), time, false);
  if (!found.hasValue) return false;
  FileReference out;
  if (found.value.IsHolding<pxr::SdfAssetPath>())
    out.written = detail::evaluateFileNames(found).UncheckedGet<pxr::SdfAssetPath>().GetAssetPath();
  else if (found.value.IsHolding<std::string>())
    out.written = found.value.UncheckedGet<std::string>();
  else if (found.value.IsHolding<pxr::TfToken>())
    out.written = found.value.UncheckedGet<pxr::TfToken>().GetString();
  else
    return false;
  out.layer = found.opinion->layer->GetIdentifier();
  if (!out.written.empty()) {
    const pxr::ArResolverContextBinder binder(node_->stage->resolverContext());
    // In a handle of its own: to anchor a name, OpenUSD asks for one.
    const pxr::SdfLayerHandle layer(found.opinion->layer);
    out.anchored = pxr::SdfComputeAssetPathRelativeToLayer(layer, out.written);
    out.resolved = resolveFile(out.anchored);
  }
  file = std::move(out);
  return true;
}

std::string PropertyLinks::resolveFile(const std::string& anchored) const {
  if (!isValid() || anchored.empty()) return {};
  const detail::Collector collector(node_->stage->problems);
  const pxr::ArResolverContext context = node_->stage->resolverContext();
  const pxr::ArResolverContextBinder binder(context);
  const pxr::ArResolver& resolver = pxr::ArGetResolver();
  if (!isRelativeName(anchored)) return resolver.Resolve(anchored).GetPathString();

  // The resolver itself would begin with the current folder.
  for (const std::string& folder : searchPath(context)) {
    std::string found =
        resolver.Resolve((std::filesystem::path(folder) / anchored).lexically_normal().string())
            .GetPathString();
    if (!found.empty()) return found;
  }
  return {};
}

namespace {

// Types of geometry and what they derive from.
bool derivesFrom(const std::string& type, const std::string& base) {
  if (type == base) return true;
  static const std::map<std::string, std::string> parents = {
      {"Imageable", "Typed"},       {"Xformable", "Imageable"},
      {"Boundable", "Xformable"},   {"Gprim", "Boundable"},
      {"PointBased", "Gprim"},      {"Curves", "PointBased"},
      {"Scope", "Imageable"},       {"Xform", "Xformable"},
      {"Camera", "Xformable"},      {"PointInstancer", "Boundable"},
      {"Mesh", "PointBased"},       {"Points", "PointBased"},
      {"NurbsPatch", "PointBased"}, {"TetMesh", "PointBased"},
      {"BasisCurves", "Curves"},    {"NurbsCurves", "Curves"},
      {"HermiteCurves", "Curves"},  {"Cube", "Gprim"},
      {"Sphere", "Gprim"},          {"Cylinder", "Gprim"},
      {"Cylinder_1", "Gprim"},      {"Cone", "Gprim"},
      {"Capsule", "Gprim"},         {"Capsule_1", "Gprim"},
      {"Plane", "Gprim"},           {"Volume", "Gprim"},
      {"GeomSubset", "Typed"},      {"Material", "NodeGraph"},
      {"NodeGraph", "Typed"},       {"Shader", "Typed"}};
  const auto parent = parents.find(type);
  return parent != parents.end() && derivesFrom(parent->second, base);
}

using PrimPredicates = pxr::SdfPredicateLibrary<const detail::PrimNode*>;

PrimPredicates makePredicates() {
  using Node = const detail::PrimNode*;
  PrimPredicates library;
  library.Define("isa", [](Node node, const std::string& type) {
    return node && derivesFrom(node->typeName.asString(), type);
  });
  library.Define("defined", [](Node node) { return node && node->defined; });
  library.Define("abstract", [](Node node) { return node && node->abstract; });
  library.Define("kind", [](Node node, const std::string& kind) {
    pxr::TfToken own;
    for (std::size_t i = 0; node && own.IsEmpty() && i < node->opinions.size(); ++i)
      node->opinions[i].layer->HasField(node->opinions[i].path, pxr::SdfFieldKeys->Kind, &own);
    return own == kind;
  });
  library.Define("hasAPI", [](Node node, std::string schema) {
    if (!node) return false;
    const std::vector<Token> applied = schemasOf(*node);
    return std::any_of(applied.begin(), applied.end(), [&schema](const Token& name) {
      return name.asString() == schema ||
             name.asString().compare(0, schema.size() + 1, schema + ":") == 0;
    });
  });
  return library;
}

}  // namespace

std::function<bool(const Path& prim)> PropertyLinks::pathExpression(const Token& attribute) const {
  if (!isValid() || !isName(attribute)) return {};
  const detail::Collector collector(node_->stage->problems);
  pxr::TfErrorMark errors;

  // The strongest, with weaker ones in the place of what refers to them.
  const pxr::TfToken name(attribute.asString());
  pxr::SdfPathExpression whole;
  bool hasValue = false;
  for (const detail::Opinion& opinion : node_->opinions) {
    pxr::SdfPathExpression own;
    if (!opinion.layer->HasField(opinion.property(name), pxr::SdfFieldKeys->Default, &own))
      continue;
    own = std::move(own).MakeAbsolute(opinion.path);
    if (opinion.node) own = opinion.node.GetMapToRoot().Evaluate().MapSourceToTarget(own);
    whole = hasValue ? std::move(whole).ComposeOver(own) : own;
    hasValue = true;
    if (!whole.ContainsWeakerExpressionReference()) break;
  }
  if (!hasValue || !whole.IsComplete()) return {};
  static const auto* const predicates = new PrimPredicates(makePredicates());
  const auto evaluate = std::make_shared<const pxr::SdfPathExpressionEval<const detail::PrimNode*>>(
      pxr::SdfMakePathExpressionEval(whole, *predicates));
  if (!errors.IsClean()) {
    errors.Clear();
    return {};
  }
  return [evaluate, stage = getStage(), data = node_->stage](const Path& prim) {
    const pxr::SdfPath path(prim.asString());
    const auto nodeAt = [data](const pxr::SdfPath& at) -> const detail::PrimNode* {
      return data->find(Path(at.GetAsString()));
    };
    return static_cast<bool>(evaluate->Match(path, nodeAt));
  };
}

std::string PropertyLinks::sourceKey() const {
  std::string key;
  if (!isValid()) return key;
  const std::size_t top = getPath().asString().size();
  const auto add = [&key](const std::string& text) { key.append(text).push_back('\n'); };
  const auto addNumber = [&key](double number) {
    key.append(reinterpret_cast<const char*>(&number), sizeof number);
  };
  std::vector<const detail::PrimNode*> open{node_};
  while (!open.empty()) {
    const detail::PrimNode& node = *open.back();
    open.pop_back();
    open.insert(open.end(), node.children.rbegin(), node.children.rend());
    add(node.path.asString().substr(top));
    for (const detail::Opinion& opinion : node.opinions) {
      add(opinion.layer->GetIdentifier());
      add(opinion.path.GetAsString());
      addNumber(opinion.stageFromLayer.GetOffset());
      addNumber(opinion.stageFromLayer.GetScale());
      // Variables of expressions belong to the stack of layers.
      if (opinion.node) {
        const void* const stack = get_pointer(opinion.node.GetLayerStack());
        key.append(reinterpret_cast<const char*>(&stack), sizeof stack);
      }
      // Connections that lead out of the subtree differ between places that share their sources.
      pxr::TfTokenVector properties;
      opinion.layer->HasField(opinion.path, pxr::SdfChildrenKeys->PropertyChildren, &properties);
      for (const pxr::TfToken& property : properties) {
        if (!opinion.layer->HasField(opinion.property(property),
                                     pxr::SdfFieldKeys->ConnectionPaths))
          continue;
        for (const pxr::SdfPath& path :
             detail::composePaths(node, property, pxr::SdfFieldKeys->ConnectionPaths))
          if (!path.HasPrefix(node_->sdfPath)) add(path.GetAsString());
      }
    }
  }
  return key;
}

bool readFileBytes(const std::string& resolved, FileBytes& bytes, std::string* error) {
  const auto fail = [error](std::string why) {
    if (error) *error = std::move(why);
    return false;
  };
  if (const std::string& trouble = detail::startRuntime(); !trouble.empty()) return fail(trouble);
  detail::Problems problems;
  const detail::Collector collector(problems);
  const detail::OpensPlainData plain;
  const std::shared_ptr<pxr::ArAsset> asset =
      pxr::ArGetResolver().OpenAsset(pxr::ArResolvedPath(resolved));
  if (!asset) {
    const std::vector<std::string> reasons = problems.list();
    return fail(reasons.empty() ? "it cannot be read" : reasons.front());
  }
  const std::size_t size = asset->GetSize();
  if (size == 0) return fail("it is empty");
  const std::shared_ptr<const char> buffer = asset->GetBuffer();
  if (!buffer) return fail("it cannot be read");
  // What the bytes lie in may be the asset's own.
  const auto owners =
      std::make_shared<std::pair<std::shared_ptr<pxr::ArAsset>, std::shared_ptr<const char>>>(
          asset, buffer);
  bytes = FileBytes(std::shared_ptr<const char>(owners, buffer.get()), size);
  return true;
}

}  // namespace ovo
