#include "ovo/Prim.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <utility>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "ovo/detail/Resolve.h"
#include "ovo/detail/TextGuard.h"

namespace ovo {

namespace {

const std::string kPrimvars = "primvars:";
const std::string kIndices = ":indices";

bool startsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}
bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// No file can hold another name, and OpenUSD would complain about each use of it.
bool isPropertyName(const Token& name) {
  return pxr::SdfPath::IsValidNamespacedIdentifier(name.asString());
}

Token primvarFullName(const Token& name) {
  return startsWith(name.asString(), kPrimvars) ? name : Token(kPrimvars + name.asString());
}

}  // namespace

Prim::Prim() noexcept = default;
Prim::Prim(const Prim&) = default;
Prim::Prim(Prim&& other) noexcept
    : stage_(std::move(other.stage_)), node_(std::exchange(other.node_, nullptr)) {}
Prim& Prim::operator=(const Prim&) = default;
Prim& Prim::operator=(Prim&& other) noexcept {
  stage_ = std::move(other.stage_);
  node_ = std::exchange(other.node_, nullptr);
  return *this;
}
Prim::~Prim() = default;
Prim::Prim(std::shared_ptr<Stage> stage, const detail::PrimNode* node)
    : stage_(node ? std::move(stage) : nullptr), node_(node) {}

bool Prim::isValid() const noexcept { return node_ && node_->alive; }

const Path& Prim::getPath() const noexcept {
  static const Path* const none = new Path;
  return node_ ? node_->path : *none;
}
const Token& Prim::getName() const noexcept {
  static const Token* const none = new Token;
  return node_ ? node_->name : *none;
}
const Token& Prim::getTypeName() const noexcept {
  static const Token* const none = new Token;
  return isValid() ? node_->typeName : *none;
}
bool Prim::isActive() const noexcept { return isValid() && node_->active; }
bool Prim::isAbstract() const noexcept { return isValid() && node_->abstract; }
bool Prim::isDefined() const noexcept { return isValid() && node_->defined; }
bool Prim::isInstance() const noexcept { return isValid() && node_->instance; }
bool Prim::isInstanceProxy() const noexcept { return isValid() && node_->instanceProxy; }

// The tree

Prim Prim::parent() const { return isValid() ? Prim(stage_, node_->parent) : Prim(); }

void Prim::getChildren(std::vector<Prim>& out, bool activeOnly, bool includeAbstract,
                       bool includeInstanced) const {
  // `out` may hold this very prim.
  std::vector<Prim> children;
  if (isValid()) {
    children.reserve(node_->children.size());
    for (const detail::PrimNode* child : node_->children) {
      if (!pxr::SdfIsDefiningSpecifier(child->specifier)) continue;
      if ((activeOnly && !child->active) || (!includeAbstract && child->abstract) ||
          (!includeInstanced && child->instanceProxy))
        continue;
      children.push_back(Prim(stage_, child));
    }
  }
  out = std::move(children);
}

Prim Prim::getChild(const Token& name) const {
  if (!isValid()) return Prim();
  for (const detail::PrimNode* child : node_->children)
    if (child->name == name) return Prim(stage_, child);
  return Prim();
}

// Attributes

Attribute Prim::getAttr(const Token& name) const {
  return Attribute(stage_, isValid() && isPropertyName(name) ? node_ : nullptr, name);
}

Attribute Prim::createAttr(const Token& name, const Token& type) const {
  if (!isValid()) return Attribute();
  const detail::Collector collector(node_->stage->problems);
  const pxr::SdfValueTypeName wanted = pxr::SdfSchema::GetInstance().FindType(type.asString());
  if (!wanted) return Attribute();
  const Attribute attribute = getAttr(name);
  if (!attribute.node_) return Attribute();
  const bool known =
      detail::hasProperty(*node_, pxr::TfToken(name.asString()), pxr::SdfSpecTypeAttribute);
  if (known) {
    // Roles do not matter, what is stored does.
    const pxr::SdfValueTypeName there = detail::findType(*node_, name.asString());
    return there.GetType() == wanted.GetType() ? attribute : Attribute();
  }
  return detail::editAttribute(*node_, name.asString(), wanted).IsEmpty() ? Attribute() : attribute;
}

Attribute Prim::createAttr(const Token& name, Value::Type type) const {
  return type == Value::none ? Attribute() : createAttr(name, Token(Value::getTypeName(type)));
}

std::vector<Token> Prim::getAttrNames() const {
  std::vector<Token> names;
  if (!isValid()) return names;
  std::set<std::string> sorted;
  for (const detail::Opinion& opinion : node_->opinions) {
    pxr::TfTokenVector properties;
    opinion.layer->HasField(opinion.path, pxr::SdfChildrenKeys->PropertyChildren, &properties);
    for (const pxr::TfToken& property : properties)
      if (opinion.layer->GetSpecType(opinion.property(property)) == pxr::SdfSpecTypeAttribute)
        sorted.insert(property.GetString());
  }
  names.reserve(sorted.size());
  for (const std::string& name : sorted) names.emplace_back(name);
  return names;
}

Primvar Prim::getPrimvar(const Token& name) const {
  if (!isValid() || !isPropertyName(name)) return Primvar();
  for (const Token& candidate : {Token(kPrimvars + name.asString()), name})
    if (detail::hasProperty(*node_, pxr::TfToken(candidate.asString()), pxr::SdfSpecTypeAttribute))
      return Primvar(getAttr(candidate));
  return Primvar();
}

Primvar Prim::findInheritedPrimvar(const Token& name) const {
  Primvar own = getPrimvar(name);
  if (own.isValid() && own.hasAuthoredValue()) return own;
  const Token full = primvarFullName(name);
  for (Prim above = parent(); above.isValid() && above.node_->parent; above = above.parent()) {
    const Primvar candidate{above.getAttr(full)};
    if (!candidate.isValid() || !candidate.hasAuthoredValue()) continue;
    return candidate.interpolation() == tokens().constant ? candidate : own;
  }
  return own;
}

Primvar Prim::createPrimvar(const Token& name, const Token& type,
                            const Token& interpolation) const {
  Primvar primvar{createAttr(primvarFullName(name), type)};
  if (primvar.isValid() && !interpolation.isEmpty() && !primvar.setInterpolation(interpolation))
    return Primvar();
  return primvar;
}

Primvar Prim::createPrimvar(const Token& name, Value::Type type, const Token& interpolation) const {
  return type == Value::none ? Primvar()
                             : createPrimvar(name, Token(Value::getTypeName(type)), interpolation);
}

std::vector<Token> Prim::getPrimvarNames() const {
  std::vector<Token> names;
  for (const Token& name : getAttrNames())
    if (startsWith(name.asString(), kPrimvars) && name.asString().size() > kPrimvars.size() &&
        !endsWith(name.asString(), kIndices))
      names.emplace_back(name.asString().substr(kPrimvars.size()));
  return names;
}

bool Prim::getRelationshipTargets(const Token& name, std::vector<Path>& targets) const {
  targets.clear();
  if (!isValid() || !isPropertyName(name)) return false;
  const pxr::TfToken token(name.asString());
  if (!detail::hasProperty(*node_, token, pxr::SdfSpecTypeRelationship)) return false;

  const pxr::SdfPathVector composed =
      detail::composePaths(*node_, token, pxr::SdfFieldKeys->TargetPaths);
  targets.reserve(composed.size());
  for (const pxr::SdfPath& path : composed) targets.emplace_back(path.GetAsString());
  return true;
}

bool Prim::setRelationshipTargets(const Token& name, const std::vector<Path>& targets) const {
  if (!isValid() || !node_->stage->isEditable(*node_) || !isPropertyName(name)) return false;
  const detail::Collector collector(node_->stage->problems);
  pxr::SdfPathVector paths;
  for (const Path& target : targets) {
    // What no reader takes back must not be written: choices of variants, and too many names.
    if (target.asString().find('{') != std::string::npos ||
        detail::whyTextIsUnfit("<" + target.asString() + ">") ||
        !pxr::SdfPath::IsValidPathString(target.asString()))
      return false;
    const pxr::SdfPath path(target.asString());
    if (!path.IsAbsolutePath() || !(path.IsPrimPath() || path.IsPropertyPath())) return false;
    paths.push_back(path);
  }
  const pxr::TfToken token(name.asString());
  if (detail::hasProperty(*node_, token, pxr::SdfSpecTypeAttribute)) return false;
  if (!node_->stage->editSpec(const_cast<detail::PrimNode&>(*node_))) return false;
  const pxr::SdfPath at = node_->sdfPath.AppendProperty(token);
  pxr::SdfRelationshipSpecHandle spec = node_->stage->edit->GetRelationshipAtPath(at);
  if (!spec)
    spec = pxr::SdfRelationshipSpec::New(node_->stage->edit->GetPrimAtPath(node_->sdfPath),
                                         name.asString(), false);
  if (!spec) return false;
  node_->stage->edit->SetField(at, pxr::SdfFieldKeys->TargetPaths,
                               pxr::VtValue(pxr::SdfPathListOp::CreateExplicit(paths)));
  return true;
}

// What applies to all below

bool Prim::isVisible(double time) const {
  if (!isValid()) return false;
  for (Prim at = *this; at.isValid(); at = at.parent()) {
    Token visibility;
    if (at.node_->type->imageable && at.getAttr(tokens().visibility).get(visibility, time) &&
        visibility == tokens().invisible)
      return false;
  }
  return true;
}

Token Prim::purpose() const {
  if (!isValid()) return Token();
  for (Prim at = *this; at.isValid(); at = at.parent()) {
    if (!at.node_->type->imageable) continue;
    const Attribute attribute = at.getAttr(tokens().purpose);
    Token purpose;
    if (attribute.hasAuthoredValue() && attribute.get(purpose)) return purpose;
  }
  return tokens().default_;
}

Token Prim::kind() const {
  if (!isValid()) return Token();
  pxr::TfToken kind;
  for (const detail::Opinion& opinion : node_->opinions)
    if (opinion.layer->HasField(opinion.path, pxr::SdfFieldKeys->Kind, &kind)) break;
  return Token(kind.GetString());
}

std::vector<Token> Prim::getVariantSets() const {
  std::vector<Token> names;
  if (!isValid()) return names;
  std::vector<std::string> composed;
  for (auto opinion = node_->opinions.rbegin(); opinion != node_->opinions.rend(); ++opinion) {
    pxr::SdfStringListOp edits;
    if (opinion->layer->HasField(opinion->path, pxr::SdfFieldKeys->VariantSetNames, &edits))
      edits.ApplyOperations(&composed);
  }
  names.reserve(composed.size());
  for (const std::string& name : composed) names.emplace_back(name);
  return names;
}

std::vector<Token> Prim::getVariants(const Token& set) const {
  std::vector<Token> names;
  if (!isValid() || !pxr::SdfPath::IsValidIdentifier(set.asString())) return names;
  std::set<std::string> sorted;
  for (const detail::Opinion& opinion : node_->opinions) {
    const pxr::SdfPath at = opinion.path.AppendVariantSelection(set.asString(), "");
    pxr::TfTokenVector variants;
    if (opinion.layer->HasField(at, pxr::SdfChildrenKeys->VariantChildren, &variants))
      for (const pxr::TfToken& variant : variants) sorted.insert(variant.GetString());
  }
  for (const std::string& name : sorted) names.emplace_back(name);
  return names;
}

Token Prim::getVariantSelection(const Token& set) const {
  if (!isValid()) return Token();
  // What was chosen stands in the paths through which opinions came; a choice without such a
  // variant in the fields.
  for (const detail::Opinion& opinion : node_->opinions) {
    pxr::SdfVariantSelectionMap chosen;
    if (opinion.layer->HasField(opinion.path, pxr::SdfFieldKeys->VariantSelection, &chosen)) {
      const auto entry = chosen.find(set.asString());
      if (entry != chosen.end()) return Token(entry->second);
    }
  }
  return Token();
}

bool Prim::setActive(bool active) const {
  return isValid() && node_->stage->setActive(const_cast<detail::PrimNode&>(*node_), active);
}

bool Prim::setTypeName(const Token& type) const {
  return isValid() && node_->stage->setTypeName(const_cast<detail::PrimNode&>(*node_), type);
}

bool operator<(const Prim& a, const Prim& b) noexcept {
  if (a.node_ == b.node_ || !b.node_) return false;
  if (!a.node_) return true;
  const std::uint64_t aSerial = a.node_->stage->serial, bSerial = b.node_->stage->serial;
  return aSerial != bSerial ? aSerial < bSerial : a.node_->path < b.node_->path;
}

std::size_t Prim::hash() const noexcept {
  return node_ ? node_->path.hash() ^
                     static_cast<std::size_t>(node_->stage->serial * 0x9E3779B97F4A7C15u)
               : 0;
}

std::ostream& operator<<(std::ostream& out, const Prim& prim) { return out << prim.getPath(); }

}  // namespace ovo
