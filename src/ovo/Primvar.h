/// \file
/// Attributes that vary over a surface: one value for all of it, for each face, point or corner of
/// a face.
///
/// Threads: as Attribute.
#pragma once

#include <cstddef>

#include "ovo/Attribute.h"

namespace ovo {

/// An attribute with an interpolation and, possibly, a list of indices into its values.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::MeshPrim mesh = ovo::MeshPrim::define(stage, "/Mesh");
///   const ovo::Primvar st = mesh.createPrimvar("st", "texCoord2f[]", "faceVarying");
///   st.set(ovo::Array<tarn::Vec2f>{{0, 0}, {1, 0}, {1, 1}});
///   st.setIndices({2, 0});
///   ovo::Array<tarn::Vec2f> values;
///   assert(st.computeFlattened(values) && values.size() == 2);
///   assert(values.view()[0] == tarn::Vec2f(1, 1));
/// \endcode
class OVO_API Primvar : public Attribute {
 public:
  /// A primvar of nothing: not valid.
  Primvar() noexcept;
  /// Looks at any attribute as a primvar.
  explicit Primvar(const Attribute& attribute);

  /// The name without the prefix `primvars:`.
  [[nodiscard]] Token primvarName() const;

  /// `constant`, `uniform` (a value a face), `vertex` or `varying` (a point), `faceVarying` (a
  /// face-vertex). Where the scene does not say: `vertex` for the attribute `normals` (the one
  /// without prefix), `constant` for all others.
  [[nodiscard]] Token interpolation() const;
  /// Writes the word.
  /// \return false when it is none of the five, or where the attribute is not valid or cannot be
  ///     edited
  bool setInterpolation(const Token& interpolation) const;

  /// How many consecutive values make one element, at least 1.
  [[nodiscard]] int elementSize() const;
  /// Writes the size.
  /// \return false when it is below 1, or where the attribute is not valid or cannot be edited
  bool setElementSize(int size) const;

  /// How many elements there are at a time: indices when it is indexed, else values divided by
  /// elementSize(). A single value that is no array counts as 1; without a value it is 0.
  [[nodiscard]] std::size_t elementCount(double time = tarn::defaultTimeValue()) const;

  /// True when there is a list of indices that is not blocked.
  [[nodiscard]] bool isIndexed() const;
  /// The list of indices; false, \p indices untouched, when it is not indexed.
  bool indices(Array<int>& indices, double time = tarn::defaultTimeValue()) const;
  /// Writes the list, declaring it first where there is none.
  /// \return false as Attribute::set
  bool setIndices(const Array<int>& indices, double time = tarn::defaultTimeValue()) const;

  /// The values with indices applied: element i is the values' element indices[i], elementSize()
  /// values at a time. Without indices the values themselves. T is an Array of Attribute's list; a
  /// value that is no array gives an Array of one.
  /// \return false, with \p values untouched, when there is no value, it does not read as T or an
  ///         index is out of range
  template <class T>
  bool computeFlattened(T& values, double time = tarn::defaultTimeValue()) const;

 private:
  friend class Prim;
  [[nodiscard]] Attribute indicesAttr() const;
};

}  // namespace ovo
