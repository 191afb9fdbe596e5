#include "ovo/Primvar.h"

#include <utility>

#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "ovo/detail/Convert.h"
#include "ovo/detail/Resolve.h"

namespace ovo {

namespace {

const char kPrefix[] = "primvars:";
constexpr std::size_t kPrefixSize = sizeof kPrefix - 1;

bool setField(const detail::PrimNode& node, const Token& name, const pxr::TfToken& field,
              const pxr::VtValue& value) {
  const detail::Collector collector(node.stage->problems);
  const pxr::SdfPath path =
      detail::editAttribute(node, name.asString(), detail::findType(node, name.asString()));
  if (path.IsEmpty()) return false;
  node.stage->edit->SetField(path, field, value);
  return true;
}

const pxr::TfToken& interpolationField() {
  static const auto* const field = new pxr::TfToken("interpolation");
  return *field;
}
const pxr::TfToken& elementSizeField() {
  static const auto* const field = new pxr::TfToken("elementSize");
  return *field;
}

// How many values an array of any type has; 1 for a single value.
std::size_t countOf(const pxr::VtValue& value) {
  return value.IsArrayValued() ? value.GetArraySize() : 1;
}

}  // namespace

Primvar::Primvar() noexcept = default;
Primvar::Primvar(const Attribute& attribute) : Attribute(attribute) {}

Token Primvar::primvarName() const {
  const std::string& text = name_.asString();
  return text.compare(0, kPrefixSize, kPrefix) == 0 ? Token(text.substr(kPrefixSize)) : name_;
}

Token Primvar::interpolation() const {
  if (!isValid()) return Token();
  pxr::VtValue value;
  if (detail::findField(*node_, pxr::TfToken(name_.asString()), interpolationField(), value) &&
      value.IsHolding<pxr::TfToken>() && !value.UncheckedGet<pxr::TfToken>().IsEmpty())
    return Token(value.UncheckedGet<pxr::TfToken>().GetString());
  return name_ == tokens().normals ? tokens().vertex : tokens().constant;
}

bool Primvar::setInterpolation(const Token& interpolation) const {
  const Tokens& t = tokens();
  if (interpolation != t.constant && interpolation != t.uniform && interpolation != t.vertex &&
      interpolation != t.varying && interpolation != t.faceVarying)
    return false;
  return isValid() && setField(*node_, name_, interpolationField(),
                               pxr::VtValue(pxr::TfToken(interpolation.asString())));
}

int Primvar::elementSize() const {
  pxr::VtValue value;
  if (isValid() &&
      detail::findField(*node_, pxr::TfToken(name_.asString()), elementSizeField(), value) &&
      value.IsHolding<int>() && value.UncheckedGet<int>() > 0)
    return value.UncheckedGet<int>();
  return 1;
}

bool Primvar::setElementSize(int size) const {
  return size > 0 && isValid() && setField(*node_, name_, elementSizeField(), pxr::VtValue(size));
}

Attribute Primvar::indicesAttr() const {
  return prim().getAttr(Token(name_.asString() + ":indices"));
}

bool Primvar::isIndexed() const {
  if (!isValid()) return false;
  const Attribute attribute = indicesAttr();
  return attribute.isValid() && attribute.hasAuthoredValue();
}

bool Primvar::indices(Array<int>& indices, double time) const {
  return isIndexed() && indicesAttr().get(indices, time);
}

bool Primvar::setIndices(const Array<int>& indices, double time) const {
  if (!isValid()) return false;
  const Attribute attribute =
      prim().createAttr(Token(name_.asString() + ":indices"), Token("int[]"));
  return attribute.set(indices, time);
}

std::size_t Primvar::elementCount(double time) const {
  if (!isValid()) return 0;
  Array<int> list;
  if (indices(list, time)) return list.size();
  const detail::Collector collector(node_->stage->problems);
  const detail::Found found =
      detail::findValue(*node_, pxr::TfToken(name_.asString()), time, false);
  if (!found.hasValue) return 0;
  if (!found.value.IsArrayValued()) return 1;
  return countOf(found.value) / static_cast<std::size_t>(elementSize());
}

template <class T>
bool Primvar::computeFlattened(T& values, double time) const {
  using Element = typename detail::ElementOf<T>::Type;
  T stored;
  if (!get(stored, time)) {
    Element single{};
    if (!get(single, time)) return false;
    stored.assign(1, single);
  }
  Array<int> list;
  if (!indices(list, time)) {
    values = std::move(stored);
    return true;
  }
  const auto size = static_cast<std::size_t>(elementSize());
  const std::size_t count = stored.size() / size;
  // All indices are checked before anything is reserved: a large element size alone would claim
  // memory that no value needs.
  for (const int index : std::as_const(list))
    if (index < 0 || static_cast<std::size_t>(index) >= count) return false;
  T flat;
  flat.reserve(list.size() * size);
  for (const int index : std::as_const(list)) {
    const Element* const first = stored.cdata() + static_cast<std::size_t>(index) * size;
    for (std::size_t i = 0; i < size; ++i) flat.push_back(first[i]);
  }
  values = std::move(flat);
  return true;
}

#define OVO_INSTANTIATE(...) \
  template OVO_API bool Primvar::computeFlattened(Array<__VA_ARGS__>&, double) const;
OVO_INSTANTIATE(bool)
OVO_INSTANTIATE(int)
OVO_INSTANTIATE(std::int64_t)
OVO_INSTANTIATE(float)
OVO_INSTANTIATE(double)
OVO_INSTANTIATE(std::string)
OVO_INSTANTIATE(Token)
OVO_INSTANTIATE(tarn::Vec2i)
OVO_INSTANTIATE(tarn::Vec3i)
OVO_INSTANTIATE(tarn::Vec4i)
OVO_INSTANTIATE(tarn::Vec2f)
OVO_INSTANTIATE(tarn::Vec3f)
OVO_INSTANTIATE(tarn::Vec4f)
OVO_INSTANTIATE(tarn::Vec2d)
OVO_INSTANTIATE(tarn::Vec3d)
OVO_INSTANTIATE(tarn::Vec4d)
OVO_INSTANTIATE(tarn::Mat4d)

}  // namespace ovo
