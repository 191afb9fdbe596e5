#include <algorithm>
#include <atomic>
#include <iterator>
#include <optional>
#include <unordered_set>
#include <utility>

#include "ovo/detail/StageData.h"
#include "ovo/detail/TextGuard.h"

namespace ovo::detail {

namespace {

// So many of a prim's children are composed before the first of them is looked at. The time that
// OpenUSD takes for a prim grows with the square of its chain of arcs: a scene where chains are too
// long is given up before all its prims are composed.
constexpr std::size_t kSiblingsAtOnce = 512;

std::uint64_t nextSerial() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

pxr::ArResolverContext contextFor(const std::string& file, const ReadContext& reading) {
  return {file.empty() ? pxr::ArGetResolver().CreateDefaultContext()
                       : pxr::ArGetResolver().CreateDefaultContextForAsset(file),
          reading};
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

std::size_t countNodes(const pxr::PcpPrimIndex& index) {
  const pxr::PcpNodeRange nodes = index.GetNodeRange();
  return static_cast<std::size_t>(std::distance(nodes.first, nodes.second));
}

// How far the longest chain of arcs leads: each node stands at the end of the arc from its parent.
std::size_t longestChain(const pxr::PcpPrimIndex& index) {
  std::size_t longest = 0;
  for (pxr::PcpNodeRef node : index.GetNodeRange()) {
    std::size_t length = 0;
    while ((node = node.GetParentNode())) ++length;
    longest = std::max(longest, length);
  }
  return longest;
}

std::string fileOf(const pxr::SdfLayerHandle& layer) {
  return layer ? layer->GetResolvedPath().GetPathString() : std::string();
}

// A layer that an error is about, when it is about one that cannot be read.
std::optional<MissingLayer> missingLayerOf(const pxr::PcpErrorBase& error) {
  if (const auto* arc = dynamic_cast<const pxr::PcpErrorInvalidAssetPath*>(&error)) {
    // What is looked for on the search path has been resolved to nothing.
    const std::string& file =
        arc->resolvedAssetPath.empty() ? arc->assetPath : arc->resolvedAssetPath;
    return MissingLayer{file, arc->arcType == pxr::PcpArcTypePayload ? "payload" : "reference",
                        fileOf(arc->sourceLayer), Path(arc->site.path.GetAsString())};
  }
  if (const auto* below = dynamic_cast<const pxr::PcpErrorInvalidSublayerPath*>(&error))
    return MissingLayer{below->sublayerPath, "sublayer", fileOf(below->layer), Path("/")};
  return std::nullopt;
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
                     std::string fileName, const OpenOptions& options, const ReadContext& context)
    : serial(nextSerial()),
      file(std::move(fileName)),
      limits(options),
      root(std::move(rootLayer)),
      session(std::move(sessionLayer)),
      edit(session ? session : root) {
  const pxr::PcpLayerStackIdentifier identifier(
      root, session, contextFor(session ? root->GetIdentifier() : "", context));
  cache_ = std::make_unique<pxr::PcpCache>(identifier, "usd", true);
  {
    const Collector collector(problems, true);
    const pxr::ArResolverContextBinder binder(identifier.pathResolverContext);
    pxr::PcpErrorVector errors;
    cache_->ComputeLayerStack(identifier, &errors);
    report(errors);
  }
  compose(pxr::SdfPath::AbsoluteRootPath());
  if (!options.root.empty()) leaveOutLayersOutside(context);
}

StageData::~StageData() = default;

// A layer that another stage has open is found by its name, and never resolved.
void StageData::leaveOutLayersOutside(const ReadContext& context) {
  std::vector<std::string> outside;
  for (const pxr::SdfLayerHandle& layer : cache_->GetUsedLayers())
    if (!layer->IsAnonymous() && !context.isInside(layer->GetResolvedPath().GetPathString()))
      outside.push_back(layer->GetIdentifier());
  if (outside.empty()) return;
  std::vector<std::string> texts;
  texts.reserve(outside.size());
  for (const std::string& name : outside) texts.push_back(name + kLiesOutside);
  problems.addSorted(std::move(texts));
  {
    const Collector collector(problems, true);
    const pxr::ArResolverContextBinder binder(resolverContext());
    pxr::PcpChanges changes;
    cache_->RequestLayerMuting(outside, {}, &changes);
    changes.Apply();
  }
  compose(pxr::SdfPath::AbsoluteRootPath());
}

PrimNode* StageData::find(const Path& path) const {
  const auto found = byPath_.find(path);
  return found == byPath_.end() || !found->second->alive ? nullptr : found->second;
}

void StageData::report(const pxr::PcpErrorVector& errors) {
  std::vector<std::string> texts;
  texts.reserve(errors.size());
  for (const pxr::PcpErrorBasePtr& error : errors) {
    if (!error) continue;
    texts.push_back(error->ToString());
    if (std::optional<MissingLayer> missing = missingLayerOf(*error))
      missing_.insert(*std::move(missing));
  }
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

void StageData::computeIndexes(const pxr::SdfPathVector& tops, pxr::PcpErrorVector& errors) {
  const Collector collector(problems, true);
  const pxr::ArResolverContextBinder binder(cache_->GetLayerStackIdentifier().pathResolverContext);
  // Which prims come first differs from run to run. So this pass only stops far from all there are;
  // which ones are laid down is decided in the order of the scene.
  std::atomic<std::size_t> computed{0}, arcs{0};
  cache_->ComputePrimIndexesInParallel(
      tops, &errors,
      [&computed, &arcs, this](const pxr::PcpPrimIndex& index, pxr::TfTokenVector* children) {
        const std::size_t nodes = countNodes(index);
        if (index.GetPath().GetPathElementCount() >= maxDepth() ||
            computed.fetch_add(1, std::memory_order_relaxed) >= limits.prims ||
            arcs.fetch_add(nodes, std::memory_order_relaxed) >= limits.arcs ||
            nodes > limits.arcChain || !isActive(index))
          return false;
        pxr::PcpTokenSet prohibited;
        index.ComputePrimChildNames(children, &prohibited);
        if (children->size() > kSiblingsAtOnce) children->resize(kSiblingsAtOnce);
        return !children->empty();
      },
      [](const pxr::SdfPath&) { return true; });
}

void StageData::compose(const pxr::SdfPath& top) {
  pxr::PcpErrorVector errors;
  std::vector<std::string> found;  // what is left out here, to be told behind the errors
  computeIndexes({top}, errors);

  // Lay down the tree, parents first. A list instead of recursion: the depth is the file's choice.
  PrimNode* const above =
      top.IsAbsoluteRootPath() ? nullptr : find(Path(top.GetParentPath().GetAsString()));
  std::vector<PrimNode*> waiting{nodeAt(top, above)};
  if (!above) rootNode = waiting.front();
  std::unordered_set<PrimNode*> incomplete;  // prims some of whose children are not composed
  while (!waiting.empty()) {
    PrimNode& node = *waiting.back();
    waiting.pop_back();
    if (!node.alive && (numAlive_ >= limits.prims || numOpinions_ >= limits.arcs)) {
      found.push_back("more than " +
                      (numAlive_ >= limits.prims ? std::to_string(limits.prims) + " prims"
                                                 : std::to_string(limits.arcs) + " arcs to prims") +
                      ": the rest is left out");
      incomplete.insert(node.parent);
      continue;
    }
    const pxr::PcpPrimIndex* index = cache_->FindPrimIndex(node.sdfPath);
    if (!index || !index->IsValid()) {
      // The siblings beyond those that were computed at once, as many again: they wait next to it.
      pxr::SdfPathVector siblings{node.sdfPath};
      for (auto next = waiting.rbegin(); next != waiting.rend() && (*next)->parent == node.parent &&
                                         siblings.size() < kSiblingsAtOnce;
           ++next)
        siblings.push_back((*next)->sdfPath);
      if (siblings.size() > 1) computeIndexes(siblings, errors);
      index = cache_->FindPrimIndex(node.sdfPath);
    }
    if (!index || !index->IsValid()) {
      const Collector collector(problems, true);
      const pxr::ArResolverContextBinder binder(
          cache_->GetLayerStackIdentifier().pathResolverContext);
      index = &cache_->ComputePrimIndex(node.sdfPath, &errors);
    }
    if (countNodes(*index) > limits.arcChain && longestChain(*index) > limits.arcChain) {
      refusal_ = node.sdfPath.GetString().substr(0, 80) + ": more than " +
                 std::to_string(limits.arcChain) + " arcs lead from one to the next";
      found.push_back(refusal_ + ": it and the rest are left out");
      retire(node);
      for (PrimNode* left : waiting) retire(*left);
      incomplete.insert(node.parent);
      for (PrimNode* left : waiting) incomplete.insert(left->parent);
      break;
    }
    if (!index->IsValid()) {
      found.push_back(node.sdfPath.GetString() + ": cannot be composed and is left out");
      retire(node);
      incomplete.insert(node.parent);
      continue;
    }
    for (PrimNode* child : node.children) retire(*child);
    node.children.clear();
    fill(node, *index);
    if (!node.active) continue;
    if (node.sdfPath.GetPathElementCount() >= maxDepth()) {
      found.push_back(node.sdfPath.GetString().substr(0, 80) + "...: nested more than " +
                      std::to_string(maxDepth()) + " prims deep: what is below is left out");
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
  for (std::string& text : found) problems.add(std::move(text));
}

void StageData::fill(PrimNode& node, const pxr::PcpPrimIndex& index) {
  if (node.alive)
    numOpinions_ -= node.opinions.size();
  else
    ++numAlive_;
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
  numOpinions_ += node.opinions.size();
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
    if (node.alive) {
      --numAlive_;
      numOpinions_ -= node.opinions.size();
    }
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
    ++numOpinions_;
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
