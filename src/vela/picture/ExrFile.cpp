#include "vela/picture/ExrFile.h"

#include <ImathMatrix.h>
#include <ImathVec.h>
#include <ImfChannelList.h>
#include <ImfFloatAttribute.h>
#include <ImfFrameBuffer.h>
#include <ImfFramesPerSecond.h>
#include <ImfHeader.h>
#include <ImfIDManifest.h>
#include <ImfIO.h>
#include <ImfInputPart.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfMultiPartInputFile.h>
#include <ImfOutputFile.h>
#include <ImfRationalAttribute.h>
#include <ImfStandardAttributes.h>
#include <ImfStdIO.h>
#include <ImfStringAttribute.h>
#include <ImfVecAttribute.h>
#include <half.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fstream>
#include <new>
#include <set>
#include <utility>
#include <variant>

#include <nlohmann/json.hpp>

#include "vela/picture/LayerTable.h"

namespace vela::picture {

namespace {

// One JSON object from names to numbers, in this order.
std::string manifestOf(const std::vector<std::pair<std::string, std::uint32_t>>& names) {
  // By push: looking every name up for its place would take quadratic time in an ordered object.
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  auto& members = json.get_ref<nlohmann::ordered_json::object_t&>();
  for (const auto& [name, number] : names) members.emplace_back(name, number);
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// A file in memory.
class MemoryStream final : public Imf::OStream {
 public:
  explicit MemoryStream(std::vector<unsigned char>& bytes) : OStream("memory"), bytes_(bytes) {}
  void write(const char c[], int n) override {
    const auto count = static_cast<std::size_t>(n);
    if (bytes_.size() < at_ + count) bytes_.resize(at_ + count);
    std::copy_n(c, count, reinterpret_cast<char*>(bytes_.data()) + at_);
    at_ += count;
  }
  std::uint64_t tellp() override { return at_; }
  void seekp(std::uint64_t at) override { at_ = static_cast<std::size_t>(at); }

 private:
  std::vector<unsigned char>& bytes_;
  std::size_t at_ = 0;
};

// The attribute of each type that a picture's attributes may have.
struct AttributeWriter {
  Imf::Header& header;
  const std::string& name;

  void operator()(const std::string& v) const { header.insert(name, Imf::StringAttribute(v)); }
  void operator()(int v) const { header.insert(name, Imf::IntAttribute(v)); }
  void operator()(float v) const {
    // What OpenEXR has as a rational number of its own.
    if (name == "framesPerSecond")
      header.insert(name, Imf::RationalAttribute(Imf::guessExactFps(static_cast<double>(v))));
    else
      header.insert(name, Imf::FloatAttribute(v));
  }
  void operator()(const tarn::Vec2f& v) const {
    header.insert(name, Imf::V2fAttribute(Imath::V2f(v.x, v.y)));
  }
  // OpenEXR multiplies row vectors: its matrices have tarn's storage.
  void operator()(const tarn::Mat4f& v) const {
    Imath::M44f matrix;
    for (std::size_t i = 0; i < 16; ++i) matrix.x[i / 4][i % 4] = v[i];
    header.insert(name, Imf::M44fAttribute(matrix));
  }
};

// Colour may be mixed and rounded; other values are exact or wrong.
bool isColour(const std::string& layer) {
  const LayerInfo* info = findLayerInfo(layer);
  return info && info->type == ValueType::float32 && info->sampling == Sampling::meanOfSamples;
}

bool losesSomething(Compression compression) { return compression >= Compression::pxr24; }

// Why a picture cannot be written, whatever the file; empty when it can.
std::string whatIsWrong(const Picture& picture, const ExrOptions& options) {
  if (picture.width < 1 || picture.height < 1) return "the picture has no pixels";
  if (picture.layers.empty()) return "the picture has no layers";
  std::set<std::string> channels, attributes;
  std::vector<std::string> names;
  for (const Layer& layer : picture.layers) {
    const std::size_t values =
        layer.type == ValueType::float32 ? layer.floats.size() : layer.integers.size();
    if (values != picture.pixelCount() * layer.channels.size())
      return "the layer " + layer.name + " has " + std::to_string(values) + " values, not " +
             std::to_string(picture.pixelCount() * layer.channels.size());
    for (const std::string& channel : layer.channels)
      if (!channels.insert(channel).second) return "the channel " + channel + " is there twice";
    names.push_back(layer.name);
  }
  if (channels.empty()) return "the picture has no channels";
  if (picture.hasLayer("prim")) attributes = {"prim/manifest", "idManifest"};
  for (const Attribute& attribute : picture.attributes)
    if (!attributes.insert(attribute.name).second)
      return "the attribute " + attribute.name + " is there twice";
  return whyNotWritten(names, options);
}

// The numbers of a layer of integers that a picture shows, ascending, each once and none 0.
std::vector<std::uint32_t> numbersShown(const Layer& layer) {
  std::vector<std::uint32_t> numbers;
  for (const std::uint32_t number : layer.integers)
    // Neighbours mostly show the same.
    if (number != 0 && (numbers.empty() || numbers.back() != number)) numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

// How the values of a layer stand in the file.
Imf::PixelType fileTypeOf(const Layer& layer, const ExrOptions& options) {
  if (layer.type == ValueType::float32)
    return options.halfColour && isColour(layer.name) ? Imf::HALF : Imf::FLOAT;
  // All whole numbers up to this one are floats.
  constexpr std::uint32_t kExact = 1u << 24;
  const bool fits = std::all_of(layer.integers.begin(), layer.integers.end(),
                                [](std::uint32_t value) { return value <= kExact; });
  return fits ? Imf::FLOAT : Imf::UINT;
}

// The names of what the layer `prim` shows: for programs that know OpenEXR's own manifest, and as
// text for all others.
void insertManifest(const Picture& picture, const ExrOptions& options, Imf::Header& header) {
  for (const Layer& layer : picture.layers) {
    if (layer.name != "prim") continue;
    Imf::IDManifest manifest;
    Imf::IDManifest::ChannelGroupManifest group;
    group.setChannels({layer.channels.begin(), layer.channels.end()});
    group.setComponents({"path"});
    // An instance more or less, and the next frame counts otherwise.
    group.setLifetime(Imf::IDManifest::LIFETIME_FRAME);
    group.setHashScheme(Imf::IDManifest::NOTHASHED);
    group.setEncodingScheme(fileTypeOf(layer, options) == Imf::UINT ? Imf::IDManifest::ID_SCHEME
                                                                    : "float");
    std::vector<std::pair<std::string, std::uint32_t>> names;
    for (const std::uint32_t number : numbersShown(layer)) {
      if (number > picture.manifest.size()) continue;
      names.emplace_back(picture.manifest[number - 1], number);
      group.insert(number, names.back().first);
    }
    manifest.add(group);
    Imf::addIDManifest(header, Imf::CompressedIDManifest(manifest));
    header.insert("prim/manifest", Imf::StringAttribute(manifestOf(names)));
  }
}

Imath::Box2i dataWindowOf(const Picture& picture, const ExrOptions& options) {
  return {{options.x, options.y}, {options.x + picture.width - 1, options.y + picture.height - 1}};
}

Imath::Box2i displayWindowOf(const Picture& picture, const ExrOptions& options) {
  Imath::V2i end = dataWindowOf(picture, options).max;
  if (options.displayWidth > 0) end.x = options.displayWidth - 1;
  if (options.displayHeight > 0) end.y = options.displayHeight - 1;
  return {{0, 0}, end};
}

Imf::Header headerOf(const Picture& picture, const ExrOptions& options) {
  Imf::Header header(displayWindowOf(picture, options), dataWindowOf(picture, options));
  header.compression() = static_cast<Imf::Compression>(options.compression);
  for (const Attribute& attribute : picture.attributes)
    std::visit(AttributeWriter{header, attribute.name}, attribute.value);
  insertManifest(picture, options, header);
  for (const Layer& layer : picture.layers)
    for (const std::string& channel : layer.channels)
      header.channels().insert(channel, Imf::Channel(fileTypeOf(layer, options)));
  return header;
}

// A half float of every value: what is finite stays so.
std::vector<half> halved(const std::vector<float>& values) {
  static constexpr float kMost = HALF_MAX;
  std::vector<half> halves(values.size());
  std::transform(values.begin(), values.end(), halves.begin(), [](float value) {
    return half(std::isfinite(value) ? std::clamp(value, -kMost, kMost) : value);
  });
  return halves;
}

// The values of a layer as the file has them, which may be those of the picture itself.
class FileValues {
 public:
  FileValues(const Layer& layer, const ExrOptions& options) : type_(fileTypeOf(layer, options)) {
    if (type_ == Imf::HALF) {
      halves_ = halved(layer.floats);
      data_ = halves_.data();
      size_ = sizeof(half);
    } else if (layer.type == ValueType::uint32 && type_ == Imf::FLOAT) {
      floats_.assign(layer.integers.begin(), layer.integers.end());
      data_ = floats_.data();
    } else {
      data_ = layer.type == ValueType::float32 ? static_cast<const void*>(layer.floats.data())
                                               : static_cast<const void*>(layer.integers.data());
    }
  }

  // The slice of one of a layer's channels, of a picture that wide.
  [[nodiscard]] Imf::Slice slice(std::size_t channel, std::size_t channels,
                                 const Imath::Box2i& window) const {
    // The frame buffer of a file that is written is only read.
    char* const first = static_cast<char*>(const_cast<void*>(data_)) + channel * size_;
    const std::size_t step = size_ * channels;
    const auto width = static_cast<std::size_t>(window.max.x - window.min.x) + 1;
    return Imf::Slice::Make(type_, first, window, step, step * width);
  }

 private:
  Imf::PixelType type_;
  std::vector<half> halves_;
  std::vector<float> floats_;
  const void* data_ = nullptr;
  std::size_t size_ = sizeof(float);
};

void writePixels(const Picture& picture, const ExrOptions& options, Imf::OutputFile& output) {
  static_assert(sizeof(float) == sizeof(std::uint32_t));
  std::vector<FileValues> values;
  values.reserve(picture.layers.size());
  Imf::FrameBuffer buffer;
  for (const Layer& layer : picture.layers) {
    values.emplace_back(layer, options);
    for (std::size_t i = 0; i < layer.channels.size(); ++i)
      buffer.insert(layer.channels[i],
                    values.back().slice(i, layer.channels.size(), output.header().dataWindow()));
  }
  output.setFrameBuffer(buffer);
  output.writePixels(picture.height);
}

// The picture is one that a file can hold.
bool write(const Picture& picture, Imf::OStream& stream, const ExrOptions& options,
           std::string& why) {
  try {
    Imf::OutputFile output(stream, headerOf(picture, options), std::max(options.threads, 0));
    writePixels(picture, options, output);
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    why = exception.what();
    return false;
  }
}

// The stream is this code's own: OpenEXR writes a file's last bytes where it hears of no error.
bool write(const Picture& picture, const std::string& file, const ExrOptions& options,
           std::string& why) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out) {
    why = std::strerror(errno);
    return false;
  }
  errno = 0;
  {
    Imf::StdOFStream stream(out, file.c_str());
    if (!write(picture, stream, options, why)) {
      // OpenEXR's own words hold the file's name, and the reason behind it.
      if (!out && errno != 0) why = std::strerror(errno);
      return false;
    }
  }
  out.close();
  if (!out) why = std::strerror(errno);
  return out.good();
}

bool fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

// `Cannot read image file "FILE". REASON.` without its head and full stop: callers know the file.
std::string reasonOf(const std::exception& exception, const std::string& file) {
  std::string text = exception.what();
  const std::string name = '"' + file + "\". ";
  if (const std::size_t at = text.find(name); at != std::string::npos)
    text.erase(0, at + name.size());
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

}  // namespace

std::optional<Compression> findCompression(std::string_view name) {
  const std::vector<std::string>& names = compressionNames();
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<Compression>(found - names.begin());
}

const std::vector<std::string>& compressionNames() {
  static const std::vector<std::string> names = {"none",  "rle", "zips", "zip",  "piz",
                                                 "pxr24", "b44", "b44a", "dwaa", "dwab"};
  static_assert(static_cast<int>(Compression::dwab) == static_cast<int>(Imf::DWAB_COMPRESSION) &&
                static_cast<int>(Compression::zip) == static_cast<int>(Imf::ZIP_COMPRESSION));
  return names;
}

std::string whyNotWritten(const std::vector<std::string>& layers, const ExrOptions& options) {
  if (!losesSomething(options.compression)) return {};
  for (const std::string& layer : layers)
    if (!isColour(layer))
      return compressionNames()[static_cast<std::size_t>(options.compression)] +
             " is for colour alone: it would change the values of " + layer;
  return {};
}

bool writeExr(const Picture& picture, const std::string& file, const ExrOptions& options,
              std::string* error) {
  std::string why = whatIsWrong(picture, options);
  return why.empty() && write(picture, file, options, why) ? true : fail(error, why);
}

bool writeExr(const Picture& picture, std::vector<unsigned char>& bytes, const ExrOptions& options,
              std::string* error) {
  bytes.clear();
  std::string why = whatIsWrong(picture, options);
  MemoryStream stream(bytes);
  if (why.empty() && write(picture, stream, options, why)) return true;
  bytes.clear();
  return fail(error, why);
}

bool writeExr(const Picture& picture, const std::string& file, int threads, std::string* error) {
  ExrOptions options;
  options.threads = threads;
  return writeExr(picture, file, options, error);
}

bool writeExr(const Picture& picture, std::vector<unsigned char>& bytes, int threads,
              std::string* error) {
  ExrOptions options;
  options.threads = threads;
  return writeExr(picture, bytes, options, error);
}

std::optional<std::string> readExrText(const std::string& file, const std::string& attribute,
                                       std::string* error) {
  try {
    const Imf::MultiPartInputFile input(file.c_str(), 0);
    if (const auto* text = input.header(0).findTypedAttribute<Imf::StringAttribute>(attribute))
      return text->value();
    fail(error, "its header has no " + attribute);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    fail(error, reasonOf(exception, file));
  }
  return std::nullopt;
}

bool isWholeExr(const std::string& file, std::string* error) {
  try {
    Imf::MultiPartInputFile input(file.c_str(), 0);
    for (int i = 0; i < input.parts(); ++i) {
      if (!input.partComplete(i)) return fail(error, "rows of it are missing");
      Imf::InputPart part(input, i);
      const Imath::Box2i window = part.header().dataWindow();
      const auto& channels = part.header().channels();
      auto channel = channels.begin();
      while (channel != channels.end() &&
             (channel.channel().xSampling != 1 || channel.channel().ySampling != 1))
        ++channel;
      if (channel == channels.end()) continue;
      // Rows lie in the file from top to bottom or the other way around: either end may be the one
      // that is cut off.
      std::vector<float> row(static_cast<std::size_t>(window.max.x - window.min.x) + 1);
      for (const int y : {window.min.y, window.max.y}) {
        Imf::FrameBuffer buffer;
        buffer.insert(channel.name(), Imf::Slice::Make(Imf::FLOAT, row.data(),
                                                       Imath::Box2i(Imath::V2i(window.min.x, y),
                                                                    Imath::V2i(window.max.x, y))));
        part.setFrameBuffer(buffer);
        part.readPixels(y);
      }
    }
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    return fail(error, reasonOf(exception, file));
  }
}

bool readExr(const std::string& file, Picture& picture, Tile& part, std::string* error) {
  return readExr(file, picture, ExrOptions(), part, error);
}

bool readExr(const std::string& file, Picture& picture, const ExrOptions& place, Tile& part,
             std::string* error) {
  const std::string wrong = whatIsWrong(picture, {});
  if (!wrong.empty()) return fail(error, wrong);
  try {
    Imf::MultiPartInputFile input(file.c_str(), 0);
    if (input.parts() != 1 || !input.partComplete(0)) return fail(error, "rows of it are missing");
    Imf::InputPart pixels(input, 0);
    const Imf::Header& header = pixels.header();
    const Imath::Box2i display = header.displayWindow(), window = header.dataWindow();
    const Imath::Box2i frame = displayWindowOf(picture, place),
                       whole = dataWindowOf(picture, place);
    if (display != frame || !whole.intersects(window.min) || !whole.intersects(window.max))
      return fail(error, "it is of a picture of " +
                             std::to_string(std::int64_t{display.max.x} + 1) + " x " +
                             std::to_string(std::int64_t{display.max.y} + 1) + " pixels");
    Imf::FrameBuffer buffer;
    for (Layer& layer : picture.layers) {
      const bool isFloat = layer.type == ValueType::float32;
      char* const first = isFloat ? reinterpret_cast<char*>(layer.floats.data())
                                  : reinterpret_cast<char*>(layer.integers.data());
      const std::size_t step = sizeof(float) * layer.channels.size();
      for (std::size_t i = 0; i < layer.channels.size(); ++i) {
        const Imf::Channel* channel = header.channels().findChannel(layer.channels[i]);
        if (!channel || channel->xSampling != 1 || channel->ySampling != 1)
          return fail(error, "it has no channel " + layer.channels[i]);
        buffer.insert(
            layer.channels[i],
            Imf::Slice::Make(isFloat ? Imf::FLOAT : Imf::UINT, first + i * sizeof(float), whole,
                             step, step * static_cast<std::size_t>(picture.width)));
      }
    }
    pixels.setFrameBuffer(buffer);
    pixels.readPixels(window.min.y, window.max.y);
    part = {window.min.x, window.min.y, window.max.x + 1, window.max.y + 1};
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    return fail(error, exception.what());
  }
}

std::string manifestText(const std::vector<std::string>& manifest) {
  std::vector<std::pair<std::string, std::uint32_t>> names;
  names.reserve(manifest.size());
  for (const std::string& name : manifest)
    names.emplace_back(name, static_cast<std::uint32_t>(names.size() + 1));
  return manifestOf(names);
}

}  // namespace vela::picture
