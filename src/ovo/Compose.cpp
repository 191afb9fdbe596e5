#include <algorithm>
#include <atomic>
#include <unordered_set>
#include <utility>

#include "ovo/detail/StageData.h"
#include "ovo/detail/TextGuard.h"

namespace ovo::detail {

namespace {

std::uint64_t nextSerial() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

pxr::ArResolverContext contextFor(const std::string& file) {
  return file.empty() ? pxr::ArGetResolver().CreateDefaultContext()
                      : pxr::ArGetResolver().CreateDefaultContextForAsset(file);
}

// Calls visit(node, layer) for every layer that has a say about the prim, from strong to weak,
// until it returns false.
template <class Visit>
void forEachSpec(const pxr::PcpPrimIndex& index, Visit visit) {
  for (const pxr::PcpNodeRef& node : index.GetNodeRange()) {
    if (!node.HasSpecs() || node.IsInert()) continue;
    for (const pxr::SdfLayerRefPtr& layer : node.GetLayerStack()->GetLayers())
      if (layer->HasSpec(node.GetPath()) && !visit(node, layer)) return;
  }
}

bool isActive(const pxr::PcpPrimIndex& index) {
  bool active = true;
  forEachSpec(index, [&active](const pxr::PcpNodeRef& node, const pxr::SdfLayerRefPtr& layer) {
    return !layer->HasField(node.GetPath(), pxr::SdfFieldKeys->Active, &active);
  });
  return active;
}

}  // namespace

StageData::StageData(pxr::SdfLayerRefPtr rootLayer, pxr::SdfLayerRefPtr sessionLayer,
                     std::string fileName, const StageLimits& stageLimits)
    : serial(nextSerial()),
      file(std::move(fileName)),
      limits(stageLimits),
      root(std::move(rootLayer)),
      session(std::move(sessionLayer)),
      edit(session ? session : root) {
  const pxr::PcpLayerStackIdentifier identifier(root, session,
                                                contextFor(session ? root->GetIdentifier() : ""));
  cache_ = std::make_unique<pxr::PcpCache>(identifier, "usd", true);
  {
    const Collector collector(problems, true);
    const pxr::ArResolverContextBinder binder(identifier.pathResolverContext);
    pxr::PcpErrorVector errors;
    cache_->ComputeLayerStack(identifier, &errors);
    report(errors);
  }
  compose(pxr::SdfPath::AbsoluteRootPath());
}

StageData::~StageData() = default;

PrimNode* StageData::find(const Path& path) const {
  const auto found = byPath_.find(path);
  return found == byPath_.end() || !found->second->alive ? nullptr : found->second;
}

void StageData::report(const pxr::PcpErrorVector& errors) {
  std::vector<std::string> texts;
  texts.reserve(errors.size());
  for (const pxr::PcpErrorBasePtr& error : errors)
    if (error) texts.push_back(error->ToString());
  problems.addSorted(std::move(texts));
}

PrimNode* StageData::nodeAt(const pxr::SdfPath& path, PrimNode* parent) {
  const Path key(path.GetAsString());
  PrimNode*& slot = byPath_[key];
  if (!slot) {
    PrimNode& node = nodes_.emplace_back();
    node.stage = this;
    node.sdfPath = path;
    node.path = key;
    if (parent) node.name = Token(path.GetName());
    slot = &node;
  }
  slot->parent = parent;
  return slot;
}

void StageData::computeIndexes(const pxr::SdfPath& top) {
  const Collector collector(problems, true);
  const pxr::ArResolverContextBinder binder(cache_->GetLayerStackIdentifier().pathResolverContext);
  pxr::PcpErrorVector errors;
  // Which prims come first differs from run to run. So this pass only stops far from all there are;
  // which ones are laid down is decided in the order of the scene.
  std::atomic<std::size_t> computed{0};
  cache_->ComputePrimIndexesInParallel(
      top, &errors,
      [&computed, this](const pxr::PcpPrimIndex& index, pxr::TfTokenVector*) {
        return index.GetPath().GetPathElementCount() < kMaxPrimNesting &&
               computed.fetch_add(1, std::memory_order_relaxed) < limits.prims && isActive(index);
      },
      [](const pxr::SdfPath&) { return true; });
  report(errors);
}

void StageData::compose(const pxr::SdfPath& top) {
  computeIndexes(top);

  // Lay down the tree, parents first. A list instead of recursion: the depth is the file's choice.
  PrimNode* const above =
      top.IsAbsoluteRootPath() ? nullptr : find(Path(top.GetParentPath().GetAsString()));
  std::vector<PrimNode*> waiting{nodeAt(top, above)};
  if (!above) rootNode = waiting.front();
  pxr::PcpErrorVector errors;
  std::unordered_set<PrimNode*> incomplete;  // prims some of whose children are not composed
  while (!waiting.empty()) {
    PrimNode& node = *waiting.back();
    waiting.pop_back();
    if (!node.alive && numAlive_ >= limits.prims) {
      problems.add("more than " + std::to_string(limits.prims) + " prims: the rest is left out");
      incomplete.insert(node.parent);
      continue;
    }
    const pxr::PcpPrimIndex* index = cache_->FindPrimIndex(node.sdfPath);
    if (!index || !index->IsValid()) {
      const Collector collector(problems, true);
      const pxr::ArResolverContextBinder binder(
          cache_->GetLayerStackIdentifier().pathResolverContext);
      index = &cache_->ComputePrimIndex(node.sdfPath, &errors);
    }
    if (!index->IsValid()) {
      problems.add(node.sdfPath.GetString() + ": cannot be composed and is left out");
      retire(node);
      incomplete.insert(node.parent);
      continue;
    }
    for (PrimNode* child : node.children) retire(*child);
    node.children.clear();
    fill(node, *index);
    if (!node.active) continue;
    if (node.sdfPath.GetPathElementCount() >= kMaxPrimNesting) {
      problems.add(node.sdfPath.GetString().substr(0, 80) + "...: nested more than " +
                   std::to_string(kMaxPrimNesting) + " prims deep: what is below is left out");
      continue;
    }
    pxr::TfTokenVector names;
    pxr::PcpTokenSet prohibited;
    index->ComputePrimChildNames(&names, &prohibited);
    node.children.reserve(names.size());
    for (const pxr::TfToken& name : names) {
      // Damaged files have prims whose names are none.
      const pxr::SdfPath path = node.sdfPath.AppendChild(name);
      if (!path.IsEmpty()) node.children.push_back(nodeAt(path, &node));
    }
    waiting.insert(waiting.end(), node.children.rbegin(), node.children.rend());
  }
  for (PrimNode* parent : incomplete)
    if (parent)
      parent->children.erase(std::remove_if(parent->children.begin(), parent->children.end(),
                                            [](const PrimNode* child) { return !child->alive; }),
                             parent->children.end());
  report(errors);
}

void StageData::fill(PrimNode& node, const pxr::PcpPrimIndex& index) {
  if (!node.alive) ++numAlive_;
  node.alive = true;
  node.opinions.clear();
  node.specifier = pxr::SdfSpecifierOver;
  node.active = true;
  pxr::TfToken typeName;
  bool activeFound = false, specifierFound = false;
  static const pxr::TfToken anyType("__AnyType__");

  const pxr::PcpLayerStackRefPtr& ownStack = index.GetRootNode().GetLayerStack();
  forEachSpec(index, [&](const pxr::PcpNodeRef& from, const pxr::SdfLayerRefPtr& layer) {
    Opinion opinion;
    opinion.layer = get_pointer(layer);
    opinion.path = from.GetPath();
    opinion.node = from;
    opinion.stageFromLayer = from.GetMapToRoot().GetTimeOffset();
    if (const pxr::SdfLayerOffset* offset = from.GetLayerStack()->GetLayerOffsetForLayer(layer))
      opinion.stageFromLayer = opinion.stageFromLayer * *offset;
    if (!from.IsRootNode() && from.GetLayerStack() == ownStack) hasInternalArcs_ = true;

    if (!activeFound)
      activeFound = layer->HasField(opinion.path, pxr::SdfFieldKeys->Active, &node.active);
    if (typeName.IsEmpty()) {
      layer->HasField(opinion.path, pxr::SdfFieldKeys->TypeName, &typeName);
      if (typeName == anyType) typeName = pxr::TfToken();
    }
    pxr::SdfSpecifier specifier = pxr::SdfSpecifierOver;
    if (!specifierFound &&
        layer->HasField(opinion.path, pxr::SdfFieldKeys->Specifier, &specifier) &&
        pxr::SdfIsDefiningSpecifier(specifier)) {
      // A class that is directly inherited from says nothing about whether its heir is one, unless
      // nothing else does.
      const bool weak = specifier == pxr::SdfSpecifierClass &&
                        from.GetArcType() == pxr::PcpArcTypeInherit && !from.IsDueToAncestor();
      if (!weak || node.specifier == pxr::SdfSpecifierOver) node.specifier = specifier;
      specifierFound = !weak;
    }
    node.opinions.push_back(std::move(opinion));
    return true;
  });
  node.typeName = Token(typeName.GetString());
  node.type = &primType(typeName.GetString());
  node.instance = node.active && index.IsInstanceable();
  inheritFlags(node);
}

void StageData::inheritFlags(PrimNode& node) const {
  const PrimNode* const parent = node.parent;
  const bool isDefining = pxr::SdfIsDefiningSpecifier(node.specifier);
  // Below an instance OpenUSD tells the flags of the shared prototype, whose root counts as defined
  // and not abstract.
  const bool prototype = parent && parent->instance;
  node.defined = !parent || ((parent->defined || prototype) && isDefining);
  node.abstract =
      parent && ((parent->abstract && !prototype) || node.specifier == pxr::SdfSpecifierClass);
  node.instanceProxy = parent && (parent->instance || parent->instanceProxy);
}

void StageData::refreshFlags(PrimNode& top) {
  std::vector<PrimNode*> waiting{&top};
  while (!waiting.empty()) {
    PrimNode& node = *waiting.back();
    waiting.pop_back();
    inheritFlags(node);
    waiting.insert(waiting.end(), node.children.begin(), node.children.end());
  }
}

void StageData::retire(PrimNode& top) {
  std::vector<PrimNode*> waiting{&top};
  while (!waiting.empty()) {
    PrimNode& node = *waiting.back();
    waiting.pop_back();
    if (node.alive) --numAlive_;
    node.alive = false;
    waiting.insert(waiting.end(), node.children.begin(), node.children.end());
    node.children.clear();
  }
}

void StageData::recomposeAll() {
  {
    const Collector collector(problems, true);
    const pxr::ArResolverContextBinder binder(
        cache_->GetLayerStackIdentifier().pathResolverContext);
    pxr::PcpChanges changes;
    changes.DidChangeSignificantly(cache_.get(), pxr::SdfPath::AbsoluteRootPath());
    changes.Apply();
  }
  hasInternalArcs_ = false;
  compose(pxr::SdfPath::AbsoluteRootPath());
}

bool StageData::isEditable(const PrimNode& node) const noexcept {
  return node.alive && node.parent && !node.instanceProxy && edit->PermissionToEdit();
}

pxr::SdfPrimSpecHandle StageData::editSpec(PrimNode& node) {
  if (!isEditable(node)) return pxr::SdfPrimSpecHandle();
  if (edit->HasSpec(node.sdfPath)) return edit->GetPrimAtPath(node.sdfPath);
  const pxr::SdfPrimSpecHandle spec = pxr::SdfCreatePrimInLayer(edit, node.sdfPath);
  // The edit layer is the strongest of all; those above it may have got a spec just now too.
  for (PrimNode* at = &node; spec && at && at->parent; at = at->parent) {
    const bool known =
        std::any_of(at->opinions.begin(), at->opinions.end(), [this, at](const Opinion& opinion) {
          return opinion.layer == get_pointer(edit) && opinion.path == at->sdfPath;
        });
    if (known) break;
    Opinion opinion;
    opinion.layer = get_pointer(edit);
    opinion.path = at->sdfPath;
    at->opinions.insert(at->opinions.begin(), std::move(opinion));
  }
  return spec;
}

PrimNode* StageData::define(const Path& path, const Token& type) {
  // What cannot be written into a file and read back cannot be defined.
  const Collector collector(problems);
  const std::string& text = path.asString();
  if (whyTextIsUnfit("<" + text + ">") || !pxr::SdfPath::IsValidPathString(text)) return nullptr;
  const pxr::SdfPath target(text);
  if (!target.IsAbsolutePath() || !target.IsPrimPath() || target.GetAsString() != text ||
      target.GetPathElementCount() > kMaxPrimNesting)
    return nullptr;
  if (!type.isEmpty() && !pxr::SdfPath::IsValidIdentifier(type.asString())) return nullptr;

  // The nearest prim that is there already.
  const pxr::SdfPathVector chain = target.GetPrefixes();
  PrimNode* nearest = rootNode;
  std::size_t known = 0;
  for (; known < chain.size(); ++known) {
    PrimNode* const next = find(Path(chain[known].GetAsString()));
    if (!next) break;
    nearest = next;
  }
  if (nearest->parent && !isEditable(*nearest)) return nullptr;
  if (known < chain.size() && (!nearest->active || nearest->instance)) return nullptr;
  if (!edit->PermissionToEdit()) return nullptr;

  // Those that are there become defined, from the top down, so that flags are passed on once.
  for (std::size_t i = 0; i < known; ++i) {
    PrimNode& node = *find(Path(chain[i].GetAsString()));
    if (node.defined) continue;
    if (const pxr::SdfPrimSpecHandle spec = editSpec(node)) {
      spec->SetSpecifier(pxr::SdfSpecifierDef);
      node.specifier = pxr::SdfSpecifierDef;
      refreshFlags(node);
    }
  }
  if (known == chain.size()) {
    if (!type.isEmpty() && nearest->typeName != type) setTypeName(*nearest, type);
    return nearest;
  }

  // The rest is made new.
  if (nearest->parent && !editSpec(*nearest)) return nullptr;
  for (std::size_t i = known; i < chain.size(); ++i) {
    const bool last = i + 1 == chain.size();
    const pxr::SdfPath parentPath = chain[i].GetParentPath();
    const pxr::SdfPrimSpecHandle above =
        parentPath.IsAbsoluteRootPath() ? edit->GetPseudoRoot() : edit->GetPrimAtPath(parentPath);
    if (!above || !pxr::SdfPrimSpec::New(above, chain[i].GetName(), pxr::SdfSpecifierDef,
                                         last ? type.asString() : std::string()))
      return nullptr;
  }
  if (hasInternalArcs_) {
    recomposeAll();
    return find(path);
  }
  nearest->children.push_back(nodeAt(chain[known], nearest));
  compose(chain[known]);
  return find(path);
}

bool StageData::setTypeName(PrimNode& node, const Token& type) {
  const Collector collector(problems);
  if (!type.isEmpty() && !pxr::SdfPath::IsValidIdentifier(type.asString())) return false;
  const pxr::SdfPrimSpecHandle spec = editSpec(node);
  if (!spec) return false;
  spec->SetTypeName(type.asString());
  // Without a word of its own the weaker ones count again.
  pxr::TfToken name(type.asString());
  for (std::size_t i = 0; name.IsEmpty() && i < node.opinions.size(); ++i)
    node.opinions[i].layer->HasField(node.opinions[i].path, pxr::SdfFieldKeys->TypeName, &name);
  node.typeName = Token(name.GetString());
  node.type = &primType(name.GetString());
  return true;
}

bool StageData::setActive(PrimNode& node, bool active) {
  const Collector collector(problems);
  const pxr::SdfPrimSpecHandle spec = editSpec(node);
  if (!spec) return false;
  spec->SetActive(active);
  if (node.active == active) return true;
  if (hasInternalArcs_ || active) {
    recomposeAll();
    return true;
  }
  node.active = false;
  node.instance = false;
  for (PrimNode* child : node.children) retire(*child);
  node.children.clear();
  return true;
}

bool StageData::stageField(const pxr::TfToken& name, pxr::VtValue* value) const {
  const pxr::SdfPath& at = pxr::SdfPath::AbsoluteRootPath();
  return (session && session->HasField(at, name, value)) || root->HasField(at, name, value);
}

void StageData::setStageField(const pxr::TfToken& name, const pxr::VtValue& value) {
  const Collector collector(problems);
  edit->SetField(pxr::SdfPath::AbsoluteRootPath(), name, value);
}

}  // namespace ovo::detail
