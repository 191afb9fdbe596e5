// Pictures: rendered, read as arrays, shown, written.

#include "vela/picture/picture.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "SceneLists.h"

namespace vela::python {

namespace {

using namespace vela::picture;
using StagePtr = std::shared_ptr<ovo::Stage>;

// A view of neighbouring channels: (height, width) for one, else (height, width, channels). It
// keeps the picture, whose values nobody can change or move.
template <class T>
nb::object arrayOf(const PixelView<T>& view, nb::handle picture) {
  const std::size_t shape[3] = {static_cast<std::size_t>(view.height),
                                static_cast<std::size_t>(view.width),
                                static_cast<std::size_t>(view.channels)};
  const std::int64_t strides[3] = {view.rowStep, view.pixelStep, 1};
  const nb::ndarray<nb::numpy, const T> array(view.data, view.channels == 1 ? 2 : 3, shape, picture,
                                              strides);
  return nb::cast(array);
}
nb::object arrayOf(const LayerView& view, nb::handle picture) {
  return view.floats ? arrayOf(view.floats, picture) : arrayOf(view.integers, picture);
}

nb::object attributeOut(const Attribute& attribute) {
  if (const auto* const text = std::get_if<std::string>(&attribute.value)) return textOut(*text);
  return std::visit([](const auto& value) { return nb::cast(value); }, attribute.value);
}
Attribute attributeIn(const std::string& name, nb::handle value) {
  std::string text;
  if (readText(value, text)) return {name, text};
  if (PyLong_Check(value.ptr())) return {name, nb::cast<int>(value)};
  if (PyFloat_Check(value.ptr())) return {name, nb::cast<float>(value)};
  tarn::Vec2f pair;
  if (nb::try_cast(value, pair)) return {name, pair};
  tarn::Mat4f matrix;
  if (nb::try_cast(value, matrix)) return {name, matrix};
  refuse("attributes: '" + name + "' is no text, number, pair or matrix");
}

// A picture from arrays by the names of layers.
Picture pictureOf(const nb::dict& layers, const nb::object& attributes,
                  const std::vector<std::string>& manifest) {
  Picture out;
  out.manifest = manifest;
  for (const auto& [key, value] : layers) {
    Layer layer;
    nb::object array = nb::borrow(value);
    layer.name = nb::cast<std::string>(key);
    const LayerInfo* const info = findLayerInfo(layer.name);
    if (!info) throw nb::key_error(("no such layer: " + layer.name + "; " + layersToTry()).c_str());
    layer.channels = info->channels;
    layer.type = info->type;
    const nb::object numpy = nb::module_::import_("numpy");
    const nb::tuple shape = nb::tuple(numpy.attr("shape")(array));
    const std::size_t dimensions = nb::len(shape);
    const std::size_t channels = dimensions == 3 ? nb::cast<std::size_t>(nb::object(shape[2])) : 1;
    if ((dimensions != 2 && dimensions != 3) || channels != layer.channels.size())
      refuse(layer.name + ": expected shape (height, width" +
             (layer.channels.size() == 1 ? "" : ", " + std::to_string(layer.channels.size())) +
             "), found " + nb::repr(shape).c_str());
    const int height = nb::cast<int>(nb::object(shape[0])),
              width = nb::cast<int>(nb::object(shape[1]));
    if (!out.layers.empty() && (width != out.width || height != out.height))
      refuse(layer.name + ": layers have different sizes");
    out.width = width;
    out.height = height;
    array = numpy.attr("reshape")(array, -1);
    if (layer.type == ValueType::float32)
      layer.floats = In<float>{array}.read(layer.name.c_str()).vector();
    else
      layer.integers = In<std::uint32_t>{array}.read(layer.name.c_str()).vector();
    out.layers.push_back(std::move(layer));
  }
  if (!attributes.is_none())
    for (const auto& [key, value] : nb::cast<nb::dict>(attributes))
      out.attributes.push_back(attributeIn(nb::cast<std::string>(key), value));
  return out;
}

bool isEqual(const Picture& a, const Picture& b) {
  if (a.width != b.width || a.height != b.height || a.manifest != b.manifest ||
      a.layers.size() != b.layers.size() || a.attributes.size() != b.attributes.size())
    return false;
  for (std::size_t i = 0; i < a.layers.size(); ++i) {
    const Layer &x = a.layers[i], &y = b.layers[i];
    if (x.name != y.name || x.channels != y.channels || x.floats != y.floats ||
        x.integers != y.integers)
      return false;
  }
  for (std::size_t i = 0; i < a.attributes.size(); ++i)
    if (a.attributes[i].name != b.attributes[i].name ||
        !(a.attributes[i].value == b.attributes[i].value))
      return false;
  return true;
}

DisplayOptions displayOptions(const std::string& view, const std::string& config,
                              const std::string& display, double exposure, nb::handle behind) {
  DisplayOptions options;
  std::string why;
  const auto made = ViewTransform::make({config, view, display}, &why);
  if (!made) refuse(why);
  options.view = *made;
  options.exposure = exposure;
  std::string word;
  if (readText(behind, word)) {
    if (word == "backdrop")
      options.behind = Behind::backdrop;
    else if (word == "nothing")
      options.behind = Behind::nothing;
    else
      refuse("behind: expected 'backdrop', 'nothing' or a colour");
  } else {
    options.behind = Behind::colour;
    if (!nb::try_cast(behind, options.colour))
      throw nb::type_error("behind: expected 'backdrop', 'nothing' or a colour (3,)");
  }
  return options;
}

DisplayImage display(const Picture& picture, const std::string& layer, const std::string& view,
                     const std::string& config, const std::string& device, double exposure,
                     nb::handle behind) {
  const DisplayOptions options = displayOptions(view, config, device, exposure, behind);
  std::string why;
  const auto image = displayLayer(picture, layer, options, &why);
  if (!image) refuse(why);
  return *image;
}

nb::bytes bytesOf(const std::vector<unsigned char>& bytes) {
  return nb::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// The bytes of a picture file.
nb::bytes encode(const Picture& picture, const std::string& format, const std::string& layer,
                 const std::string& compression, bool halfColour, const std::string& view,
                 const std::string& config, const std::string& device, double exposure,
                 nb::handle behind, std::tuple<int, int> origin, std::tuple<int, int> displaySize,
                 int threads) {
  const auto known = fileFormat("a." + format);
  if (!known) refuse("format: expected 'exr', 'png' or 'jpg', found '" + format + "'");
  std::vector<unsigned char> bytes;
  std::string why;
  bool isWritten = false;
  if (*known == FileFormat::exr) {
    ExrOptions options;
    const auto method = findCompression(compression);
    if (!method) refuse("compression: there is no '" + compression + "'");
    options.compression = *method;
    options.halfColour = halfColour;
    std::tie(options.x, options.y) = origin;
    std::tie(options.displayWidth, options.displayHeight) = displaySize;
    options.threads = threads;
    const Unlocked unlocked;
    isWritten = writeExr(picture, bytes, options, &why);
  } else {
    const bool isPng = *known == FileFormat::png;
    const DisplayImage image = display(picture, layer, view, config, device, exposure, behind);
    const Unlocked unlocked;
    isWritten = isPng ? writePng(image, bytes, &why) : writeJpeg(image, bytes, &why);
  }
  if (!isWritten) refuse(why);
  return bytesOf(bytes);
}

void bindPictures(nb::module_& m) {
  nb::class_<Picture> picture(
      m, "Picture",
      "A picture in memory: layers by name, linear, rows from the top. Arrays are read-only views "
      "that "
      "keep the picture alive: (height, width) for one channel, (height, width, channels) for "
      "more.\n\n"
      ">>> import numpy\n"
      ">>> picture = vela.Picture({'depth': numpy.full((2, 3), 1.5, numpy.float32)})\n"
      ">>> picture['depth'].shape, picture['Z'][0, 0].item(), list(picture)\n"
      "((2, 3), 1.5, ['depth'])");
  picture
      .def(
          "__init__",
          [](Picture* self, const nb::dict& layers, const nb::object& attributes,
             const std::vector<std::string>& manifest) {
            new (self) Picture(pictureOf(layers, attributes, manifest));
          },
          nb::arg("layers"), nb::arg("attributes") = nb::none(),
          nb::arg("manifest") = std::vector<std::string>(),
          nb::sig(
              "def __init__(self, layers: dict[str, typing.Any], attributes: dict[str, typing.Any] "
              "| None = None, manifest: typing.Sequence[str] = ()) -> None"))
      .def_ro("width", &Picture::width, "Pixels.")
      .def_ro("height", &Picture::height, "Pixels.")
      .def("__len__", [](const Picture& p) { return p.layers.size(); })
      .def(
          "keys",
          [](const Picture& p) {
            std::vector<std::string> names;
            for (const Layer& layer : p.layers) names.push_back(layer.name);
            return names;
          },
          "The names of the layers, in order.")
      .def(
          "__iter__", [](nb::handle self) { return nb::iter(self.attr("keys")()); },
          nb::sig("def __iter__(self) -> typing.Iterator[str]"))
      .def(
          "__contains__",
          [](const Picture& p, nb::handle name) {
            std::string text;
            return readText(name, text) &&
                   (static_cast<bool>(p.layer(text)) || static_cast<bool>(p.channel(text)));
          },
          nb::arg().none(), nb::sig("def __contains__(self, name: object, /) -> bool"))
      .def(
          "__getitem__",
          [](nb::handle self, const std::string& name) {
            const Picture& p = nb::cast<const Picture&>(self);
            LayerView found = p.layer(name);
            if (!found) found = p.channel(name);
            if (!found) {
              std::string has;
              for (const Layer& layer : p.layers) has += (has.empty() ? "" : ", ") + layer.name;
              throw nb::key_error(
                  ("the picture has no layer or channel '" + name + "', but " + has).c_str());
            }
            return arrayOf(found, self);
          },
          nb::arg("name"),
          nb::sig("def __getitem__(self, name: str) -> numpy.typing.NDArray[typing.Any]"),
          "A layer, a part of one such as `rgb` of `rgba`, or a channel as files name it.")
      .def("part", &Picture::part, nb::arg("x"), nb::arg("y"), nb::arg("width"), nb::arg("height"),
           "A rectangle of it, cut off where it lies outside, with all that it says of the "
           "whole.\n\n"
           ">>> import numpy\n"
           ">>> picture = vela.Picture({'depth': numpy.zeros((2, 3), numpy.float32)})\n"
           ">>> picture.part(1, 0, 9, 9)\n<Picture 2x2: depth>")
      .def(
          "layer_channels",
          [](const Picture& p, const std::string& name) {
            for (const Layer& layer : p.layers)
              if (layer.name == name) return layer.channels;
            throw nb::key_error(("the picture has no layer '" + name + "'").c_str());
          },
          nb::arg("name"), "The names of a layer's channels, as files have them.")
      .def_prop_ro(
          "attributes",
          [](const Picture& p) {
            nb::dict out;
            for (const Attribute& attribute : p.attributes)
              out[textOut(attribute.name)] = attributeOut(attribute);
            return out;
          },
          nb::sig("def attributes(self) -> dict[str, typing.Any]"),
          "Facts about the whole picture, as files carry them; a copy.")
      .def_prop_ro(
          "manifest",
          [](const Picture& p) {
            nb::list out;
            for (const std::string& name : p.manifest) out.append(textOut(name));
            return out;
          },
          nb::sig("def manifest(self) -> list[str]"),
          "What the values of the layer `prim` stand for: value n is manifest[n - 1], 0 is "
          "nothing.")
      .def("_encode", &encode)
      .def(
          "display",
          [](const Picture& p, const std::string& layer, const std::string& view,
             const std::string& config, const std::string& device, double exposure,
             nb::object behind) {
            const DisplayImage image = display(p, layer, view, config, device, exposure, behind);
            const auto w = static_cast<std::size_t>(image.width),
                       h = static_cast<std::size_t>(image.height);
            nb::object out;
            void* const data = makeArray(Element::uint8, {h, w, image.hasAlpha ? 4u : 3u}, out);
            std::memcpy(data, image.codes.data(), image.codes.size());
            return NumpyArray<std::uint8_t>{out};
          },
          nb::arg("layer") = "rgba", nb::kw_only(), nb::arg("view") = "", nb::arg("config") = "",
          nb::arg("display") = "", nb::arg("exposure") = 0.0, nb::arg("behind") = "backdrop",
          nb::sig("def display(self, layer: str = 'rgba', *, view: str = '', config: str = '', "
                  "display: "
                  "str = '', exposure: float = 0.0, behind: typing.Any = 'backdrop') -> "
                  "numpy.typing.NDArray[numpy.uint8]"),
          "A layer as codes to be looked at, (height, width, 3) uint8, or 4 where `behind` is "
          "'nothing'. "
          "`view` is 'soft' or 'clip', or one of an OpenColorIO `config`. ValueError with the "
          "reason.\n\n"
          ">>> import numpy\n>>> up = numpy.zeros((1, 1, 3), numpy.float32) + [0, 0, 1]\n"
          ">>> vela.Picture({'N': up.astype(numpy.float32)}).display('N').tolist()\n[[[128, 128, "
          "255]]]")
      .def("__eq__", &isEqual, nb::is_operator())
      .def("__repr__",
           [](const Picture& p) {
             std::string text =
                 "<Picture " + std::to_string(p.width) + "x" + std::to_string(p.height) + ":";
             for (const Layer& layer : p.layers) text += " " + layer.name;
             return text + ">";
           })
      .def("__copy__", [](const Picture& p) { return Picture(p); })
      .def(
          "__deepcopy__", [](const Picture& p, nb::handle) { return Picture(p); }, nb::arg("memo"))
      .def(
          "__getstate__",
          [](nb::handle self) {
            const Picture& p = nb::cast<const Picture&>(self);
            nb::list layers;
            for (const Layer& layer : p.layers)
              layers.append(nb::make_tuple(textOut(layer.name), layer.channels,
                                           layer.type == ValueType::uint32, copyOut(layer.floats),
                                           copyOut(layer.integers)));
            return nb::make_tuple(p.width, p.height, layers, self.attr("attributes"),
                                  self.attr("manifest"));
          },
          nb::sig("def __getstate__(self) -> tuple[typing.Any, ...]"))
      .def("__setstate__", [](Picture& p, const nb::tuple& state) {
        Picture made;
        made.width = nb::cast<int>(nb::object(state[0]));
        made.height = nb::cast<int>(nb::object(state[1]));
        for (const nb::handle item : state[2]) {
          Layer layer;
          readText(item[0], layer.name);
          layer.channels = nb::cast<std::vector<std::string>>(nb::object(item[1]));
          layer.type = nb::cast<bool>(nb::object(item[2])) ? ValueType::uint32 : ValueType::float32;
          layer.floats = In<float>{item[3]}.read("layer").vector();
          layer.integers = In<std::uint32_t>{item[4]}.read("layer").vector();
          const std::size_t values = layer.floats.size() + layer.integers.size();
          if (values != made.pixelCount() * layer.channels.size())
            refuse("the picture's layer " + layer.name + " has too few values");
          made.layers.push_back(std::move(layer));
        }
        for (const auto& [key, value] : nb::cast<nb::dict>(nb::object(state[3])))
          made.attributes.push_back(attributeIn(nb::cast<std::string>(key), value));
        for (const nb::handle name : state[4]) {
          made.manifest.emplace_back();
          readText(name, made.manifest.back());
        }
        new (&p) Picture(std::move(made));
      });
  picture.attr("__hash__") = nb::none();
}

void bindLayers(nb::module_& m) {
  nb::enum_<ValueType>(m, "ValueType",
                       "Measures are floats, numbers that name things integers.\n\n"
                       ">>> vela.picture.ValueType.FLOAT32.value\n0")
      .value("FLOAT32", ValueType::float32)
      .value("UINT32", ValueType::uint32);
  nb::enum_<Sampling>(m, "Sampling",
                      "Where in a pixel a layer is taken.\n\n"
                      ">>> vela.picture.Sampling.PIXEL_CENTRE.value\n0")
      .value("PIXEL_CENTRE", Sampling::pixelCentre)
      .value("MEAN_OF_SAMPLES", Sampling::meanOfSamples)
      .value("COVERAGE_OF_SAMPLES", Sampling::coverageOfSamples);
  Record<LayerInfo>(m, "LayerInfo",
                    "What is known of a layer without rendering it.\n\n"
                    ">>> vela.picture.layer_info('depth').channels\n['Z']")
      .field("name", &LayerInfo::name, "To be chosen by.")
      .field("subnames", &LayerInfo::subnames, "Of its channels in the registry.")
      .field("channels", &LayerInfo::channels, "What files call them.")
      .field("type", &LayerInfo::type, "Of its values.")
      .field("is_default", &LayerInfo::isDefault, "Rendered when nothing is chosen.")
      .field("help", &LayerInfo::help, "What the values are.")
      .field("sampling", &LayerInfo::sampling, "Where in a pixel it is taken.")
      .field("is_part", &LayerInfo::isPart, "Some of the channels of another.");
  m.def(
      "layer_table", [] { return layerTable(); },
      "All layers that can be rendered.\n\n>>> vela.picture.layer_table()[0].name\n'rgba'");
  m.def(
      "layer_info",
      [](const std::string& name) {
        const LayerInfo* const info = findLayerInfo(name);
        if (!info) throw nb::key_error(("no such layer: " + name + "; " + layersToTry()).c_str());
        return *info;
      },
      nb::arg("name"), "The row of that name; KeyError without.");
  m.def(
      "layer_groups",
      [] {
        std::vector<std::pair<std::string, std::vector<std::string>>> out;
        for (const LayerGroup& group : layerGroups()) out.emplace_back(group.name, group.layers);
        return out;
      },
      "Layers that go by one name, as (name, layers).\n\n"
      ">>> vela.picture.layer_groups()[0][1][0]\n'crypto_object00'");
  m.def("layer_names", &layerNames,
        "The names to choose layers by.\n\n>>> 'depth' in vela.picture.layer_names()\nTrue");
  m.def("default_layers", &defaultLayers,
        "What is rendered when nothing is chosen.\n\n>>> 'rgba' in "
        "vela.picture.default_layers()\nTrue");
  m.def(
      "compression_names", [] { return compressionNames(); },
      "OpenEXR's methods of compression.\n\n>>> vela.picture.compression_names()[3]\n'zip'");
  m.def(
      "why_not_written",
      [](const std::vector<std::string>& layers, const std::string& compression, bool halfColour) {
        const auto method = findCompression(compression);
        if (!method) refuse("compression: there is no '" + compression + "'");
        ExrOptions options;
        options.compression = *method;
        options.halfColour = halfColour;
        return whyNotWritten(layers, options);
      },
      nb::arg("layers"), nb::arg("compression") = "zip", nb::arg("half_colour") = false,
      "Why a picture with these layers cannot be written so; empty when it can.\n\n"
      ">>> vela.picture.why_not_written(['depth'])\n''\n"
      ">>> vela.picture.why_not_written(['depth'], 'dwaa') == ''\nFalse");
  m.def(
      "read_exr_text",
      [](const FileName& file, const std::string& attribute) {
        std::string why;
        const auto text = readExrText(file.text, attribute, &why);
        if (!text) refuseFile(file.text, why);
        return textOut(*text);
      },
      nb::arg("file"), nb::arg("attribute"),
      nb::sig(
          "def read_exr_text(file: str | bytes | os.PathLike[typing.Any], attribute: str) -> str"),
      "The text of an attribute of an OpenEXR file; OSError or ValueError with the reason.");
  m.def(
      "read_exr",
      [](const FileName& file, const Picture& like) {
        Picture picture = like;
        Tile part;
        std::string why;
        bool isRead = false;
        {
          const Unlocked unlocked;
          isRead = readExr(file.text, picture, part, &why);
        }
        if (!isRead) refuseFile(file.text, why);
        return std::make_pair(std::move(picture),
                              nb::make_tuple(part.x0, part.y0, part.x1, part.y1));
      },
      nb::arg("file"), nb::arg("like"),
      nb::sig("def read_exr(file: str | bytes | os.PathLike[typing.Any], like: Picture) -> "
              "tuple[Picture, tuple[int, int, int, int]]"),
      "Reads a picture, or a part of one, from an OpenEXR file: `like` has the layers and the size "
      "of the whole. Returns a copy of it with the pixels of the file, and the rectangle (x0, y0, "
      "x1, y1) "
      "that they fill. OSError or ValueError with the reason.\n\n"
      ">>> import numpy, tempfile\n"
      ">>> made = vela.Picture({'depth': numpy.ones((1, 2), numpy.float32)})\n"
      ">>> with tempfile.TemporaryDirectory() as folder:\n"
      "...     made.save(folder + '/a.exr')\n"
      "...     vela.picture.read_exr(folder + '/a.exr', made)\n"
      "(<Picture 2x1: depth>, (0, 0, 2, 1))");
  m.def(
      "is_whole_exr", [](const FileName& file) { return isWholeExr(file.text); }, nb::arg("file"),
      "True when a file is an OpenEXR file with all of its pixels, as far as that can be seen "
      "without reading all of them.\n\n"
      ">>> vela.picture.is_whole_exr('examples/demo/demo.usda')\nFalse");
  m.def(
      "file_format",
      [](const std::string& name) -> std::optional<std::string> {
        const auto format = fileFormat(name);
        if (!format) return std::nullopt;
        return *format == FileFormat::exr ? "exr" : *format == FileFormat::png ? "png" : "jpg";
      },
      nb::arg("name"),
      "The format that a file's extension stands for; None for others.\n\n"
      ">>> vela.picture.file_format('shots/a.EXR')\n'exr'");
  m.def(
      "murmur_hash3",
      [](nb::bytes b) {
        return murmurHash3({b.c_str(), b.size()});
      },
      nb::arg("data"),
      "MurmurHash3_x86_32 with seed 0.\n\n>>> "
      "hex(vela.picture.murmur_hash3(b'hello'))\n'0x248bfa47'");
  m.def(
      "cryptomatte_id", [](const ovo::Token& name) { return cryptomatteId(name.asString()); },
      nb::arg("name"),
      "The id of a name in mattes.\n\n>>> hex(vela.picture.cryptomatte_id('hello'))\n'0x248bfa47'");
  m.def(
      "cryptomatte_value", &cryptomatteValue, nb::arg("id"),
      "The value of a channel that has these bits.\n\n>>> vela.picture.cryptomatte_value(0)\n0.0");
  m.def(
      "cryptomatte_attribute",
      [](const std::string& matte, const std::string& field) {
        return cryptomatteAttribute(matte, field);
      },
      nb::arg("matte"), nb::arg("field"),
      "The name of a matte's attribute.\n\n"
      ">>> vela.picture.cryptomatte_attribute('crypto_object', 'name').endswith('/name')\nTrue");
  m.def("cryptomattes_of", &cryptomattesOf, nb::arg("picture"), "The names of a picture's mattes.");
  m.def("backdrop", &backdrop, nb::arg("height"),
        "What is seen where no surface is, linear (3,): height from 0 at the bottom to 1.\n\n"
        ">>> vela.picture.backdrop(0.5).shape\n(3,)");
  m.def("encode_srgb", &encodeSrgb, nb::arg("linear"),
        "The sRGB code of a linear value, 0 to 255.\n\n>>> vela.picture.encode_srgb(0.5)\n188");
  m.def("thread_count", &threadCount, nb::arg("requested"),
        "The number of threads for a request: as asked for, for 0 as many as the machine has.\n\n"
        ">>> vela.picture.thread_count(3)\n3");

  nb::class_<ViewTransform> view(
      m, "ViewTransform",
      "From linear colour to what a display is sent.\n\n"
      ">>> shown = vela.picture.ViewTransform('clip').apply([[0.5, 2.0, 0.0]])\n"
      ">>> [round(code, 3) for code in shown[0].tolist()]\n"
      "[0.735, 1.0, 0.0]");
  view.def(
          "__init__",
          [](ViewTransform* self, const std::string& name, const std::string& config,
             const std::string& device) {
            std::string why;
            const auto made = ViewTransform::make({config, name, device}, &why);
            if (!made) refuse(why);
            new (self) ViewTransform(*made);
          },
          nb::arg("view") = "", nb::arg("config") = "", nb::arg("display") = "")
      .def(
          "apply",
          [](const ViewTransform& v, const In<tarn::Vec3f>& rgb) {
            const auto in = rgb.read("rgb");
            NewArray<tarn::Vec3f> out(in.size());
            std::memcpy(static_cast<void*>(out.data), in.data(), in.size() * sizeof(tarn::Vec3f));
            v.apply({reinterpret_cast<float*>(out.data), in.size() * 3});
            return NumpyArray<float>{out.array};
          },
          nb::arg("rgb"), "Colours (n, 3) as a display is sent them, (n, 3).")
      .def("__repr__", [](const ViewTransform&) { return "<ViewTransform>"; });
  refusePickle(view, "it may hold a configuration; pickle its names");
}

void bindOptions(nb::module_& m) {
  using V = scene::ViewOptions;
  Record<V>(m, "ViewOptions",
            "Camera, lens and size of a picture.\n\n"
            ">>> vela.picture.ViewOptions(width=640).height\n0")
      .field("camera", &V::camera, "Path; empty: the first, or a view of all.")
      .field("lens", &V::lens, "NONE: as the camera is.")
      .field("width", &V::width, "Pixels; 0: 1280.")
      .field("height", &V::height, "Pixels; 0: the film's shape.")
      .time("time", &V::time, "Time code; the options' own counts.")
      .field("turn", &V::turn, "Degrees around what there is to see, or None.")
      .field("depth_of_field", &V::depthOfField, "By the camera's f-stop and focus distance.")
      .field("clipping", &V::clipping, "By the camera's clipping range and planes.");
  nb::enum_<SamplePattern>(m, "SamplePattern",
                           "How samples are spread over a pixel.\n\n"
                           ">>> vela.picture.SamplePattern.REGULAR.value\n1")
      .value("JITTERED", SamplePattern::jittered)
      .value("REGULAR", SamplePattern::regular);
  nb::enum_<LightChoice>(m, "LightChoice",
                         "Which lights shine in a picture.\n\n"
                         ">>> vela.picture.LightChoice.SCENE.value\n0")
      .value("SCENE", LightChoice::scene)
      .value("OWN", LightChoice::own)
      .value("BOTH", LightChoice::both);
  using O = RenderOptions;
  Record<O>(m, "RenderOptions",
            "What a picture is to show and how.\n\n"
            ">>> vela.picture.RenderOptions(samples=4).samples\n4")
      .time("time", &O::time, "Of meshes and view.")
      .part("meshes", &O::meshes, "Which meshes show, how far they are refined.")
      .part("view", &O::view, "Camera, lens, size.")
      .field("caster", &O::caster, "What answers rays.")
      .field("smooth", &O::smooth, "Mixes normals between points where the scene has none.")
      .field("samples", &O::samples, "Rays a pixel, 1 to 4096; rounded to a square.")
      .field("pattern", &O::pattern, "How they are spread.")
      .field("layers", &O::layers, "Names, see layer_names.")
      .field("selection", &O::selection, "What it has is tinted; None.")
      .field("material_purpose", &O::materialPurpose, "Which materials count.")
      .field("materials", &O::materials, "False: displayColor alone.")
      .field("texture_memory", &O::textureMemory, "Bytes that textures may take.")
      .field("lights", &O::lights, "Which lights shine.")
      .field("bounces", &O::bounces, "How often light of the scene is scattered, 0 to 8.")
      .field("motion_steps", &O::motionSteps,
             "Moments of the open shutter that samples are of; 0: none.")
      .field("overscan", &O::overscan, "Pixels beyond each edge.");
  Record<RenderStats>(m, "RenderStats",
                      "What a renderer has done until now.\n\n"
                      ">>> vela.picture.RenderStats().camera_rays\n0")
      .field("camera_rays", &RenderStats::cameraRays, "Rays of the camera.")
      .field("light_rays", &RenderStats::lightRays, "Rays to lights.")
      .field("trace_seconds", &RenderStats::traceSeconds, "Of all threads together.")
      .field("shade_seconds", &RenderStats::shadeSeconds, "Of all threads together.");
}

// A renderer, the stage that it reads and what was said when it was made.
struct Renderer {
  StagePtr stage;
  std::unique_ptr<PictureRenderer> renderer;
  std::vector<scene::Problem> problems;
};

// Copies the rows of a band to where they belong. Layers are known to have the same channels.
void copyRows(const Picture& band, std::size_t row, Picture& picture) {
  for (std::size_t i = 0; i < picture.layers.size(); ++i) {
    const Layer& from = band.layers[i];
    Layer& to = picture.layers[i];
    const std::size_t at = row * static_cast<std::size_t>(picture.width) * to.channels.size();
    std::copy(from.floats.begin(), from.floats.end(), to.floats.begin() + std::ptrdiff_t(at));
    std::copy(from.integers.begin(), from.integers.end(), to.integers.begin() + std::ptrdiff_t(at));
  }
}

// The layers of a picture, with their channels.
bool hasSameLayers(const Picture& a, const Picture& b) {
  return std::equal(a.layers.begin(), a.layers.end(), b.layers.begin(), b.layers.end(),
                    [](const Layer& x, const Layer& y) {
                      return x.name == y.name && x.channels == y.channels && x.type == y.type;
                    });
}

Picture join(const Renderer& r, const nb::sequence& bands) {
  Picture picture = r.renderer->makePicture();
  int row = 0;
  for (const nb::handle item : bands) {
    const Picture& band = nb::cast<const Picture&>(item);
    const std::string name = "the band at row " + std::to_string(row);
    if (band.width != picture.width || !hasSameLayers(band, picture) ||
        band.manifest != picture.manifest)
      refuse(name + " is of another picture");
    if (band.height > picture.height - row)
      refuse(name + " is higher than what is left of the picture");
    copyRows(band, static_cast<std::size_t>(row), picture);
    row += band.height;
  }
  if (row != picture.height)
    refuse("the bands have " + std::to_string(row) + " rows, and the picture has " +
           std::to_string(picture.height));
  r.renderer->addManifests(picture);
  return picture;
}

void bindRenderer(nb::module_& m) {
  nb::class_<Renderer> renderer(
      m, "PictureRenderer",
      "A picture that is set up once and rendered whole or tile by tile. The stage cannot change "
      "while "
      "it renders, and must not between its calls.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> options = vela.picture.RenderOptions(samples=1, layers=['depth'])\n"
      ">>> options.view.width, options.view.height = 64, 36\n"
      ">>> renderer = vela.picture.PictureRenderer(stage, options)\n"
      ">>> whole = renderer.render_all()\n>>> part = renderer.render_region((8, 4, 40, 20))\n"
      ">>> (part['depth'] == whole['depth'][4:20, 8:40]).all().item()\nTrue");
  renderer
      .def(
          "__init__",
          [](Renderer* self, const StagePtr& stage, const RenderOptions& options,
             nb::object progress) {
            const StageReader reader(stage);
            const Busy::Reading registry(registryUse(), "the channel registry");
            // Channels that layers need are made while nobody else can ask the registry.
            std::string why;
            if (!chooseLayers(options.layers, &why)) refuse(why);
            InterruptibleWork work(std::move(progress));
            Renderer made;
            made.stage = stage;
            {
              const Unlocked unlocked;
              made.renderer = PictureRenderer::make(stage, options, &made.problems, work.work());
            }
            work.rethrow();
            if (!made.renderer) {
              if (made.problems.empty()) refuse("the picture cannot be made");
              refuseProblem(made.problems.back());
            }
            new (self) Renderer(std::move(made));
          },
          nb::arg("stage"), nb::arg("options") = RenderOptions(), nb::arg("progress") = nb::none(),
          nb::sig("def __init__(self, stage: vela._vela.ovo.Stage, options: RenderOptions = ..., "
                  "progress: typing.Callable[[float], object] | None = None) -> None"))
      .def_prop_ro(
          "width", [](const Renderer& r) { return r.renderer->width(); }, "Pixels.")
      .def_prop_ro(
          "height", [](const Renderer& r) { return r.renderer->height(); }, "Pixels.")
      .def_prop_ro(
          "window",
          [](const Renderer& r) {
            const Tile window = r.renderer->window();
            return std::tuple(window.x0, window.y0, window.x1, window.y1);
          },
          "What is rendered: (x0, y0, x1, y1), with the overscan.")
      .def_prop_ro(
          "moments", [](const Renderer& r) { return r.renderer->moments(); },
          "When samples are taken while the shutter is open; none without motion.")
      .def_prop_ro(
          "problems", [](const Renderer& r) { return r.problems; },
          "What was left out or passed over, as notes and warnings.")
      .def_prop_ro(
          "view", [](const Renderer& r) -> const scene::View& { return r.renderer->view(); },
          nb::rv_policy::reference_internal, "Camera, lens and size.")
      .def_prop_ro(
          "extent", [](const Renderer& r) { return r.renderer->extent(); }, "Of what shows.")
      .def(
          "entry_names",
          [](const Renderer& r) {
            nb::list out;
            const scene::MeshList& list = r.renderer->meshes();
            for (std::size_t i = 0; i < list.entries.size(); ++i)
              out.append(textOut(nameOf(list, i)));
            return out;
          },
          nb::sig("def entry_names(self) -> list[str]"), "The names of what shows, entry by entry.")
      .def(
          "layer_names",
          [](const Renderer& r) {
            std::vector<std::string> out;
            for (const ChosenLayer& layer : r.renderer->layers().layers) out.push_back(layer.name);
            return out;
          },
          "The picture's layers.")
      .def(
          "render_all",
          [](const Renderer& r, int threads, nb::object progress) {
            const StageReader reader(r.stage);
            InterruptibleWork work(std::move(progress));
            std::optional<Picture> made;
            {
              const Unlocked unlocked;
              made = r.renderer->renderAll(threads, work.work());
            }
            work.rethrow();
            if (!made) refuse("rendering was stopped");
            return std::move(*made);
          },
          nb::arg("threads") = 0, nb::arg("progress") = nb::none(),
          nb::sig(
              "def render_all(self, threads: int = 0, progress: typing.Callable[[float], object] | "
              "None = None) -> Picture"),
          "Renders everything; `progress` gets a number from 0 to 1. Ctrl-C stops it.")
      .def(
          "render_region",
          [](const Renderer& r, std::tuple<int, int, int, int> region, int threads,
             nb::object progress) {
            const auto [x0, y0, x1, y1] = region;
            const StageReader reader(r.stage);
            InterruptibleWork work(std::move(progress));
            std::optional<Picture> made;
            {
              const Unlocked unlocked;
              made = r.renderer->renderRegion({x0, y0, x1, y1}, threads, work.work());
            }
            work.rethrow();
            if (!made) refuse("rendering was stopped");
            return std::move(*made);
          },
          nb::arg("region"), nb::arg("threads") = 0, nb::arg("progress") = nb::none(),
          nb::sig("def render_region(self, region: tuple[int, int, int, int], threads: int = 0, "
                  "progress: "
                  "typing.Callable[[float], object] | None = None) -> Picture"),
          "Renders pixels from (x0, y0) up to but without (x1, y1), as a picture of its own.")
      .def(
          "join", [](const Renderer& r, const nb::sequence& bands) { return join(r, bands); },
          nb::arg("bands"), nb::sig("def join(self, bands: typing.Sequence[Picture]) -> Picture"),
          "The whole picture from bands of rows, from the top to the bottom, as render_region made "
          "them, here or in another process. ValueError when they are of another picture or do not "
          "fill this one.\n\n"
          ">>> stage = vela.open('examples/demo/demo.usda')\n"
          ">>> options = vela.picture.RenderOptions(samples=1, layers=['depth'])\n"
          ">>> options.view.width, options.view.height = 64, 36\n"
          ">>> renderer = vela.picture.PictureRenderer(stage, options)\n"
          ">>> bands = [renderer.render_region((0, y, 64, y + 18)) for y in (0, 18)]\n"
          ">>> renderer.join(bands) == renderer.render_all()\nTrue")
      .def_prop_ro(
          "rays_traced", [](const Renderer& r) { return r.renderer->raysTraced(); },
          "By all calls until now.")
      .def_prop_ro(
          "stats", [](const Renderer& r) { return r.renderer->stats(); }, "With its parts.")
      .def("__repr__", [](const Renderer& r) {
        return "<PictureRenderer " + std::to_string(r.renderer->width()) + "x" +
               std::to_string(r.renderer->height()) + ">";
      });
  refusePickle(renderer, "its trees are built in memory; pickle its options");
}

}  // namespace

void bindPicture(nb::module_& m) {
  bindPictures(m);
  bindLayers(m);
  bindOptions(m);
  bindRenderer(m);
}

}  // namespace vela::python
