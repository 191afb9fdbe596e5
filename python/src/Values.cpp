#include "Values.h"

namespace vela::python {

namespace {

// What out-going values are made with, looked up once and kept as long as the interpreter runs.
struct Makers {
  nb::object frombuffer = nb::module_::import_("numpy").attr("frombuffer");
  nb::object float32 = nb::module_::import_("numpy").attr("dtype")("float32");
  nb::object float64 = nb::module_::import_("numpy").attr("dtype")("float64");
  nb::object int32 = nb::module_::import_("numpy").attr("dtype")("int32");
  nb::object path = nb::module_::import_("vela._path").attr("Path");
};
const Makers& makers() {
  static const Makers* const made = new Makers;
  return *made;
}
nb::handle dtypeOf(Element element) {
  return element == Element::float32   ? makers().float32
         : element == Element::float64 ? makers().float64
                                       : makers().int32;
}

// One number, of Python or of NumPy. \return false, with no error left, when it is none or does
// not fit
bool readNumber(PyObject* item, double& to) noexcept {
  if (PyBool_Check(item)) return false;
  to = PyFloat_AsDouble(item);
  if (to == -1.0 && PyErr_Occurred()) {
    PyErr_Clear();
    return false;
  }
  return true;
}
bool readNumber(PyObject* item, float& to) noexcept {
  double wide = 0.0;
  if (!readNumber(item, wide)) return false;
  to = static_cast<float>(wide);
  return true;
}
bool readNumber(PyObject* item, std::int32_t& to) noexcept {
  if (PyBool_Check(item)) return false;
  PyObject* const index = PyNumber_Index(item);
  if (!index) {
    PyErr_Clear();
    return false;
  }
  int overflow = 0;
  const long long wide = PyLong_AsLongLongAndOverflow(index, &overflow);
  Py_DECREF(index);
  if (overflow != 0 || wide < INT32_MIN || wide > INT32_MAX) return false;
  to = static_cast<std::int32_t>(wide);
  return true;
}

// The numbers of an array of the very type, without making an object of each.
template <class T>
bool copyNumbers(nb::handle source, T* to, std::size_t count) noexcept {
  constexpr char kFormat = std::is_same_v<T, double> ? 'd' : std::is_same_v<T, float> ? 'f' : 'i';
  if (PyObject_CheckBuffer(source.ptr()) == 0) return false;
  Py_buffer buffer;
  if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_ND | PyBUF_FORMAT) != 0) {
    PyErr_Clear();
    return false;
  }
  const bool isSuch = buffer.ndim == 1 && buffer.shape[0] == static_cast<Py_ssize_t>(count) &&
                      buffer.format && buffer.format[0] == kFormat && buffer.format[1] == '\0';
  if (isSuch) std::memcpy(to, buffer.buf, count * sizeof(T));
  PyBuffer_Release(&buffer);
  return isSuch;
}

template <class T>
bool readAll(nb::handle source, T* to, std::size_t count) noexcept {
  if (copyNumbers(source, to, count)) return true;
  if (PyUnicode_Check(source.ptr()) || PyBytes_Check(source.ptr()) || PyDict_Check(source.ptr()))
    return false;
  PyObject* const items = PySequence_Fast(source.ptr(), "");
  if (!items) {
    PyErr_Clear();
    return false;
  }
  bool isRead = PySequence_Fast_GET_SIZE(items) == static_cast<Py_ssize_t>(count);
  for (std::size_t i = 0; isRead && i < count; ++i)
    isRead = readNumber(PySequence_Fast_GET_ITEM(items, static_cast<Py_ssize_t>(i)), to[i]);
  Py_DECREF(items);
  return isRead;
}

}  // namespace

bool readNumbers(nb::handle source, float* to, std::size_t count) noexcept {
  return readAll(source, to, count);
}
bool readNumbers(nb::handle source, double* to, std::size_t count) noexcept {
  return readAll(source, to, count);
}
bool readNumbers(nb::handle source, std::int32_t* to, std::size_t count) noexcept {
  return readAll(source, to, count);
}

bool readMatrix(nb::handle source, double (&columns)[16]) noexcept {
  if (PyUnicode_Check(source.ptr()) || PyBytes_Check(source.ptr())) return false;
  PyObject* const rows = PySequence_Fast(source.ptr(), "");
  if (!rows) {
    PyErr_Clear();
    return false;
  }
  bool isRead = PySequence_Fast_GET_SIZE(rows) == 4;
  for (std::size_t r = 0; isRead && r < 4; ++r) {
    double row[4];
    isRead = readAll(PySequence_Fast_GET_ITEM(rows, static_cast<Py_ssize_t>(r)), row, 4);
    for (std::size_t c = 0; isRead && c < 4; ++c) columns[c * 4 + r] = row[c];
  }
  Py_DECREF(rows);
  return isRead;
}

PyObject* smallArray(const void* values, std::size_t count, Element element) noexcept {
  const std::size_t size = element == Element::float64 ? 8 : 4;
  PyObject* const bytes = PyBytes_FromStringAndSize(static_cast<const char*>(values),
                                                    static_cast<Py_ssize_t>(count * size));
  if (!bytes) return nullptr;
  // Bytes never change, so the array that looks at them is read-only: writing to it could not
  // reach the library, and says so.
  PyObject* const array = PyObject_CallFunctionObjArgs(makers().frombuffer.ptr(), bytes,
                                                       dtypeOf(element).ptr(), nullptr);
  Py_DECREF(bytes);
  return array;
}

PyObject* matrixArray(const void* columns, Element element) noexcept {
  PyObject* const flat = smallArray(columns, 16, element);
  if (!flat) return nullptr;
  PyObject* const square = PyObject_CallMethod(flat, "reshape", "ii", 4, 4);
  Py_DECREF(flat);
  if (!square) return nullptr;
  PyObject* const turned = PyObject_GetAttrString(square, "T");
  Py_DECREF(square);
  return turned;
}

PyObject* makeText(const std::string& text) noexcept {
  return PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
}

bool readText(nb::handle source, std::string& text) noexcept {
  if (!PyUnicode_Check(source.ptr())) return false;
  Py_ssize_t size = 0;
  if (const char* const utf8 = PyUnicode_AsUTF8AndSize(source.ptr(), &size)) {
    text.assign(utf8, static_cast<std::size_t>(size));
    return true;
  }
  PyErr_Clear();
  PyObject* const bytes = PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape");
  if (!bytes) {
    PyErr_Clear();
    return false;
  }
  text.assign(PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)));
  Py_DECREF(bytes);
  return true;
}

PyObject* makePath(const std::string& text) noexcept {
  PyObject* const plain = makeText(text);
  if (!plain) return nullptr;
  PyObject* const path = PyObject_CallFunctionObjArgs(makers().path.ptr(), plain, nullptr);
  Py_DECREF(plain);
  return path;
}

nb::object textOut(const std::string& text) {
  PyObject* const made = makeText(text);
  if (!made) throw nb::python_error();
  return nb::steal(made);
}

}  // namespace vela::python
