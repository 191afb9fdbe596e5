#include "Records.h"

namespace vela::python {

namespace {

nb::object numpyModule() { return nb::module_::import_("numpy"); }
bool isNumpyArray(nb::handle value) {
  return PyObject_CheckBuffer(value.ptr()) != 0 && nb::hasattr(value, "dtype");
}

std::string valueText(nb::handle value) {
  if (!isNumpyArray(value)) return nb::repr(value).c_str();
  // Small ones as they are; of large ones what they are.
  if (nb::cast<std::size_t>(nb::object(value.attr("size"))) <= 16)
    return nb::repr(value.attr("tolist")()).c_str();
  const nb::object dtype = value.attr("dtype"), shape = value.attr("shape");
  return std::string("<") + nb::str(dtype).c_str() + " " + nb::repr(shape).c_str() + ">";
}

}  // namespace

nb::object recordText(nb::handle self) {
  const nb::handle type = self.type();
  std::string text = std::string(nb::str(type.attr("__name__")).c_str()) + "(";
  bool isFirst = true;
  for (const nb::handle name : type.attr("_fields")) {
    if (!isFirst) text += ", ";
    isFirst = false;
    text += std::string(nb::str(name).c_str()) + "=" + valueText(nb::getattr(self, name));
  }
  return textOut(text + ")");
}

nb::object recordEquals(nb::handle self, nb::handle other) {
  if (!self.type().is(other.type())) return nb::borrow(Py_NotImplemented);
  for (const nb::handle name : self.type().attr("_fields")) {
    const nb::object a = nb::getattr(self, name), b = nb::getattr(other, name);
    const bool isEqual = isNumpyArray(a) || isNumpyArray(b)
                             ? static_cast<bool>(nb::bool_(numpyModule().attr("array_equal")(a, b)))
                             : a.equal(b);
    if (!isEqual) return nb::borrow(Py_False);
  }
  return nb::borrow(Py_True);
}

nb::object recordReduce(nb::handle self) {
  nb::dict values;
  for (const nb::handle name : self.type().attr("_fields")) values[name] = nb::getattr(self, name);
  return nb::make_tuple(nb::module_::import_("vela._records").attr("restore"),
                        nb::make_tuple(self.type(), values));
}

void setFields(nb::handle self, const nb::kwargs& fields) {
  for (const auto& [name, value] : fields) {
    if (!static_cast<bool>(nb::bool_(self.type().attr("_fields").attr("__contains__")(name))))
      throw nb::type_error((std::string(nb::str(self.type().attr("__name__")).c_str()) +
                            ": there is no field " + nb::repr(name).c_str())
                               .c_str());
    nb::setattr(self, name, value);
  }
}

void refusePickle(nb::handle type, const char* reason) {
  const std::string text =
      std::string(nb::str(type.attr("__name__")).c_str()) + " cannot be pickled: " + reason;
  nb::setattr(type, "__reduce__", nb::module_::import_("vela._records").attr("refuse")(text));
}

}  // namespace vela::python
