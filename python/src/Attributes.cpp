// Values of prims: attributes and primvars, read and written by their declared type.
#include <string>
#include <string_view>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "ovo/Attribute.h"
#include "ovo/Prim.h"
#include "ovo/Primvar.h"
#include "ovo/Value.h"

namespace vela::python {

namespace {

// What a declared type reads as.
enum class Kind {
  boolean,
  integer,
  integer64,
  single,
  real,
  text,
  int2,
  int3,
  int4,
  float2,
  float3,
  float4,
  double2,
  double3,
  double4,
  matrix,
  none,
};

// By the words of scene files without `[]`. Roles do not matter.
Kind kindOf(std::string_view word) {
  struct Row {
    std::string_view word;
    Kind kind;
  };
  static constexpr Row kRows[] = {
      {"bool", Kind::boolean},       {"uchar", Kind::integer64},   {"int", Kind::integer},
      {"uint", Kind::integer64},     {"int64", Kind::integer64},   {"uint64", Kind::integer64},
      {"half", Kind::single},        {"float", Kind::single},      {"double", Kind::real},
      {"timecode", Kind::real},      {"string", Kind::text},       {"token", Kind::text},
      {"asset", Kind::text},         {"int2", Kind::int2},         {"int3", Kind::int3},
      {"int4", Kind::int4},          {"half2", Kind::float2},      {"float2", Kind::float2},
      {"texCoord2h", Kind::float2},  {"texCoord2f", Kind::float2}, {"double2", Kind::double2},
      {"texCoord2d", Kind::double2}, {"half3", Kind::float3},      {"float3", Kind::float3},
      {"point3h", Kind::float3},     {"point3f", Kind::float3},    {"normal3h", Kind::float3},
      {"normal3f", Kind::float3},    {"vector3h", Kind::float3},   {"vector3f", Kind::float3},
      {"color3h", Kind::float3},     {"color3f", Kind::float3},    {"texCoord3h", Kind::float3},
      {"texCoord3f", Kind::float3},  {"double3", Kind::double3},   {"point3d", Kind::double3},
      {"normal3d", Kind::double3},   {"vector3d", Kind::double3},  {"color3d", Kind::double3},
      {"texCoord3d", Kind::double3}, {"half4", Kind::float4},      {"float4", Kind::float4},
      {"color4h", Kind::float4},     {"color4f", Kind::float4},    {"quath", Kind::float4},
      {"quatf", Kind::float4},       {"double4", Kind::double4},   {"color4d", Kind::double4},
      {"quatd", Kind::double4},      {"matrix4d", Kind::matrix},   {"frame4d", Kind::matrix},
  };
  for (const Row& row : kRows)
    if (row.word == word) return row.kind;
  return Kind::none;
}

// Calls `read` with an empty value of the type that the attribute declares. \return false where it
// has no type that can be read
template <class Visit>
bool visitType(const ovo::Attribute& attribute, Visit&& visit) {
  std::string word = attribute.typeName().asString();
  const bool isArray = word.size() > 2 && word.compare(word.size() - 2, 2, "[]") == 0;
  if (isArray) word.resize(word.size() - 2);
  const auto go = [&](auto single) {
    using T = decltype(single);
    if (isArray)
      visit(ovo::Array<T>());
    else
      visit(T());
    return true;
  };
  switch (kindOf(word)) {
    case Kind::boolean: return go(bool());
    case Kind::integer: return go(int());
    case Kind::integer64: return go(std::int64_t());
    case Kind::single: return go(float());
    case Kind::real: return go(double());
    case Kind::text: return go(std::string());
    case Kind::int2: return go(tarn::Vec2<int>());
    case Kind::int3: return go(tarn::Vec3<int>());
    case Kind::int4: return go(tarn::Vec4<int>());
    case Kind::float2: return go(tarn::Vec2<float>());
    case Kind::float3: return go(tarn::Vec3<float>());
    case Kind::float4: return go(tarn::Vec4<float>());
    case Kind::double2: return go(tarn::Vec2<double>());
    case Kind::double3: return go(tarn::Vec3<double>());
    case Kind::double4: return go(tarn::Vec4<double>());
    case Kind::matrix: return go(tarn::Mat4d());
    case Kind::none: break;
  }
  return false;
}

nb::object valueOut(const std::string& text) { return textOut(text); }
template <class T>
nb::object valueOut(const T& value) {
  return nb::cast(value);
}
template <class T>
nb::object valueOut(const ovo::Array<T>& values) {
  if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, tarn::Mat4d>) {
    nb::list out;
    for (const T& value : values) out.append(valueOut(value));
    return out;
  } else {
    return shareOut(values).array;
  }
}

// Reads a Python value as T. \return false when it is none
template <class T>
bool valueIn(nb::handle source, const char* name, T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    (void)name;
    return readText(source, value);
  } else {
    (void)name;
    return nb::try_cast<T>(source, value);
  }
}
template <class T>
bool valueIn(nb::handle source, const char* name, ovo::Array<T>& values) {
  if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, tarn::Mat4d>) {
    if (PyUnicode_Check(source.ptr())) return false;
    for (const nb::handle item : nb::iter(source)) {
      T value;
      if (!valueIn(item, name, value)) return false;
      values.push_back(value);
    }
    return true;
  } else {
    values = In<T>{nb::borrow(source)}.read(name).array();
    return true;
  }
}

nb::object read(const ovo::Attribute& attribute, double time, nb::object otherwise, bool authored) {
  requireOpen(attribute);
  nb::object out = std::move(otherwise);
  visitType(attribute, [&](auto value) {
    if (authored ? attribute.getAuthored(value, time) : attribute.get(value, time))
      out = valueOut(value);
  });
  return out;
}

void write(const ovo::Attribute& attribute, nb::handle source, double time) {
  requireIdle(attribute);
  if (!attribute.isValid()) refuse("the attribute is not valid");
  const std::string name = attribute.name().asString();
  const std::string type = attribute.typeName().asString();
  bool isFit = false, isSet = false;
  const bool isKnown = visitType(attribute, [&](auto value) {
    isFit = valueIn(source, name.c_str(), value);
    isSet = isFit && attribute.set(value, time);
  });
  if (!isKnown) refuse(name + ": values of the type " + type + " cannot be written");
  if (!isFit)
    throw nb::type_error(
        (name + ": expected " + type + ", found " + Py_TYPE(source.ptr())->tp_name).c_str());
  if (!isSet) refuse(name + ": the scene does not take the value (it lies inside an instance)");
}

}  // namespace

void bindAttributes(nb::module_& m) {
  nb::enum_<ovo::Value::Type>(m, "ValueType", nb::is_arithmetic(),
                              "The codes of types of single values.\n\n"
                              ">>> vela.ovo.ValueType.FLOAT3.value\n41")
      .value("INT", ovo::Value::int_)
      .value("FLOAT", ovo::Value::float_)
      .value("INT2", ovo::Value::int2)
      .value("FLOAT2", ovo::Value::float2)
      .value("INT3", ovo::Value::int3)
      .value("FLOAT3", ovo::Value::float3)
      .value("INT4", ovo::Value::int4)
      .value("FLOAT4", ovo::Value::float4)
      .value("COLOR3F", ovo::Value::color3f)
      .value("COLOR4F", ovo::Value::color4f)
      .value("NONE", ovo::Value::none);
  m.def(
      "value_type_name", [](int code) { return ovo::Value::getTypeName(code); }, nb::arg("code"),
      "The word for a code, `int`, `int2` ... ; empty for any other number.\n\n"
      ">>> vela.ovo.value_type_name(41)\n'float3'");
  m.def(
      "num_data_elements", [](int code) { return ovo::Value::getNumDataElements(code); },
      nb::arg("code"),
      "How many numbers a value of a code holds, 1 to 4; 0 for any other number.\n\n"
      ">>> vela.ovo.num_data_elements(77)\n4");

  nb::class_<ovo::Attribute> attribute(
      m, "Attribute",
      "A named value of a prim, at the default time or over time.\n\n"
      "Values are numbers, texts, arrays of shape (n,) or (n, components), small vectors (n,), "
      "matrices (4, 4), and lists of texts or matrices, by the declared type. Arrays are "
      "read-only: "
      "`set` writes. Equal: same stage, prim and name.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> radius = stage.define_prim('/Ball', 'Sphere').attr('radius')\n"
      ">>> radius.get()\n1.0\n>>> radius.set(2.0, 10); radius.set(4.0, 20)\n"
      ">>> radius.get(15), radius.time_samples()\n(3.0, [10.0, 20.0])");
  attribute
      .def("__bool__",
           [](const ovo::Attribute& a) {
             requireOpen(a);
             return a.isValid();
           })
      .def_prop_ro(
          "is_valid",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.isValid();
          },
          "True when the scene has an opinion about it, or the prim's type a fallback.")
      .def_prop_ro("name", &ovo::Attribute::name, "With all prefixes, such as `primvars:st`.")
      .def_prop_ro(
          "prim",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.prim();
          },
          "The prim that it belongs to.")
      .def_prop_ro(
          "type_name",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.typeName();
          },
          "The declared type, such as `point3f[]`; empty when not valid.")
      .def_prop_ro(
          "value_type",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.valueType();
          },
          "The code of a single value, or of an element.")
      .def_prop_ro(
          "is_array",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.isArray();
          },
          "True when it holds an array.")
      .def(
          "get",
          [](const ovo::Attribute& a, Time time, nb::object otherwise) {
            return read(a, time, std::move(otherwise), false);
          },
          nb::arg("time") = Time(), nb::arg("default") = nb::none(),
          nb::sig(
              "def get(self, time: float | None = None, default: typing.Any = None) -> typing.Any"),
          "The value at a time in time codes; without one the default value, else the first time "
          "sample, else the fallback of the prim's type. `default` where there is none.")
      .def_prop_ro(
          "has_authored_value",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.hasAuthoredValue();
          },
          "True when the scene itself has a value: no fallback of the type, and no block.")
      .def(
          "get_authored",
          [](const ovo::Attribute& a, Time time, nb::object otherwise) {
            return read(a, time, std::move(otherwise), true);
          },
          nb::arg("time") = Time(), nb::arg("default") = nb::none(),
          nb::sig("def get_authored(self, time: float | None = None, default: typing.Any = None) "
                  "-> typing.Any"),
          "As `get`, but time samples play no part without a time.")
      .def(
          "set",
          [](const ovo::Attribute& a, nb::handle value, Time time) { write(a, value, time); },
          nb::arg("value"), nb::arg("time") = Time(),
          nb::sig("def set(self, value: typing.Any, time: float | None = None) -> None"),
          "Writes the value, in memory, as a time sample where a time is given. TypeError or "
          "ValueError for what the declared type does not take; arrays are copied once.")
      .def(
          "block",
          [](const ovo::Attribute& a, Time time) {
            requireIdle(a);
            if (!a.block(time)) refuse("the attribute cannot be blocked");
          },
          nb::arg("time") = Time(), "Hides all weaker values.")
      .def(
          "clear",
          [](const ovo::Attribute& a) {
            requireIdle(a);
            if (!a.clear()) refuse("the attribute cannot be cleared");
          },
          "Removes what this stage's own edits gave.")
      .def_prop_ro(
          "has_time_samples",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.hasTimeSamples();
          },
          "True when reads at a time are answered from samples.")
      .def_prop_ro(
          "might_be_time_varying",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.mightBeTimeVarying();
          },
          "True with more than one sample.")
      .def(
          "time_samples",
          [](const ovo::Attribute& a) {
            requireOpen(a);
            return a.timeSamples();
          },
          "The times of the samples, ascending.")
      .def(
          "__eq__", [](const ovo::Attribute& a, const ovo::Attribute& b) { return a == b; },
          nb::is_operator())
      .def("__hash__",
           [](const ovo::Attribute& a) {
             return static_cast<Py_hash_t>((a.name().hash() ^ a.prim().hash()) >> 1);
           })
      .def("__repr__", [](const ovo::Attribute& a) {
        return textOut("<Attribute " + a.prim().getPath().asString() + "." + a.name().asString() +
                       ">");
      });
  refusePickle(attribute, "it is a handle into a scene; pickle its value");

  nb::class_<ovo::Primvar, ovo::Attribute> primvar(
      m, "Primvar",
      "An attribute that varies over a surface: with an interpolation and possibly indices.\n\n"
      ">>> stage = vela.Stage.create_in_memory()\n"
      ">>> mesh = vela.ovo.MeshPrim.define(stage, '/Mesh')\n"
      ">>> st = mesh.create_primvar('st', 'texCoord2f[]', 'faceVarying')\n"
      ">>> st.set([[0, 0], [1, 0], [1, 1]]); st.set_indices([2, 0])\n"
      ">>> st.compute_flattened().tolist()\n[[1.0, 1.0], [0.0, 0.0]]");
  primvar.def(nb::init<const ovo::Attribute&>(), nb::arg("attribute"))
      .def_prop_ro(
          "primvar_name",
          [](const ovo::Primvar& p) {
            requireOpen(p);
            return p.primvarName();
          },
          "The name without the prefix `primvars:`.")
      .def_prop_rw(
          "interpolation",
          [](const ovo::Primvar& p) {
            requireOpen(p);
            return p.interpolation();
          },
          [](const ovo::Primvar& p, const ovo::Token& word) {
            requireIdle(p);
            if (!p.setInterpolation(word)) refuse("the interpolation cannot be set");
          },
          "`constant`, `uniform` (a value a face), `vertex` or `varying` (a point), `faceVarying` "
          "(a "
          "face-vertex).")
      .def_prop_rw(
          "element_size",
          [](const ovo::Primvar& p) {
            requireOpen(p);
            return p.elementSize();
          },
          [](const ovo::Primvar& p, int size) {
            requireIdle(p);
            if (!p.setElementSize(size)) refuse("the element size cannot be set");
          },
          "How many consecutive values make one element, at least 1.")
      .def(
          "element_count",
          [](const ovo::Primvar& p, Time time) {
            requireOpen(p);
            return p.elementCount(time);
          },
          nb::arg("time") = Time(), "How many elements there are at a time.")
      .def_prop_ro(
          "is_indexed",
          [](const ovo::Primvar& p) {
            requireOpen(p);
            return p.isIndexed();
          },
          "True when there is a list of indices.")
      .def(
          "indices",
          [](const ovo::Primvar& p, Time time) -> nb::object {
            requireOpen(p);
            ovo::Array<int> indices;
            if (!p.indices(indices, time)) return nb::none();
            return shareOut(indices).array;
          },
          nb::arg("time") = Time(),
          nb::sig("def indices(self, time: float | None = None) -> "
                  "numpy.typing.NDArray[numpy.int32] | None"),
          "The list of indices (n,), a view; None when it is not indexed.")
      .def(
          "set_indices",
          [](const ovo::Primvar& p, const In<int>& indices, Time time) {
            requireIdle(p);
            if (!p.setIndices(indices.read("indices").array(), time))
              refuse("indices cannot be set");
          },
          nb::arg("indices"), nb::arg("time") = Time(), "Writes the list of indices (n,).")
      .def(
          "compute_flattened",
          [](const ovo::Primvar& p, Time time) -> nb::object {
            requireOpen(p);
            nb::object out = nb::none();
            visitType(p, [&](auto value) {
              using T = decltype(value);
              if constexpr (std::is_same_v<T, ovo::Array<typename std::conditional_t<
                                                  IsArray<T>::value, IsArray<T>,
                                                  IsArray<ovo::Array<int>>>::Element>>) {
                if (p.computeFlattened(value, time)) out = valueOut(value);
              } else {
                ovo::Array<T> values;
                if (p.computeFlattened(values, time)) out = valueOut(values);
              }
            });
            return out;
          },
          nb::arg("time") = Time(),
          nb::sig("def compute_flattened(self, time: float | None = None) -> typing.Any"),
          "The values with indices applied; None without a value, or with an index out of range.")
      .def("__repr__", [](const ovo::Primvar& p) {
        return textOut("<Primvar " + p.prim().getPath().asString() + "." + p.name().asString() +
                       ">");
      });
  refusePickle(primvar, "it is a handle into a scene; pickle its value");
}

}  // namespace vela::python
