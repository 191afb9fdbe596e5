#include "vela/look/PreviewMaterial.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "ovo/Path.h"
#include "ovo/Stage.h"

namespace vela::look {

namespace {

using ovo::Path;
using ovo::Prim;
using ovo::PropertyLinks;
using ovo::Token;
using tarn::Vec2f;
using tarn::Vec3f;
using tarn::Vec4f;

constexpr Vec4f all(float value) { return {value, value, value, value}; }
constexpr Vec4f colour(float r, float g, float b) { return {r, g, b, 0.0f}; }

struct InputRow {
  const char* name;
  Vec4f value;
};

// In the order of SurfaceInput.
constexpr InputRow kInputs[kSurfaceInputs] = {
    {"diffuseColor", colour(0.18f, 0.18f, 0.18f)},
    {"emissiveColor", colour(0.0f, 0.0f, 0.0f)},
    {"specularColor", colour(0.0f, 0.0f, 0.0f)},
    {"metallic", all(0.0f)},
    {"roughness", all(0.5f)},
    {"clearcoat", all(0.0f)},
    {"clearcoatRoughness", all(0.01f)},
    {"opacity", all(1.0f)},
    {"opacityThreshold", all(0.0f)},
    {"ior", all(1.5f)},
    {"normal", colour(0.0f, 0.0f, 1.0f)},
    {"displacement", all(0.0f)},
    {"occlusion", all(1.0f)},
};

bool startsWith(const std::string& text, const char* head) {
  return text.compare(0, std::strlen(head), head) == 0;
}

// Numbers of any type as four: a single one in all places, of vectors the missing ones 0.
bool readNumbers(const ovo::Attribute& attribute, double time, Vec4f& out) {
  float one = 0.0f;
  int whole = 0;
  bool flag = false;
  Vec2f two;
  Vec3f three;
  Vec4f four;
  tarn::Vec2<int> twoWhole;
  tarn::Vec3<int> threeWhole;
  if (attribute.get(one, time))
    out = all(one);
  else if (attribute.get(three, time))
    out = {three.x, three.y, three.z, 0.0f};
  else if (attribute.get(four, time))
    out = four;
  else if (attribute.get(two, time))
    out = {two.x, two.y, 0.0f, 0.0f};
  else if (attribute.get(whole, time))
    out = all(static_cast<float>(whole));
  else if (attribute.get(flag, time))
    out = all(flag ? 1.0f : 0.0f);
  else if (attribute.get(twoWhole, time))
    out = {static_cast<float>(twoWhole.x), static_cast<float>(twoWhole.y), 0.0f, 0.0f};
  else if (attribute.get(threeWhole, time))
    out = {static_cast<float>(threeWhole.x), static_cast<float>(threeWhole.y),
           static_cast<float>(threeWhole.z), 0.0f};
  else
    return false;
  return true;
}

class Reader {
 public:
  Reader(const ovo::Stage& stage, double time, PreviewMaterial& out)
      : stage_(stage), time_(time), out_(out) {}

  // What a property leads to: a value that the scene gives, or an output of a shader.
  struct Source {
    Prim prim;
    Token property;
    bool isShader = false;
  };

  // The first connection that leads to something; else the property's own value.
  std::optional<Source> follow(const Prim& prim, const Token& property, bool valuesOnly) {
    const Path at(prim.getPath().asString() + "." + property.asString());
    if (depth_ >= kDeepest || !open_.insert(at).second) return std::nullopt;
    ++depth_;
    std::optional<Source> found = followConnections(prim, property, valuesOnly);
    --depth_;
    open_.erase(at);
    if (!found && prim.getAttr(property).hasAuthoredValue()) found = Source{prim, property, false};
    return found;
  }

  NetworkValue value(const Prim& prim, const char* input, const Vec4f& defined,
                     bool valuesOnly = false) {
    NetworkValue value;
    value.constant = defined;
    const std::optional<Source> source =
        follow(prim, Token(std::string("inputs:") + input), valuesOnly);
    if (!source) return value;
    if (!source->isShader) {
      readNumbers(source->prim.getAttr(source->property), time_, value.constant);
      return value;
    }
    value.node = nodeAt(source->prim);
    const std::string name = source->property.asString().substr(std::strlen("outputs:"));
    value.output = name == "r"   ? NodeOutput::r
                   : name == "g" ? NodeOutput::g
                   : name == "b" ? NodeOutput::b
                   : name == "a" ? NodeOutput::a
                                 : NodeOutput::rgb;
    return value;
  }

  Vec4f constant(const Prim& prim, const char* input, const Vec4f& defined) {
    return value(prim, input, defined, true).constant;
  }

  std::string word(const Prim& prim, const char* input, const char* defined) {
    const std::optional<Source> source = follow(prim, Token(std::string("inputs:") + input), true);
    std::string text;
    return source && source->prim.getAttr(source->property).get(text, time_) ? text : defined;
  }

  static std::string shaderOf(const Prim& prim) {
    Token way, id;
    prim.getAttr("info:implementationSource").get(way);
    if (!way.isEmpty() && way != "id") return {};
    prim.getAttr("info:id").get(id);
    return id.asString();
  }

 private:
  // Recursion follows the scene's connections; this keeps it within any stack.
  static constexpr int kDeepest = 1000;

  std::optional<Source> followConnections(const Prim& prim, const Token& property,
                                          bool valuesOnly) {
    std::vector<Path> sources, ignored;
    PropertyLinks(prim).connections(property, sources);
    for (const Path& path : sources) {
      Path primPath;
      Token name;
      PropertyLinks::split(path, primPath, name);
      const bool isOutput = startsWith(name.asString(), "outputs:");
      if (!isOutput && !startsWith(name.asString(), "inputs:")) continue;
      // A property that the scene does not have is no source.
      const Prim from = stage_.getPrimAtPath(primPath);
      if (!from.isValid() || !PropertyLinks(from).connections(name, ignored)) continue;
      if (from.getTypeName() == "Shader") {
        if (isOutput && !valuesOnly) return Source{from, name, true};
      } else if (from.getTypeName() == "Material" || from.getTypeName() == "NodeGraph") {
        if (auto found = follow(from, name, valuesOnly)) return found;
      }
    }
    return std::nullopt;
  }

  // The node of a shader, read when it is needed first; -1 for shaders that give nothing here, and
  // for those that take values from themselves.
  int nodeAt(const Prim& shader) {
    const auto [place, isNew] = nodes_.try_emplace(shader.getPath(), -1);
    if (!isNew || depth_ >= kDeepest) return place->second;
    ++depth_;
    std::optional<NetworkNode> node = readNode(shader);
    --depth_;
    if (!node) return -1;
    node->path = shader.getPath().asString();
    out_.nodes.push_back(*std::move(node));
    return nodes_[shader.getPath()] = static_cast<int>(out_.nodes.size()) - 1;
  }

  std::optional<NetworkNode> readNode(const Prim& shader) {
    const std::string id = shaderOf(shader);
    if (id == "UsdUVTexture") return readTexture(shader);
    if (id == "UsdTransform2d") return readTransform(shader);
    if (startsWith(id, "UsdPrimvarReader_"))
      return readPrimvar(shader, id.substr(std::strlen("UsdPrimvarReader_")));
    return std::nullopt;
  }

  NetworkNode readTexture(const Prim& shader) {
    NetworkNode node;
    node.kind = NetworkNode::Kind::texture;
    node.coordinates = value(shader, "st", all(0.0f));
    // A text that is no file name to the scene is none here.
    if (const auto file = follow(shader, Token("inputs:file"), true);
        file && file->prim.getAttr(file->property).typeName() == "asset")
      PropertyLinks(file->prim).file(file->property, node.file, time_);
    node.wrapS = wrapOf(word(shader, "wrapS", "useMetadata"));
    node.wrapT = wrapOf(word(shader, "wrapT", "useMetadata"));
    node.fallback = constant(shader, "fallback", {0.0f, 0.0f, 0.0f, 1.0f});
    node.scale = constant(shader, "scale", all(1.0f));
    node.bias = constant(shader, "bias", all(0.0f));
    const std::string space = word(shader, "sourceColorSpace", "auto");
    node.colourSpace = space == "raw"    ? NetworkNode::ColourSpace::raw
                       : space == "sRGB" ? NetworkNode::ColourSpace::srgb
                                         : NetworkNode::ColourSpace::automatic;
    return node;
  }

  // Images whose wrap is left to them say nothing of it.
  static NetworkNode::Wrap wrapOf(const std::string& word) {
    using Wrap = NetworkNode::Wrap;
    return word == "clamp"    ? Wrap::clamp
           : word == "repeat" ? Wrap::repeat
           : word == "mirror" ? Wrap::mirror
                              : Wrap::black;
  }

  NetworkNode readTransform(const Prim& shader) {
    NetworkNode node;
    node.kind = NetworkNode::Kind::transform;
    node.coordinates = value(shader, "in", all(0.0f));
    node.rotation = constant(shader, "rotation", all(0.0f)).x;
    const Vec4f scale = constant(shader, "scale", all(1.0f));
    const Vec4f translation = constant(shader, "translation", all(0.0f));
    node.scaling = {scale.x, scale.y};
    node.translation = {translation.x, translation.y};
    return node;
  }

  NetworkNode readPrimvar(const Prim& shader, const std::string& type) {
    NetworkNode node;
    node.kind = NetworkNode::Kind::primvar;
    node.primvar = Token(word(shader, "varname", ""));
    node.components = type == "float" || type == "int"       ? 1
                      : type == "float2"                     ? 2
                      : type == "float4"                     ? 4
                      : type == "string" || type == "matrix" ? 0
                                                             : 3;
    node.fallback = value(shader, "fallback", all(0.0f), true).constant;
    return node;
  }

  const ovo::Stage& stage_;
  double time_;
  PreviewMaterial& out_;
  int depth_ = 0;
  std::unordered_set<Path> open_;  // properties being followed
  std::unordered_map<Path, int> nodes_;
};

// The render contexts of a material's surfaces, such as `mtlx` of `outputs:mtlx:surface`.
std::vector<std::string> contextsOf(const Prim& material) {
  std::vector<std::string> contexts;
  const std::string head = "outputs:", tail = ":surface";
  for (const Token& name : PropertyLinks(material).propertyNames(head)) {
    const std::string& text = name.asString();
    if (text.size() > head.size() + tail.size() &&
        text.compare(text.size() - tail.size(), tail.size(), tail) == 0)
      contexts.push_back(text.substr(head.size(), text.size() - head.size() - tail.size()));
  }
  return contexts;
}

}  // namespace

Vec4f definedValue(SurfaceInput input) { return kInputs[static_cast<std::size_t>(input)].value; }
const char* nameOf(SurfaceInput input) { return kInputs[static_cast<std::size_t>(input)].name; }

PreviewMaterial readPreviewMaterial(const Prim& material, double time) {
  PreviewMaterial out;
  if (!material.isValid()) return out;
  Reader reader(*material.getStage(), time, out);

  // The surface: that for rasterisers, which preview nodes are made for, goes before that for all.
  Prim surface;
  for (const char* output : {"outputs:glslfx:surface", "outputs:surface"}) {
    const auto source = reader.follow(material, Token(output), false);
    if (!source || !source->isShader) continue;
    const std::string id = Reader::shaderOf(source->prim);
    if (id == "UsdPreviewSurface") {
      surface = source->prim;
      break;
    }
    if (out.other.empty()) out.other = id.empty() ? "a shader without a name" : id;
  }
  if (!surface.isValid()) {
    for (const std::string& context : contextsOf(material))
      if (const auto source =
              reader.follow(material, Token("outputs:" + context + ":surface"), false);
          source && source->isShader)
        out.other = context;
    return out;
  }

  out.isShown = true;
  out.other.clear();
  for (std::size_t i = 0; i < kSurfaceInputs; ++i)
    out.inputs[i] = reader.value(surface, kInputs[i].name, kInputs[i].value,
                                 static_cast<SurfaceInput>(i) == SurfaceInput::opacityThreshold);
  // Nodes that give nothing have left -1, and the definition's value.
  out.isSpecularWorkflow = reader.constant(surface, "useSpecularWorkflow", all(0.0f)).x != 0.0f;
  out.fadesWhole = reader.word(surface, "opacityMode", "transparent") == "presence";
  return out;
}

}  // namespace vela::look
