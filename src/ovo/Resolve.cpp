#include "ovo/detail/Resolve.h"

#include <algorithm>
#include <cmath>

#include "ovo/detail/Convert.h"
#include "tarn/Time.h"

namespace ovo::detail {

Source findSource(const PrimNode& node, const pxr::TfToken& name) {
  Source source;
  bool animationBlocked = false;
  for (const Opinion& opinion : node.opinions) {
    const pxr::SdfPath path = opinion.property(name);
    if (!opinion.layer->HasSpec(path)) continue;
    source.opinion = &opinion;
    source.path = path;
    if (!animationBlocked) {
      if (opinion.layer->GetNumTimeSamplesForPath(path) > 0) {
        source.kind = Source::samples;
        return source;
      }
      if (opinion.layer->HasField(path, pxr::SdfFieldKeys->Spline, &source.value) &&
          source.value.IsHolding<pxr::TsSpline>() &&
          !source.value.UncheckedGet<pxr::TsSpline>().IsEmpty()) {
        source.kind = Source::spline;
        return source;
      }
    }
    if (opinion.layer->HasField(path, pxr::SdfFieldKeys->Default, &source.value)) {
      // This kind of block hides weaker animation and lets weaker single values through.
      if (source.value.IsHolding<pxr::SdfAnimationBlock>()) {
        animationBlocked = true;
        continue;
      }
      source.kind = Source::single;
      return source;
    }
  }
  return Source();
}

namespace {

template <class T>
struct As {
  using Type = T;
};

Found found(const Opinion* opinion, pxr::VtValue value) {
  Found result;
  result.opinion = opinion;
  result.blocked = value.IsHolding<pxr::SdfValueBlock>();
  result.hasValue = !result.blocked && !value.IsEmpty();
  result.value = std::move(value);
  return result;
}

}  // namespace

Found findAt(const PrimNode& node, const pxr::TfToken& name, double time) {
  Source source = findSource(node, name);
  if (source.kind == Source::nothing) return Found();
  if (source.kind == Source::single) return found(source.opinion, std::move(source.value));

  const pxr::SdfLayer& layer = *source.opinion->layer;
  // The earliest time stays what it is: an offset would carry the lowest double to infinity.
  const double local = time == tarn::earliestTimeValue() ? time : source.opinion->layerTime(time);
  if (source.kind == Source::spline) {
    const pxr::TsSpline& spline = source.value.UncheckedGet<pxr::TsSpline>();
    double at = local;
    if (time == tarn::earliestTimeValue() && !spline.GetKnots().empty())
      at = spline.GetKnots().begin()->GetTime();
    double value = 0.0;
    Found result;
    result.opinion = source.opinion;
    result.hasValue = spline.Eval(at, &value);
    if (result.hasValue) result.value = pxr::VtValue(value);
    return result;
  }

  double lower = 0.0, upper = 0.0;
  if (!layer.GetBracketingTimeSamplesForPath(source.path, local, &lower, &upper)) return Found();
  // In the stage's time from here on: the way into the layer's and back rounds, and at the very
  // time of a sample it is that sample which counts.
  const double stageLower = source.opinion->stageTime(lower),
               stageUpper = source.opinion->stageTime(upper);
  if (upper > lower && !(time < stageUpper)) lower = upper;
  pxr::VtValue lowerValue;
  if (!layer.QueryTimeSample(source.path, lower, &lowerValue)) return Found();
  Found result = found(source.opinion, std::move(lowerValue));
  // Samples this near count as one.
  if (!result.hasValue || std::abs(upper - lower) < 1e-6 || !(time > stageLower)) return result;
  pxr::VtValue upperValue, mixed;
  if (layer.QueryTimeSample(source.path, upper, &upperValue) &&
      mixStored(result.value, upperValue, (time - stageLower) / (stageUpper - stageLower), mixed))
    result.value = std::move(mixed);
  return result;
}

bool mixStored(const pxr::VtValue& a, const pxr::VtValue& b, double t, pxr::VtValue& out) {
  const auto tryAll = [&](auto... types) {
    return (mixAs<typename decltype(types)::Type>(a, b, t, out) || ...);
  };
  return tryAll(As<float>(), As<double>(), As<pxr::GfHalf>(), As<pxr::SdfTimeCode>(),
                As<pxr::GfVec3f>(), As<pxr::GfVec3d>(), As<pxr::GfVec3h>(), As<pxr::GfVec2f>(),
                As<pxr::GfVec2d>(), As<pxr::GfVec2h>(), As<pxr::GfVec4f>(), As<pxr::GfVec4d>(),
                As<pxr::GfVec4h>(), As<pxr::GfMatrix4d>(), As<pxr::GfMatrix3d>(),
                As<pxr::GfMatrix2d>(), As<pxr::GfQuatf>(), As<pxr::GfQuatd>(), As<pxr::GfQuath>());
}

Found findDefault(const PrimNode& node, const pxr::TfToken& name) {
  pxr::VtValue value;
  for (const Opinion& opinion : node.opinions)
    if (opinion.layer->HasField(opinion.property(name), pxr::SdfFieldKeys->Default, &value) &&
        !value.IsHolding<pxr::SdfAnimationBlock>())
      return found(&opinion, std::move(value));
  return Found();
}

Found findValue(const PrimNode& node, const pxr::TfToken& name, double time, bool authored) {
  if (!tarn::isDefaultTime(time)) return findAt(node, name, time);
  Found result = findDefault(node, name);
  if (result.hasValue || authored) return result;
  return findAt(node, name, tarn::earliestTimeValue());
}

pxr::VtValue evaluateFileNames(const Found& found) {
  const auto evaluate = [&found](const pxr::SdfAssetPath& path) {
    const std::string& text = path.GetAssetPath();
    if (!pxr::SdfVariableExpression::IsExpression(text)) return path;
    static const pxr::VtDictionary none;
    const pxr::PcpNodeRef& node = found.opinion->node;
    const pxr::VtDictionary& variables =
        node ? node.GetLayerStack()->GetExpressionVariables().GetVariables() : none;
    const pxr::SdfVariableExpression::Result result =
        pxr::SdfVariableExpression(text).EvaluateTyped<std::string>(variables);
    return result.value.IsHolding<std::string>()
               ? pxr::SdfAssetPath(result.value.UncheckedGet<std::string>())
               : path;
  };
  if (found.value.IsHolding<pxr::SdfAssetPath>())
    return pxr::VtValue(evaluate(found.value.UncheckedGet<pxr::SdfAssetPath>()));
  if (!found.value.IsHolding<pxr::VtArray<pxr::SdfAssetPath>>()) return found.value;
  pxr::VtArray<pxr::SdfAssetPath> paths =
      found.value.UncheckedGet<pxr::VtArray<pxr::SdfAssetPath>>();
  for (pxr::SdfAssetPath& path : paths) path = evaluate(path);
  return pxr::VtValue::Take(paths);
}

const Fallback* findFallback(const PrimNode& node, const std::string& name) {
  const auto entry = node.type->fallbacks.find(name);
  return entry == node.type->fallbacks.end() ? nullptr : &entry->second;
}

bool findField(const PrimNode& node, const pxr::TfToken& name, const pxr::TfToken& field,
               pxr::VtValue& value) {
  for (const Opinion& opinion : node.opinions)
    if (opinion.layer->HasField(opinion.property(name), field, &value)) return true;
  return false;
}

bool hasProperty(const PrimNode& node, const pxr::TfToken& name, pxr::SdfSpecType type) {
  return std::any_of(node.opinions.begin(), node.opinions.end(),
                     [&name, type](const Opinion& opinion) {
                       return opinion.layer->GetSpecType(opinion.property(name)) == type;
                     });
}

pxr::SdfPathVector composePaths(const PrimNode& node, const pxr::TfToken& name,
                                const pxr::TfToken& field) {
  // Edits of the list apply from weak to strong, each in the names of the stage.
  pxr::SdfPathVector composed;
  for (auto opinion = node.opinions.rbegin(); opinion != node.opinions.rend(); ++opinion) {
    pxr::SdfPathListOp edits;
    if (!opinion->layer->HasField(opinion->property(name), field, &edits)) continue;
    edits.ApplyOperations(
        &composed,
        [&](pxr::SdfListOpType, const pxr::SdfPath& path) -> std::optional<pxr::SdfPath> {
          const pxr::SdfPath absolute = path.MakeAbsolutePath(opinion->path);
          if (!opinion->node) return absolute;
          const pxr::SdfPath mapped =
              opinion->node.GetMapToRoot().MapSourceToTarget(absolute.StripAllVariantSelections());
          // A target outside of what the arc brings in means nothing here.
          if (mapped.IsEmpty()) return std::nullopt;
          return mapped;
        });
  }
  return composed;
}

pxr::SdfValueTypeName findType(const PrimNode& node, const std::string& name) {
  const pxr::TfToken token(name);
  for (const Opinion& opinion : node.opinions) {
    pxr::TfToken type;
    if (!opinion.layer->HasField(opinion.property(token), pxr::SdfFieldKeys->TypeName, &type) ||
        type.IsEmpty())
      continue;
    const pxr::SdfSchema& schema = pxr::SdfSchema::GetInstance();
    const pxr::SdfValueTypeName found = schema.FindOrCreateType(type);
    // Names from before the current ones, such as Vec3f and PointIndex, begin with a capital. Some
    // have a role of their own, which no current name has.
    const auto isOld = [](const pxr::SdfValueTypeName& candidate) {
      const char first = candidate.GetAsToken().GetText()[0];
      return first >= 'A' && first <= 'Z';
    };
    if (!isOld(found)) return found;
    for (const pxr::SdfValueTypeName& current :
         {schema.FindType(found.GetType(), found.GetRole()), schema.FindType(found.GetType())})
      if (current && !isOld(current)) return current;
    return found;
  }
  if (const Fallback* const fallback = findFallback(node, name)) return fallback->type;
  return pxr::SdfValueTypeName();
}

pxr::SdfPath editAttribute(const PrimNode& constNode, const std::string& name,
                           const pxr::SdfValueTypeName& type) {
  StageData& stage = *constNode.stage;
  PrimNode& node = const_cast<PrimNode&>(constNode);
  if (!type || !pxr::SdfPath::IsValidNamespacedIdentifier(name)) return pxr::SdfPath();
  if (!stage.editSpec(node)) return pxr::SdfPath();
  pxr::SdfPath path = node.sdfPath.AppendProperty(pxr::TfToken(name));
  const pxr::SdfSpecType there = stage.edit->GetSpecType(path);
  if (there == pxr::SdfSpecTypeAttribute) return path;
  if (there != pxr::SdfSpecTypeUnknown) return pxr::SdfPath();

  // Those that the standard types declare as not varying over time.
  static const char* const uniform[] = {"doubleSided",
                                        "elementType",
                                        "familyName",
                                        "faceVaryingLinearInterpolation",
                                        "interpolateBoundary",
                                        "orientation",
                                        "purpose",
                                        "stereoRole",
                                        "subdivisionScheme",
                                        "triangleSubdivisionRule",
                                        "xformOpOrder"};
  const bool isUniform = std::any_of(std::begin(uniform), std::end(uniform),
                                     [&name](const char* word) { return name == word; });
  if (!pxr::SdfJustCreatePrimAttributeInLayer(
          stage.edit, path, type,
          isUniform ? pxr::SdfVariabilityUniform : pxr::SdfVariabilityVarying, false))
    return pxr::SdfPath();
  return path;
}

}  // namespace ovo::detail
