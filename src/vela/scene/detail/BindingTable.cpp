#include "vela/scene/detail/BindingTable.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "ovo/PropertyLinks.h"
#include "ovo/Token.h"
#include "vela/scene/LeftOut.h"

namespace vela::scene::detail {

namespace {

using ovo::Path;
using ovo::Prim;
using ovo::PropertyLinks;
using ovo::Token;

constexpr std::string_view kBinding = "material:binding";
constexpr std::string_view kCollection = "collection:";

// Collections within collections multiply: a small file may ask for more than any time suffices.
constexpr std::size_t kDeepestCollection = 100;
constexpr std::size_t kMostCollections = 10'000;

// Which binding a relationship's name declares.
struct BindingName {
  std::string purpose;  // empty: for all
  bool isOfCollection = false;
};

std::optional<BindingName> parse(const std::string& name) {
  if (name == kBinding) return BindingName{};
  std::string rest = name.substr(kBinding.size() + 1);
  if (rest.compare(0, kCollection.size(), kCollection) != 0) {
    if (rest.find(':') != std::string::npos) return std::nullopt;
    return BindingName{rest, false};
  }
  rest.erase(0, kCollection.size());
  const std::size_t colon = rest.find(':');
  if (colon == std::string::npos) return BindingName{"", true};
  if (rest.find(':', colon + 1) != std::string::npos) return std::nullopt;
  return BindingName{rest.substr(0, colon), true};
}

// A property's path as the prim and the name of the collection that it is; the name is empty when
// it is none.
void splitCollection(const Path& property, Path& prim, std::string& name) {
  Token whole;
  PropertyLinks::split(property, prim, whole);
  const std::string& text = whole.asString();
  name = text.compare(0, kCollection.size(), kCollection) == 0 ? text.substr(kCollection.size())
                                                               : std::string();
}

// A collection is one when its schema is applied.
bool isCollection(const Prim& prim, const std::string& name) {
  const std::vector<Token> schemas = PropertyLinks(prim).appliedSchemas();
  return !name.empty() &&
         std::find(schemas.begin(), schemas.end(), Token("CollectionAPI:" + name)) != schemas.end();
}

bool isProperty(const Path& path) {
  Path prim;
  Token property;
  PropertyLinks::split(path, prim, property);
  return !property.isEmpty();
}

}  // namespace

void Collection::merge(const Collection& other) {
  for (const auto& [path, rule] : other.rules_) rules_[path] = rule;
  isReadable = isReadable && other.isReadable;
}

bool Collection::has(const Path& prim) const {
  if (expression) return expression(prim);
  for (Path at = prim; !at.isEmpty(); at = at.parent()) {
    const auto found = rules_.find(at);
    if (found == rules_.end()) continue;
    if (found->second == Rule::exclude) return false;
    if (found->second == Rule::expandPrims || at == prim) return true;
  }
  return false;
}

BindingTable::BindingTable(const ovo::Stage& stage, MaterialPurpose purpose)
    : stage_(stage),
      purpose_(purpose == MaterialPurpose::full      ? "full"
               : purpose == MaterialPurpose::preview ? "preview"
                                                     : "") {}

MaterialBinding BindingTable::find(const Prim& prim) {
  MaterialBinding result;
  if (!prim.isValid()) return result;
  for (int which = purpose_.empty() ? 1 : 0; which < 2; ++which) {
    const Binding* const winner = findFor(prim, which);
    if (!winner) continue;
    result.relationship = winner->relationship;
    const Prim target = stage_.getPrimAtPath(winner->material);
    if (target.isValid() && target.getTypeName() == "Material") result.material = target;
    return result;
  }
  return result;
}

// From the prim up: the first binding stands unless one above is strong.
const BindingTable::Binding* BindingTable::findFor(const Prim& prim, int which) {
  const Binding* winner = nullptr;
  for (Prim at = prim; at.isValid() && at.getPath() != Path::absoluteRoot(); at = at.parent()) {
    const OfPrim& own = read(at);
    bool isFromHere = false;
    if (!own.direct[which].empty()) {
      const Binding& direct = own.direct[which].front();
      if (!winner || direct.isStrong) {
        winner = &direct;
        isFromHere = true;
      }
    }
    for (const Binding& binding : own.collections[which]) {
      if (winner && !isFromHere && !binding.isStrong) continue;
      if (!collectionAt(binding.collection)->has(prim.getPath())) continue;
      winner = &binding;
      break;
    }
  }
  return winner;
}

const BindingTable::OfPrim& BindingTable::read(const Prim& prim) {
  const auto [place, isNew] = prims_.try_emplace(prim.getPath());
  OfPrim& out = place->second;
  if (!isNew) return out;

  const PropertyLinks links(prim);
  std::vector<Path> targets;
  for (const Token& name : links.propertyNames(kBinding)) {
    if (name.asString().size() > kBinding.size() && name.asString()[kBinding.size()] != ':')
      continue;
    const std::optional<BindingName> parsed = parse(name.asString());
    if (!parsed || (!parsed->purpose.empty() && parsed->purpose != purpose_)) continue;
    if (!links.forwardedTargets(name, targets)) continue;

    // One prim, or one prim and one collection; all else is as if it were not there.
    Binding binding;
    for (const Path& target : targets)
      (isProperty(target) ? binding.collection : binding.material) = target;
    if (targets.size() != (parsed->isOfCollection ? 2u : 1u) || binding.material.isEmpty() ||
        binding.collection.isEmpty() == parsed->isOfCollection)
      continue;
    if (parsed->isOfCollection) {
      Path owner;
      std::string collection;
      splitCollection(binding.collection, owner, collection);
      if (!isCollection(stage_.getPrimAtPath(owner), collection)) continue;
    }
    binding.relationship = Path(prim.getPath().asString() + "." + name.asString());
    binding.isStrong = links.propertyWord(name, "bindMaterialAs") == "strongerThanDescendants";
    const int which = parsed->purpose.empty() ? 1 : 0;
    (parsed->isOfCollection ? out.collections : out.direct)[which].push_back(binding);
  }
  return out;
}

std::shared_ptr<const Collection> BindingTable::collectionAt(const Path& property) {
  if (const auto found = collections_.find(property); found != collections_.end())
    return found->second;
  if (open_.empty()) {
    isCut_ = false;
    collectionsRead_ = 0;
  }
  Path owner;
  std::string name;
  splitCollection(property, owner, name);
  open_.push_back(property);
  auto made = std::make_shared<const Collection>(readCollection(stage_.getPrimAtPath(owner), name));
  open_.pop_back();
  if (!made->isReadable && open_.empty()) unreadable_.push_back(property.asString());
  // What was read within a cycle lacks what the cycle's beginning would add.
  if (open_.empty() || !isCut_) collections_.emplace(property, made);
  return made;
}

// A later rule for a path goes before an earlier one; what is excluded comes last.
Collection BindingTable::readCollection(const Prim& prim, const std::string& name) {
  using Rule = Collection::Rule;
  Collection out;
  const std::string head = "collection:" + name + ":";
  Token expansion, mode;
  // A light's own collections have everything unless it says otherwise.
  bool includesRoot = isLight(prim) && (name == "lightLink" || name == "shadowLink");
  prim.getAttr(head + "expansionRule").get(expansion);
  prim.getAttr(head + "mode").get(mode);
  prim.getAttr(head + "includeRoot").get(includesRoot);
  const Rule rule = expansion == "explicitOnly" ? Rule::explicitOnly : Rule::expandPrims;
  std::vector<Path> includes, excludes;
  prim.getRelationshipTargets(head + "includes", includes);
  prim.getRelationshipTargets(head + "excludes", excludes);

  // An expression counts only where nothing else is said.
  const bool hasRules = !includes.empty() || !excludes.empty() || includesRoot;
  const bool hasExpression = prim.getAttr(head + "membershipExpression").hasAuthoredValue();
  if (mode == "expression" || (mode != "relationship" && !hasRules && hasExpression)) {
    out.expression = PropertyLinks(prim).pathExpression(head + "membershipExpression");
    out.isReadable = out.expression != nullptr || !hasExpression;
    return out;
  }

  if (includesRoot && rule != Rule::explicitOnly) out.set(Path::absoluteRoot(), Rule::expandPrims);
  for (const Path& include : includes) {
    Path owner;
    std::string inner;
    splitCollection(include, owner, inner);
    if (inner.empty()) {
      out.set(include, rule);
      continue;
    }
    // A cycle ends where it comes back to; nor may collections of collections go on for ever.
    if (std::find(open_.begin(), open_.end(), include) != open_.end()) {
      isCut_ = true;
    } else if (open_.size() >= kDeepestCollection || ++collectionsRead_ > kMostCollections) {
      isCut_ = true;
      out.isReadable = false;
    } else if (isCollection(stage_.getPrimAtPath(owner), inner)) {
      // Rules and expressions do not mix.
      const std::shared_ptr<const Collection> included = collectionAt(include);
      out.merge(*included);
      out.isReadable = out.isReadable && !included->expression;
    }
  }
  for (const Path& exclude : excludes) out.set(exclude, Rule::exclude);
  return out;
}

}  // namespace vela::scene::detail
