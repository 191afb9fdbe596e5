#include "Arrays.h"

#include <utility>

namespace vela::python {

namespace {

// One row an element type, in the order of the enumeration.
struct ElementInfo {
  const char* name;  // as NumPy has it
  char format;       // as the buffer protocol has it
  Py_ssize_t size;
  char kind;  // as NumPy has it
};
constexpr ElementInfo kElements[] = {
    {"float32", 'f', 4, 'f'}, {"float64", 'd', 8, 'f'}, {"int32", 'i', 4, 'i'},
    {"int64", 'l', 8, 'i'},   {"uint32", 'I', 4, 'u'},  {"uint8", 'B', 1, 'u'},
    {"bool", '?', 1, 'b'},
};
const ElementInfo& infoOf(Element element) { return kElements[static_cast<std::size_t>(element)]; }

// Modules and their functions, looked up once and never let go: they are needed as long as the
// interpreter runs.
struct Numpy {
  nb::object module = nb::module_::import_("numpy");
  nb::object asarray = module.attr("asarray");
  nb::object empty = module.attr("empty");
  nb::object dtypes[std::size(kElements)];
  Numpy() {
    for (std::size_t i = 0; i < std::size(kElements); ++i)
      dtypes[i] = module.attr("dtype")(kElements[i].name);
  }
};
const Numpy& numpy() {
  static const Numpy* const found = new Numpy;
  return *found;
}

bool isFormat(const Py_buffer& buffer, const ElementInfo& info) {
  const char* format = buffer.format ? buffer.format : "B";
  // '@' and '=' say that bytes are in the machine's order, '<' that they are in this machine's.
  if (*format == '@' || *format == '=' || *format == '<') ++format;
  if (format[0] == '\0' || format[1] != '\0' || buffer.itemsize != info.size) return false;
  // 'q' and 'l' are both 64 bits wide here.
  if (info.format == 'l') return *format == 'l' || *format == 'q';
  return *format == info.format;
}

std::string shapeText(int dimensions, const Py_ssize_t* shape) {
  std::string text = "(";
  for (int i = 0; i < dimensions; ++i) {
    if (i != 0) text += ", ";
    text += std::to_string(shape[i]);
  }
  return text + (dimensions == 1 ? ",)" : ")");
}

std::string wantedText(const ElementInfo& info, int columns) {
  return std::string(info.name) + " of shape " +
         (columns == 0 ? "(n,)" : "(n, " + std::to_string(columns) + ")");
}

bool fits(int dimensions, const Py_ssize_t* shape, int columns) {
  if (columns == 0) return dimensions == 1;
  return dimensions == 2 && shape[1] == columns;
}

[[noreturn]] void refuseShape(const char* name, const ElementInfo& info, int columns,
                              int dimensions, const Py_ssize_t* shape) {
  throw nb::value_error((std::string(name) + ": expected " + wantedText(info, columns) +
                         ", found shape " + shapeText(dimensions, shape))
                            .c_str());
}

// Whether each integer of an array fits the narrower type that is wanted.
void checkRange(nb::handle array, const ElementInfo& info, const char* name) {
  if (info.kind == 'f' || info.kind == 'b' || nb::len(array.attr("ravel")()) == 0) return;
  const nb::object limits = numpy().module.attr("iinfo")(info.name);
  for (const char* end : {"min", "max"}) {
    const nb::object value = array.attr(end)();
    const bool isLow = end[1] == 'i';
    const int isOut = PyObject_RichCompareBool(value.ptr(), nb::object(limits.attr(end)).ptr(),
                                               isLow ? Py_LT : Py_GT);
    if (isOut < 0) throw nb::python_error();
    if (isOut != 0)
      throw nb::value_error(
          (std::string(name) + ": " + nb::str(value).c_str() + " does not fit " + info.name)
              .c_str());
  }
}

// The same numbers as a C-contiguous array of the wanted type.
nb::object convert(nb::object array, bool isArray, Element element, int columns, const char* name) {
  const ElementInfo& info = infoOf(element);
  const nb::object dtype = array.attr("dtype");
  const std::string kind = nb::cast<std::string>(nb::object(dtype.attr("kind")));
  const std::string found = nb::str(dtype).c_str();
  // An empty list is an array of no rows.
  if (!isArray && nb::cast<std::size_t>(nb::object(array.attr("size"))) == 0 &&
      nb::cast<int>(nb::object(array.attr("ndim"))) == 1)
    return numpy().empty(columns == 0 ? nb::make_tuple(0) : nb::make_tuple(0, columns),
                         numpy().dtypes[static_cast<std::size_t>(element)]);
  const bool isNumber = kind == "f" || kind == "i" || kind == "u";
  const bool isKindOf = info.kind == 'f'   ? isNumber
                        : info.kind == 'b' ? kind == "b"
                                           : kind == "i" || kind == "u";
  if (!isKindOf)
    throw nb::type_error(
        (std::string(name) + ": expected " + wantedText(info, columns) + ", found " + found)
            .c_str());
  const nb::tuple shape = nb::tuple(array.attr("shape"));
  std::vector<Py_ssize_t> extents;
  for (const nb::handle extent : shape) extents.push_back(nb::cast<Py_ssize_t>(extent));
  if (!fits(static_cast<int>(extents.size()), extents.data(), columns))
    refuseShape(name, info, columns, static_cast<int>(extents.size()), extents.data());
  checkRange(array, info, name);
  if (isArray) {
    static nb::object* const warning =
        new nb::object(nb::module_::import_("vela._warnings").attr("ConversionWarning"));
    const bool isType = found == info.name;
    const bool isContiguous = nb::cast<bool>(nb::object(array.attr("flags").attr("c_contiguous")));
    const std::string text = std::string(name) +
                             (!isType        ? ": converted from " + found + " to " + info.name
                              : isContiguous ? ": copied, since it is not aligned"
                                             : ": copied, since it is not C-contiguous") +
                             "; pass a C-contiguous " + info.name +
                             " array to have it read in place";
    if (PyErr_WarnEx(warning->ptr(), text.c_str(), 1) != 0) throw nb::python_error();
  }
  // Arrays out of messages and files may begin at any byte: such a one is copied as well.
  const nb::object kept = numpy().module.attr("require")(
      array, numpy().dtypes[static_cast<std::size_t>(element)], "CA");
  return kept;
}

}  // namespace

HeldArray& HeldArray::operator=(HeldArray&& other) noexcept {
  std::swap(buffer_, other.buffer_);
  std::swap(isHeld_, other.isHeld_);
  std::swap(rows_, other.rows_);
  return *this;
}

HeldArray::~HeldArray() {
  if (isHeld_) PyBuffer_Release(&buffer_);
}

// True when the source is such an array already; it is held then.
bool HeldArray::take(nb::handle source, Element element, int columns, const char* name, bool out) {
  const ElementInfo& info = infoOf(element);
  const int flags = PyBUF_STRIDES | PyBUF_FORMAT | (out ? PyBUF_WRITABLE : 0);
  if (PyObject_GetBuffer(source.ptr(), &buffer_, flags) != 0) {
    PyErr_Clear();
    return false;
  }
  isHeld_ = true;
  const bool isSuch =
      isFormat(buffer_, info) && PyBuffer_IsContiguous(&buffer_, 'C') != 0 &&
      reinterpret_cast<std::uintptr_t>(buffer_.buf) % static_cast<std::size_t>(info.size) == 0;
  if (isSuch) {
    if (!fits(buffer_.ndim, buffer_.shape, columns))
      refuseShape(name, info, columns, buffer_.ndim, buffer_.shape);
    rows_ = static_cast<std::size_t>(buffer_.shape[0]);
    return true;
  }
  PyBuffer_Release(&buffer_);
  isHeld_ = false;
  return false;
}

HeldArray::HeldArray(nb::handle source, Element element, int columns, const char* name, bool out) {
  if (PyObject_CheckBuffer(source.ptr()) != 0 && take(source, element, columns, name, out)) return;
  if (out)
    throw nb::type_error((std::string(name) + ": expected a writable C-contiguous array, " +
                          wantedText(infoOf(element), columns))
                             .c_str());
  nb::object array = nb::borrow(source);
  bool isArray = PyObject_CheckBuffer(source.ptr()) != 0;
  // Other libraries' arrays, where they are: this fails for what lies on another device.
  if (!isArray && nb::hasattr(source, "__dlpack__")) {
    array = numpy().module.attr("from_dlpack")(source);
    isArray = true;
    if (take(array, element, columns, name, false)) return;
  }
  if (PyUnicode_Check(source.ptr()) || PyBytes_Check(source.ptr()) || source.is_none())
    throw nb::type_error((std::string(name) + ": expected " + wantedText(infoOf(element), columns) +
                          ", found " + Py_TYPE(source.ptr())->tp_name)
                             .c_str());
  array = numpy().asarray(array);
  const nb::object kept = convert(array, isArray, element, columns, name);
  if (!take(kept, element, columns, name, false))
    throw nb::type_error(
        (std::string(name) + ": expected " + wantedText(infoOf(element), columns)).c_str());
}

Element HeldArray::elementTypeOf(nb::handle source) {
  // The buffer says it without a look at attributes, which takes ten times as long.
  Py_buffer buffer;
  if (PyObject_CheckBuffer(source.ptr()) != 0) {
    if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_STRIDES | PyBUF_FORMAT) == 0) {
      const bool isFloat = isFormat(buffer, infoOf(Element::float32));
      PyBuffer_Release(&buffer);
      if (isFloat) return Element::float32;
    } else {
      PyErr_Clear();
    }
  }
  const nb::object dtype = nb::getattr(source, "dtype", nb::none());
  const std::string name = nb::str(dtype).c_str();
  // Also torch.float32.
  return name.size() >= 7 && name.compare(name.size() - 7, 7, "float32") == 0 ? Element::float32
                                                                              : Element::float64;
}

void* makeArray(Element element, std::initializer_list<std::size_t> shape, nb::object& array) {
  const nb::object& dtype = numpy().dtypes[static_cast<std::size_t>(element)];
  const std::size_t* extents = shape.begin();
  array = shape.size() == 1 ? numpy().empty(extents[0], dtype)
          : shape.size() == 2
              ? numpy().empty(nb::make_tuple(extents[0], extents[1]), dtype)
              : numpy().empty(nb::make_tuple(extents[0], extents[1], extents[2]), dtype);
  Py_buffer buffer;
  if (PyObject_GetBuffer(array.ptr(), &buffer, PyBUF_WRITABLE) != 0) throw nb::python_error();
  void* const data = buffer.buf;
  PyBuffer_Release(&buffer);
  return data;
}

}  // namespace vela::python
