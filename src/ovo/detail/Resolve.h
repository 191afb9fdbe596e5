/// \file
/// Which opinion gives an attribute its value.
#pragma once

#include <vector>

#include "ovo/detail/StageData.h"

namespace ovo::detail {

/// Where values at numeric times come from.
struct Source {
  enum Kind { nothing, samples, spline, single } kind = nothing;
  const Opinion* opinion = nullptr;
  pxr::SdfPath path;   ///< of the property, in the opinion's layer
  pxr::VtValue value;  ///< of a single value or a spline
};

/// A value found at a time.
struct Found {
  bool hasValue = false;
  bool blocked = false;  ///< an opinion says that there is none
  const Opinion* opinion = nullptr;
  pxr::VtValue value;
};

/// The source at numeric times; kind single may hold a block.
[[nodiscard]] Source findSource(const PrimNode& node, const pxr::TfToken& name);
[[nodiscard]] Found findAt(const PrimNode& node, const pxr::TfToken& name, double time);
/// The authored default value.
[[nodiscard]] Found findDefault(const PrimNode& node, const pxr::TfToken& name);
/// As ovo/Attribute.h tells: \p authored leaves time samples out at the default time. Without
/// fallbacks.
[[nodiscard]] Found findValue(const PrimNode& node, const pxr::TfToken& name, double time,
                              bool authored);
/// The value found, expressions in file names replaced by what they give.
[[nodiscard]] pxr::VtValue evaluateFileNames(const Found& found);
/// The fallback of the prim's type, or null.
[[nodiscard]] const Fallback* findFallback(const PrimNode& node, const std::string& name);

/// The strongest value of a field of a property, other than its values.
[[nodiscard]] bool findField(const PrimNode& node, const pxr::TfToken& name,
                             const pxr::TfToken& field, pxr::VtValue& value);
[[nodiscard]] bool hasProperty(const PrimNode& node, const pxr::TfToken& name,
                               pxr::SdfSpecType type);
/// The paths in a list field of a property, the targets of a relationship or the connections of an
/// attribute: the edits of all opinions applied, in the stage's namespace. A path outside of what
/// an arc brings in is left out.
[[nodiscard]] pxr::SdfPathVector composePaths(const PrimNode& node, const pxr::TfToken& name,
                                              const pxr::TfToken& field);
[[nodiscard]] pxr::SdfValueTypeName findType(const PrimNode& node, const std::string& name);

/// The attribute's path in the edit layer, its spec made when it is not there; the empty path when
/// it cannot be.
[[nodiscard]] pxr::SdfPath editAttribute(const PrimNode& node, const std::string& name,
                                         const pxr::SdfValueTypeName& type);

}  // namespace ovo::detail
