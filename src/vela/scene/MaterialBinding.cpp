#include "vela/scene/MaterialBinding.h"

#include <unordered_map>

#include "ovo/PropertyLinks.h"
#include "ovo/Token.h"
#include "vela/scene/detail/BindingTable.h"

namespace vela::scene {

MaterialFinder::MaterialFinder(const ovo::Stage& stage, MaterialPurpose purpose)
    : table_(std::make_unique<detail::BindingTable>(stage, purpose)) {}

MaterialFinder::~MaterialFinder() = default;

MaterialBinding MaterialFinder::find(const ovo::Prim& prim) { return table_->find(prim); }

std::vector<Problem> MaterialFinder::problems() const {
  std::vector<Problem> problems;
  for (const std::string& collection : table_->unreadable())
    problems.push_back({Problem::Kind::notBound, Problem::Severity::note, collection,
                        "its expression, or a collection that it names, cannot be read"});
  return problems;
}

std::vector<MaterialSubset> materialSubsets(const ovo::Prim& prim, double time) {
  std::vector<MaterialSubset> subsets;
  std::vector<ovo::Prim> children;
  prim.getChildren(children);
  for (const ovo::Prim& child : children) {
    if (child.getTypeName() != "GeomSubset") continue;
    ovo::Token family, element;
    child.getAttr("familyName").get(family, time);
    child.getAttr("elementType").get(element, time);
    if (family != "materialBind" || element != "face") continue;
    MaterialSubset subset{child, {}};
    child.getAttr("indices").get(subset.faces, time);
    subsets.push_back(std::move(subset));
  }
  return subsets;
}

namespace {

// Numbers the materials of entries, those of equal sources alike.
class Numbering {
 public:
  explicit Numbering(SceneMaterials& out) : out_(out) {}

  std::uint32_t of(const ovo::Prim& material) {
    if (!material.isValid()) return kNoMaterial;
    const auto [place, isNew] = byPath_.try_emplace(material.getPath(), kNoMaterial);
    if (!isNew) return place->second;
    const auto next = static_cast<std::uint32_t>(out_.materials.size());
    const auto [source, isFirst] =
        bySource_.try_emplace(ovo::PropertyLinks(material).sourceKey(), next);
    if (isFirst) out_.materials.push_back(material);
    return place->second = source->second;
  }

 private:
  SceneMaterials& out_;
  std::unordered_map<ovo::Path, std::uint32_t> byPath_;
  std::unordered_map<std::string, std::uint32_t> bySource_;
};

}  // namespace

SceneMaterials findMaterials(const ovo::Stage& stage, const MeshList& list, MaterialPurpose purpose,
                             double time, const Work& work) {
  SceneMaterials out;
  out.entries.resize(list.entries.size());
  MaterialFinder finder(stage, purpose);
  Numbering numbers(out);
  std::unordered_map<ovo::Prim, EntryMaterials> known;
  for (std::size_t i = 0; i < list.entries.size() && !work.isStopped(); ++i) {
    const ovo::Prim& prim = list.entries[i].prim;
    const auto [place, isNew] = known.try_emplace(prim);
    EntryMaterials& own = place->second;
    if (isNew) {
      own.whole = numbers.of(finder.find(prim).material);
      const Shape& shape = list.shapeOf(i);
      const std::vector<MaterialSubset> subsets =
          shape.prim.isValid() ? materialSubsets(prim, time) : std::vector<MaterialSubset>();
      if (!subsets.empty()) {
        const std::size_t count =
            shape.refinement ? shape.refinement->counts.size() : shape.counts.size();
        std::vector<std::uint32_t> faces(count, own.whole);
        for (const MaterialSubset& subset : subsets) {
          const std::uint32_t material = numbers.of(finder.find(subset.prim).material);
          for (const int face : subset.faces)
            if (face >= 0 && static_cast<std::size_t>(face) < count)
              faces[static_cast<std::size_t>(face)] = material;
        }
        own.faces = std::make_shared<const std::vector<std::uint32_t>>(std::move(faces));
      }
    }
    out.entries[i] = own;
  }
  out.problems = finder.problems();
  return out;
}

}  // namespace vela::scene
