#include "ovo/Attribute.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/detail/Convert.h"
#include "ovo/detail/Resolve.h"

namespace ovo {

using detail::Found;

Attribute::Attribute() noexcept = default;
Attribute::Attribute(const Attribute&) = default;
Attribute::Attribute(Attribute&&) noexcept = default;
Attribute& Attribute::operator=(const Attribute&) = default;
Attribute& Attribute::operator=(Attribute&&) noexcept = default;
Attribute::~Attribute() = default;
Attribute::Attribute(std::shared_ptr<Stage> stage, const detail::PrimNode* node, Token name)
    : stage_(std::move(stage)), node_(node), name_(std::move(name)) {}

bool Attribute::isValid() const {
  if (!node_ || !node_->alive || name_.isEmpty()) return false;
  return detail::hasProperty(*node_, pxr::TfToken(name_.asString()), pxr::SdfSpecTypeAttribute) ||
         detail::findFallback(*node_, name_.asString());
}

Prim Attribute::prim() const { return Prim(stage_, node_); }

Token Attribute::typeName() const {
  if (!isValid()) return Token();
  return Token(detail::findType(*node_, name_.asString()).GetAsToken().GetString());
}

bool Attribute::isArray() const {
  return isValid() && detail::findType(*node_, name_.asString()).IsArray();
}

Value::Type Attribute::valueType() const {
  if (!isValid()) return Value::none;
  // A scene may name types that nobody knows. They have a name and nothing else; not even a type of
  // their elements that could be asked.
  const pxr::SdfValueTypeName whole = detail::findType(*node_, name_.asString());
  if (!whole || whole.GetType().IsUnknown()) return Value::none;
  const pxr::SdfValueTypeName type = whole.GetScalarType();
  const std::string name = type.GetAsToken().GetString();
  if (name == "color3f") return Value::color3f;
  if (name == "color4f") return Value::color4f;
  const pxr::VtValue& example = type.GetDefaultValue();
  if (example.IsHolding<int>()) return Value::int_;
  if (example.IsHolding<pxr::GfVec2i>()) return Value::int2;
  if (example.IsHolding<pxr::GfVec3i>()) return Value::int3;
  if (example.IsHolding<pxr::GfVec4i>()) return Value::int4;
  if (example.IsHolding<float>()) return Value::float_;
  if (example.IsHolding<pxr::GfVec2f>()) return Value::float2;
  if (example.IsHolding<pxr::GfVec3f>()) return Value::float3;
  if (example.IsHolding<pxr::GfVec4f>()) return Value::float4;
  return Value::none;
}

bool Attribute::hasAuthoredValue() const {
  if (!isValid()) return false;
  const detail::Collector collector(node_->stage->problems);
  const detail::Source source = detail::findSource(*node_, pxr::TfToken(name_.asString()));
  return source.kind != detail::Source::nothing &&
         !(source.kind == detail::Source::single && source.value.IsHolding<pxr::SdfValueBlock>());
}

bool Attribute::hasTimeSamples() const {
  if (!isValid()) return false;
  return detail::findSource(*node_, pxr::TfToken(name_.asString())).kind == detail::Source::samples;
}

bool Attribute::mightBeTimeVarying() const {
  if (!isValid()) return false;
  const detail::Source source = detail::findSource(*node_, pxr::TfToken(name_.asString()));
  if (source.kind == detail::Source::spline) return true;
  return source.kind == detail::Source::samples &&
         source.opinion->layer->GetNumTimeSamplesForPath(source.path) > 1;
}

std::vector<double> Attribute::timeSamples() const {
  std::vector<double> times;
  if (!isValid()) return times;
  const detail::Source source = detail::findSource(*node_, pxr::TfToken(name_.asString()));
  if (source.kind != detail::Source::samples) return times;
  for (const double time : source.opinion->layer->ListTimeSamplesForPath(source.path))
    times.push_back(source.opinion->stageTime(time));
  return times;
}

namespace {

template <class T>
bool readAt(const detail::PrimNode* node, const Token& name, T& value, double time, bool authored) {
  if (!node || !node->alive || name.isEmpty()) return false;
  const detail::Collector collector(node->stage->problems);
  const Found found = detail::findValue(*node, pxr::TfToken(name.asString()), time, authored);
  if (!found.hasValue) {
    // A block among the samples says that there is no value, so nothing stands in for it.
    if (found.blocked && !tarn::isDefaultTime(time) &&
        detail::findSource(*node, pxr::TfToken(name.asString())).kind == detail::Source::samples)
      return false;
    const detail::Fallback* const fallback = detail::findFallback(*node, name.asString());
    return fallback && detail::readValue(fallback->value, value, pxr::SdfLayerOffset());
  }
  if constexpr (std::is_same_v<typename detail::ElementOf<T>::Type, std::string> ||
                std::is_same_v<typename detail::ElementOf<T>::Type, Token>) {
    return detail::readValue(detail::evaluateFileNames(found), value,
                             found.opinion->stageFromLayer);
  }
  return detail::readValue(found.value, value, found.opinion->stageFromLayer);
}

}  // namespace

template <class T>
bool Attribute::get(T& value, double time) const {
  return readAt(node_, name_, value, time, false);
}

template <class T>
bool Attribute::getAuthored(T& value, double time) const {
  return readAt(node_, name_, value, time, true);
}

template <class T>
bool Attribute::set(const T& value, double time) const {
  if (!isValid() || std::isinf(time)) return false;
  const detail::Collector collector(node_->stage->problems);
  const pxr::SdfValueTypeName type = detail::findType(*node_, name_.asString());
  pxr::VtValue stored;
  if (!detail::writeValue(value, type, stored)) return false;
  const pxr::SdfPath path = detail::editAttribute(*node_, name_.asString(), type);
  if (path.IsEmpty()) return false;
  if (tarn::isDefaultTime(time))
    node_->stage->edit->SetField(path, pxr::SdfFieldKeys->Default, stored);
  else
    node_->stage->edit->SetTimeSample(path, time, stored);
  return true;
}

bool Attribute::block(double time) const {
  if (!isValid() || std::isinf(time)) return false;
  const detail::Collector collector(node_->stage->problems);
  const pxr::SdfPath path =
      detail::editAttribute(*node_, name_.asString(), detail::findType(*node_, name_.asString()));
  if (path.IsEmpty()) return false;
  const pxr::VtValue blocked{pxr::SdfValueBlock()};
  if (tarn::isDefaultTime(time)) {
    // Samples of this layer would win over its default.
    node_->stage->edit->EraseField(path, pxr::SdfFieldKeys->TimeSamples);
    node_->stage->edit->SetField(path, pxr::SdfFieldKeys->Default, blocked);
  } else {
    node_->stage->edit->SetTimeSample(path, time, blocked);
  }
  return true;
}

bool Attribute::clear() const {
  if (!isValid() || !node_->stage->isEditable(*node_)) return false;
  const detail::Collector collector(node_->stage->problems);
  const pxr::SdfPath path = node_->sdfPath.AppendProperty(pxr::TfToken(name_.asString()));
  if (!node_->stage->edit->HasSpec(path)) return true;
  node_->stage->edit->EraseField(path, pxr::SdfFieldKeys->TimeSamples);
  node_->stage->edit->EraseField(path, pxr::SdfFieldKeys->Default);
  return true;
}

#define OVO_INSTANTIATE(...)                                                \
  template OVO_API bool Attribute::get(__VA_ARGS__&, double) const;         \
  template OVO_API bool Attribute::getAuthored(__VA_ARGS__&, double) const; \
  template OVO_API bool Attribute::set(const __VA_ARGS__&, double) const;
#define OVO_INSTANTIATE_BOTH(...) \
  OVO_INSTANTIATE(__VA_ARGS__)    \
  OVO_INSTANTIATE(Array<__VA_ARGS__>)
OVO_INSTANTIATE_BOTH(bool)
OVO_INSTANTIATE_BOTH(int)
OVO_INSTANTIATE_BOTH(std::int64_t)
OVO_INSTANTIATE_BOTH(float)
OVO_INSTANTIATE_BOTH(double)
OVO_INSTANTIATE_BOTH(std::string)
OVO_INSTANTIATE_BOTH(Token)
OVO_INSTANTIATE_BOTH(tarn::Vec2i)
OVO_INSTANTIATE_BOTH(tarn::Vec3i)
OVO_INSTANTIATE_BOTH(tarn::Vec4i)
OVO_INSTANTIATE_BOTH(tarn::Vec2f)
OVO_INSTANTIATE_BOTH(tarn::Vec3f)
OVO_INSTANTIATE_BOTH(tarn::Vec4f)
OVO_INSTANTIATE_BOTH(tarn::Vec2d)
OVO_INSTANTIATE_BOTH(tarn::Vec3d)
OVO_INSTANTIATE_BOTH(tarn::Vec4d)
OVO_INSTANTIATE_BOTH(tarn::Mat4d)

}  // namespace ovo
