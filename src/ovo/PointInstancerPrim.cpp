#include "ovo/PointInstancerPrim.h"

#include <unordered_set>
#include <utility>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "ovo/detail/StageData.h"

namespace ovo {

namespace {

const pxr::TfToken& inactiveIdsField() {
  static const auto* const field = new pxr::TfToken("inactiveIds");
  return *field;
}

}  // namespace

PointInstancerPrim::PointInstancerPrim() noexcept = default;
PointInstancerPrim::PointInstancerPrim(const Prim& prim) : XformablePrim(prim) {}

PointInstancerPrim PointInstancerPrim::define(const std::shared_ptr<Stage>& stage,
                                              const Path& path) {
  return stage ? PointInstancerPrim(stage->definePrim(path, tokens().PointInstancer))
               : PointInstancerPrim();
}

bool PointInstancerPrim::isValid() const noexcept {
  return Prim::isValid() && getTypeName() == tokens().PointInstancer;
}

bool PointInstancerPrim::getInactiveIds(Array<std::int64_t>& ids) const {
  ids.clear();
  if (!isValid()) return false;
  std::vector<std::int64_t> composed;
  bool found = false;
  for (auto opinion = node_->opinions.rbegin(); opinion != node_->opinions.rend(); ++opinion) {
    pxr::SdfInt64ListOp edits;
    if (!opinion->layer->HasField(opinion->path, inactiveIdsField(), &edits)) continue;
    found = true;
    edits.ApplyOperations(&composed);
  }
  ids.assign(composed.begin(), composed.end());
  return found;
}

bool PointInstancerPrim::setInactiveIds(const Array<std::int64_t>& ids) const {
  if (!isValid()) return false;
  const detail::Collector collector(node_->stage->problems);
  if (!node_->stage->editSpec(const_cast<detail::PrimNode&>(*node_))) return false;

  // A list names each id once, where it comes first.
  std::vector<std::int64_t> once;
  std::unordered_set<std::int64_t> known;
  for (const std::int64_t id : ids)
    if (known.insert(id).second) once.push_back(id);
  node_->stage->edit->SetField(node_->sdfPath, inactiveIdsField(),
                               pxr::VtValue(pxr::SdfInt64ListOp::CreateExplicit(once)));
  return true;
}

std::vector<bool> PointInstancerPrim::computeMask(double time, Reason reason) const {
  if (!isValid()) return {};
  const Tokens& names = tokens();

  // What is taken away.
  Array<std::int64_t> inactiveIds, invisibleIds;
  getInactiveIds(inactiveIds);
  if (reason == inactiveOrInvisible) getAttr(names.invisibleIds).get(invisibleIds, time);
  std::unordered_set<std::int64_t> taken(inactiveIds.cbegin(), inactiveIds.cend());
  taken.insert(invisibleIds.cbegin(), invisibleIds.cend());
  if (taken.empty()) return {};

  // Whom that meets.
  Array<int> protoIndices;
  Array<std::int64_t> ids;
  getAttr(names.protoIndices).get(protoIndices, time);
  getAttr(names.ids).get(ids, time);
  const std::size_t count = protoIndices.size();
  const bool hasIds = ids.size() == count;
  std::vector<bool> mask(count, true);
  bool any = false;
  for (std::size_t i = 0; i < count; ++i) {
    if (taken.count(hasIds ? ids.view()[i] : static_cast<std::int64_t>(i)) == 0) continue;
    mask[i] = false;
    any = true;
  }
  if (!any) mask.clear();
  return mask;
}

}  // namespace ovo
