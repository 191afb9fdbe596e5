#include "ovo/LayerUses.h"

#include <map>
#include <tuple>

#include "ovo/SceneTrial.h"
#include "ovo/detail/StageData.h"

namespace ovo {

namespace {

const char* wordOf(pxr::PcpArcType arc) {
  switch (arc) {
    case pxr::PcpArcTypeReference: return "reference";
    case pxr::PcpArcTypePayload: return "payload";
    case pxr::PcpArcTypeInherit: return "inherit";
    case pxr::PcpArcTypeSpecialize: return "specialize";
    case pxr::PcpArcTypeVariant: return "variant";
    default: return "root";
  }
}

pxr::SdfLayer* topOf(const pxr::PcpNodeRef& node) {
  return get_pointer(node.GetLayerStack()->GetIdentifier().rootLayer);
}

}  // namespace

std::vector<LayerUse> layerUses(const Stage& stage) {
  std::vector<LayerUse> uses;
  std::map<std::tuple<const pxr::SdfLayer*, const pxr::SdfLayer*, int>, std::size_t> known;
  const detail::StageData& data = detail::StageData::of(stage);
  std::vector<const detail::PrimNode*> waiting{data.rootNode};
  while (!waiting.empty()) {
    const detail::PrimNode& prim = *waiting.back();
    waiting.pop_back();
    waiting.insert(waiting.end(), prim.children.rbegin(), prim.children.rend());
    for (const detail::Opinion& opinion : prim.opinions) {
      if (!opinion.node || opinion.layer->IsAnonymous()) continue;
      // Arcs within one stack of layers bring no file in: what counts is the one that led there.
      pxr::PcpNodeRef node = opinion.node;
      while (node.GetParentNode() &&
             node.GetParentNode().GetLayerStack() == opinion.node.GetLayerStack())
        node = node.GetParentNode();
      const pxr::SdfLayer* const top = topOf(node);
      const bool isSublayer = opinion.layer != top;
      const pxr::SdfLayer* const from = isSublayer             ? top
                                        : node.GetParentNode() ? topOf(node.GetParentNode())
                                                               : nullptr;
      const int arc = isSublayer ? -1 : static_cast<int>(node.GetArcType());
      const auto [place, isNew] =
          known.emplace(std::make_tuple(opinion.layer, from, arc), uses.size());
      if (isNew)
        uses.push_back({opinion.layer->GetResolvedPath().GetPathString(),
                        isSublayer ? "sublayer" : wordOf(node.GetArcType()),
                        from ? from->GetResolvedPath().GetPathString() : std::string(), 0});
      ++uses[place->second].prims;
    }
  }
  return uses;
}

void readEveryValue(const Stage& stage) {
  const detail::StageData& data = detail::StageData::of(stage);
  const detail::Collector collector(data.problems);
  // What lies in a file unpacked is mapped from there: a hash looks at all of it.
  const auto touch = [](const pxr::VtValue& value) {
    if (value.CanHash()) static_cast<void>(value.GetHash());
  };
  for (const pxr::SdfLayerHandle& layer : data.usedLayers()) {
    layer->Traverse(pxr::SdfPath::AbsoluteRootPath(), [&](const pxr::SdfPath& path) {
      for (const pxr::TfToken& field : layer->ListFields(path)) {
        if (field == pxr::SdfFieldKeys->TimeSamples) continue;
        touch(layer->GetField(path, field));
      }
      for (const double time : layer->ListTimeSamplesForPath(path)) {
        pxr::VtValue value;
        if (layer->QueryTimeSample(path, time, &value)) touch(value);
      }
    });
  }
}

std::vector<MissingLayer> missingLayers(const Stage& stage) {
  const detail::MissingLayers& missing = detail::StageData::of(stage).missingLayers();
  return {missing.begin(), missing.end()};
}

}  // namespace ovo
