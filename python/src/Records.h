/// \file
/// Plain records of the library as Python classes: a constructor that takes fields by name,
/// attributes, a text form, equality by value, pickling and copying, all from one list of fields.
#pragma once

#include <nanobind/nanobind.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Arrays.h"
#include "Values.h"

namespace vela::python {

/// `Name(field=value, ...)` of an object whose class has `_fields`.
nb::object recordText(nb::handle self);
/// Same class and equal fields; arrays are equal when all of their elements are.
nb::object recordEquals(nb::handle self, nb::handle other);
/// What pickle and copy make a record from again.
nb::object recordReduce(nb::handle self);
/// Sets fields by name. Another name is a TypeError.
void setFields(nb::handle self, const nb::kwargs& fields);

/// Gives a class that is no record the reason why it cannot be pickled.
void refusePickle(nb::handle type, const char* reason);

template <class M>
struct MemberType;
template <class C, class T>
struct MemberType<T C::*> {
  using type = T;
};

template <class T>
struct IsArray : std::false_type {};
template <class T>
struct IsArray<ovo::Array<T>> : std::true_type {
  using Element = T;
};

/// A record T. Its fields are told once; the class is complete when this object ends.
///
/// Fields that are arrays of the library are read-only views that share its storage; vectors of
/// numbers are copies. Assigning replaces the whole array.
template <class T, class... Bases>
class Record {
 public:
  Record(nb::handle scope, const char* name, const char* doc) : class_(scope, name, doc) {
    class_.def(
        "__init__",
        [](nb::pointer_and_handle<T> self, const nb::kwargs& fields) {
          new (self.p) T();
          nb::inst_mark_ready(self.h);
          setFields(self.h, fields);
        },
        nb::sig("def __init__(self, **fields: typing.Any) -> None"));
    if constexpr (sizeof...(Bases) != 0) {
      for (const nb::handle field : class_.attr("_fields")) names_.append(field);
    }
  }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record() {
    class_.attr("_fields") = nb::tuple(names_);
    class_.def(
        "__repr__", [](nb::handle self) { return recordText(self); },
        nb::sig("def __repr__(self) -> str"));
    class_.def(
        "__eq__", [](nb::handle self, nb::handle other) { return recordEquals(self, other); },
        nb::arg().none(), nb::sig("def __eq__(self, other: object, /) -> bool"));
    if (isPlain_)
      class_.def(
          "__reduce__", [](nb::handle self) { return recordReduce(self); },
          nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"));
    class_.attr("__hash__") = nb::none();
  }

  /// A member as it is.
  template <class M>
  Record& field(const char* name, M T::*member, const char* doc) {
    if constexpr (std::is_same_v<M, double> || !IsArray<M>::value) {
      return property(
          name, [member](const T& self) -> M { return self.*member; },
          [member](T& self, M value) { self.*member = std::move(value); }, doc);
    } else {
      using E = typename IsArray<M>::Element;
      return property(
          name, [member](const T& self) { return shareOut(self.*member); },
          [member, name](T& self, const In<E>& value) { self.*member = value.read(name).array(); },
          doc);
    }
  }
  /// A member that is a record itself: an attribute that changes in place.
  template <class M>
  Record& part(const char* name, M T::*member, const char* doc) {
    class_.def_prop_rw(
        name, [member](T& self) -> M& { return self.*member; },
        [member](T& self, const M& value) { self.*member = value; },
        nb::for_getter(nb::rv_policy::reference_internal), doc);
    names_.append(name);
    return *this;
  }
  /// A vector of numbers or of small vectors.
  template <class E>
  Record& list(const char* name, std::vector<E> T::*member, const char* doc) {
    return property(
        name, [member](const T& self) { return copyOut(self.*member); },
        [member, name](T& self, const In<E>& value) { self.*member = value.read(name).vector(); },
        doc);
  }
  /// A member that is a time.
  template <class M>
  Record& time(const char* name, M T::*member, const char* doc) {
    return property(
        name, [member](const T& self) { return Time(self.*member); },
        [member](T& self, Time value) { self.*member = value.code; }, doc);
  }
  /// Whatever is read and written by two functions.
  template <class Get, class Set>
  Record& property(const char* name, Get get, Set set, const char* doc) {
    class_.def_prop_rw(name, get, set, doc);
    names_.append(name);
    return *this;
  }
  /// For records that are more than their fields: pickling is told elsewhere.
  Record& withoutPickling() {
    isPlain_ = false;
    return *this;
  }
  [[nodiscard]] nb::class_<T, Bases...>& type() { return class_; }

 private:
  nb::class_<T, Bases...> class_;
  nb::list names_;
  bool isPlain_ = true;
};

}  // namespace vela::python
