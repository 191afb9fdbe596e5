#include "vela/picture/ExrFile.h"

#include <ImathMatrix.h>
#include <ImathVec.h>
#include <ImfChannelList.h>
#include <ImfFloatAttribute.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfOutputFile.h>
#include <ImfStdIO.h>
#include <ImfStringAttribute.h>
#include <ImfVecAttribute.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fstream>
#include <new>
#include <set>
#include <variant>

#include <nlohmann/json.hpp>

namespace vela::picture {

namespace {

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
  void operator()(float v) const { header.insert(name, Imf::FloatAttribute(v)); }
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

// Why a picture cannot be written, whatever the file; empty when it can.
std::string whatIsWrong(const Picture& picture) {
  if (picture.width < 1 || picture.height < 1) return "the picture has no pixels";
  if (picture.layers.empty()) return "the picture has no layers";
  std::set<std::string> channels, attributes;
  for (const Layer& layer : picture.layers) {
    const std::size_t values =
        layer.type == ValueType::float32 ? layer.floats.size() : layer.integers.size();
    if (values != picture.pixelCount() * layer.channels.size())
      return "the layer " + layer.name + " has " + std::to_string(values) + " values, not " +
             std::to_string(picture.pixelCount() * layer.channels.size());
    for (const std::string& channel : layer.channels)
      if (!channels.insert(channel).second) return "the channel " + channel + " is there twice";
  }
  if (channels.empty()) return "the picture has no channels";
  if (picture.hasLayer("prim")) attributes.insert("prim/manifest");
  for (const Attribute& attribute : picture.attributes)
    if (!attributes.insert(attribute.name).second)
      return "the attribute " + attribute.name + " is there twice";
  return {};
}

Imf::Header headerOf(const Picture& picture) {
  Imf::Header header(picture.width, picture.height);
  header.compression() = Imf::ZIP_COMPRESSION;
  for (const Attribute& attribute : picture.attributes)
    std::visit(AttributeWriter{header, attribute.name}, attribute.value);
  if (picture.hasLayer("prim"))
    header.insert("prim/manifest", Imf::StringAttribute(manifestText(picture.manifest)));
  for (const Layer& layer : picture.layers)
    for (const std::string& channel : layer.channels)
      header.channels().insert(
          channel, Imf::Channel(layer.type == ValueType::float32 ? Imf::FLOAT : Imf::UINT));
  return header;
}

void writePixels(const Picture& picture, Imf::OutputFile& output) {
  static_assert(sizeof(float) == sizeof(std::uint32_t));
  Imf::FrameBuffer buffer;
  for (const Layer& layer : picture.layers) {
    const bool isFloat = layer.type == ValueType::float32;
    const void* values = isFloat ? static_cast<const void*>(layer.floats.data())
                                 : static_cast<const void*>(layer.integers.data());
    const std::size_t step = sizeof(float) * layer.channels.size();
    for (std::size_t i = 0; i < layer.channels.size(); ++i) {
      // The frame buffer of a file that is written is only read.
      char* base = static_cast<char*>(const_cast<void*>(values)) + i * sizeof(float);
      buffer.insert(layer.channels[i], Imf::Slice(isFloat ? Imf::FLOAT : Imf::UINT, base, step,
                                                  step * static_cast<std::size_t>(picture.width)));
    }
  }
  output.setFrameBuffer(buffer);
  output.writePixels(picture.height);
}

// The picture is one that a file can hold.
bool write(const Picture& picture, Imf::OStream& stream, int threads, std::string& why) {
  try {
    Imf::OutputFile output(stream, headerOf(picture), std::max(threads, 0));
    writePixels(picture, output);
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    why = exception.what();
    return false;
  }
}

// The stream is this code's own: OpenEXR writes a file's last bytes where it hears of no error.
bool write(const Picture& picture, const std::string& file, int threads, std::string& why) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out) {
    why = std::strerror(errno);
    return false;
  }
  {
    Imf::StdOFStream stream(out, file.c_str());
    if (!write(picture, stream, threads, why)) return false;
  }
  out.close();
  if (!out) why = std::strerror(errno);
  return out.good();
}

bool fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

}  // namespace

bool writeExr(const Picture& picture, const std::string& file, int threads, std::string* error) {
  std::string why = whatIsWrong(picture);
  return why.empty() && write(picture, file, threads, why) ? true : fail(error, why);
}

bool writeExr(const Picture& picture, std::vector<unsigned char>& bytes, int threads,
              std::string* error) {
  bytes.clear();
  std::string why = whatIsWrong(picture);
  MemoryStream stream(bytes);
  if (why.empty() && write(picture, stream, threads, why)) return true;
  bytes.clear();
  return fail(error, why);
}

std::string manifestText(const std::vector<std::string>& manifest) {
  // Keys stay in the order of the code. By push: looking every name up for its place would take
  // quadratic time in an ordered object.
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  auto& members = json.get_ref<nlohmann::ordered_json::object_t&>();
  for (std::size_t i = 0; i < manifest.size(); ++i) members.emplace_back(manifest[i], i + 1);
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace vela::picture
