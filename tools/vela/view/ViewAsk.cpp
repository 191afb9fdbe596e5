#include "view/ViewAsk.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include <nlohmann/json.hpp>

namespace command::viewer {

namespace {

using Json = nlohmann::json;

constexpr const char* kPurposes[] = {"default", "render", "proxy", "guide"};
constexpr const char* kParts[] = {"objects", "faces", "vertices"};
constexpr const char* kLenses[] = {"perspective", "orthographic", "spherical", "cylindrical"};
// As many as a picture of the command line may have in one row, and a bound of memory.
constexpr int kWidest = 16384;
constexpr std::int64_t kMostPixels = std::int64_t{1} << 26;
constexpr std::size_t kMostPaths = 10000;

[[noreturn]] void bad(const char* name, const char* what) {
  throw BadAsk(std::string(name) + " is not " + what);
}

const Json* find(const Json& json, const char* name) {
  if (!json.is_object()) throw BadAsk("the request is no object");
  const auto found = json.find(name);
  return found == json.end() || found->is_null() ? nullptr : &*found;
}

void read(const Json& json, const char* name, bool& value) {
  const Json* found = find(json, name);
  if (!found) return;
  if (!found->is_boolean()) bad(name, "true or false");
  value = found->get<bool>();
}

void read(const Json& json, const char* name, int low, int high, int& value) {
  const Json* found = find(json, name);
  if (!found) return;
  if (!found->is_number_integer()) bad(name, "a whole number");
  const auto number = found->get<std::int64_t>();
  if (number < low || number > high) bad(name, "in its range");
  value = static_cast<int>(number);
}

std::optional<double> readNumber(const Json& json, const char* name) {
  const Json* found = find(json, name);
  if (!found) return std::nullopt;
  if (!found->is_number()) bad(name, "a number");
  const auto number = found->get<double>();
  if (!std::isfinite(number)) bad(name, "finite");
  return number;
}

template <std::size_t N>
std::size_t readWord(const Json& json, const char* name, const char* const (&words)[N],
                     std::size_t otherwise) {
  const std::string word = readText(json, name);
  if (word.empty()) return otherwise;
  const auto found = std::find(std::begin(words), std::end(words), word);
  if (found == std::end(words)) bad(name, "one of its words");
  return static_cast<std::size_t>(found - std::begin(words));
}

void read(const Json& json, const char* name, std::vector<std::string>& value) {
  const Json* found = find(json, name);
  if (!found) return;
  if (!found->is_array() || found->size() > kMostPaths) bad(name, "a list of paths");
  value.clear();
  for (const Json& one : *found) {
    if (!one.is_string()) bad(name, "a list of paths");
    value.push_back(one.get<std::string>());
  }
}

// A placement without scale or shear, as a camera's is.
tarn::Mat4d readPose(const Json& json) {
  if (!json.is_array() || json.size() != 16) bad("pose", "a matrix of 16 numbers");
  tarn::Mat4d pose;
  for (std::size_t i = 0; i < 16; ++i) {
    if (!json[i].is_number()) bad("pose", "a matrix of 16 numbers");
    pose[i] = json[i].get<double>();
    if (!std::isfinite(pose[i])) bad("pose", "finite");
  }
  if (pose[3] != 0.0 || pose[7] != 0.0 || pose[11] != 0.0 || pose[15] != 1.0)
    bad("pose", "a placement");
  for (std::size_t a = 0; a < 3; ++a)
    for (std::size_t b = a; b < 3; ++b) {
      const double product = pose[4 * a] * pose[4 * b] + pose[4 * a + 1] * pose[4 * b + 1] +
                             pose[4 * a + 2] * pose[4 * b + 2];
      // What comes of turning in double precision is far nearer than this.
      if (std::abs(product - (a == b ? 1.0 : 0.0)) > 1e-6) bad("pose", "without scale");
    }
  return pose;
}

}  // namespace

std::string readText(const Json& json, const char* name) {
  const Json* found = find(json, name);
  if (!found) return "";
  if (!found->is_string()) bad(name, "a text");
  return found->get<std::string>();
}

ViewAsk readView(const Json& json, const RenderOptions& options) {
  ViewAsk ask;
  ask.options = options;
  SceneOptions& scene = ask.options.scene;
  if (find(json, "camera")) scene.camera = readText(json, "camera");
  if (find(json, "lens")) {
    scene.lens = readText(json, "lens");
    if (!scene.lens.empty()) (void)readWord(json, "lens", kLenses, 0);
  }
  read(json, "width", 1, kWidest, scene.width);
  read(json, "height", 1, kWidest, scene.height);
  if (std::int64_t{scene.width} * scene.height > kMostPixels) bad("width", "in its range");
  if (const auto time = readNumber(json, "time")) scene.time = *time;
  if (const auto turn = readNumber(json, "turn")) scene.turn = *turn;
  std::vector<std::string> purposes;
  read(json, "purposes", purposes);
  if (find(json, "purposes")) {
    scene.purposes.clear();
    for (const std::string& purpose : purposes) {
      const auto found = std::find(std::begin(kPurposes), std::end(kPurposes), purpose);
      if (found == std::end(kPurposes)) bad("purposes", "a list of purposes");
      scene.purposes.push_back(static_cast<vela::scene::Purpose>(found - std::begin(kPurposes)));
    }
  }
  read(json, "invisible", scene.withInvisible);
  read(json, "smooth", scene.smooth);
  read(json, "subdivide", 0, 5, scene.subdivisionLevel);
  read(json, "exclude", scene.excludedPaths);
  read(json, "mask", scene.maskPaths);
  read(json, "samples", 1, 4096, ask.options.samples);
  if (const Json* pose = find(json, "pose")) ask.pose = readPose(*pose);
  if (const auto zoom = readNumber(json, "zoom")) {
    if (!(*zoom > 1e-9 && *zoom < 1e9)) bad("zoom", "in its range");
    ask.zoom = *zoom;
  }
  Json own = Json::object();
  for (const char* name :
       {"camera", "lens", "width", "height", "time", "turn", "purposes", "invisible", "smooth",
        "subdivide", "exclude", "mask", "samples", "pose", "zoom"})
    if (const Json* found = find(json, name)) own[name] = *found;
  ask.key = own.dump(-1, ' ', false, Json::error_handler_t::replace);
  return ask;
}

PictureAsk readPicture(const Json& json, const RenderOptions& options) {
  PictureAsk ask;
  ask.view = readView(json, options);
  if (find(json, "layer")) ask.layer = readText(json, "layer");
  ask.client = readText(json, "client");
  if (ask.client.empty() || ask.client.size() > 64) bad("client", "a short text");
  int number = 0;
  read(json, "number", 0, 2'000'000'000, number);
  ask.number = static_cast<std::uint64_t>(number);
  read(json, "draft", ask.isDraft);
  read(json, "y0", 0, kWidest, ask.y0);
  read(json, "y1", 0, kWidest, ask.y1);
  ask.near = readNumber(json, "near");
  ask.far = readNumber(json, "far");
  return ask;
}

PlaceAsk readPlace(const Json& json, const RenderOptions& options) {
  PlaceAsk ask;
  ask.view = readView(json, options);
  const Json* rect = find(json, "rect");
  if (!rect || !rect->is_array() || rect->size() != 4) bad("rect", "four whole numbers");
  int* const corners[4] = {&ask.rect.x0, &ask.rect.y0, &ask.rect.x1, &ask.rect.y1};
  for (std::size_t i = 0; i < 4; ++i) {
    const Json& corner = (*rect)[i];
    if (!corner.is_number_integer() || corner < -kWidest || corner > kWidest)
      bad("rect", "four whole numbers");
    *corners[i] = corner.get<int>();
  }
  if (ask.rect.x0 > ask.rect.x1) std::swap(ask.rect.x0, ask.rect.x1);
  if (ask.rect.y0 > ask.rect.y1) std::swap(ask.rect.y0, ask.rect.y1);
  read(json, "through", ask.through);
  ask.parts = static_cast<vela::scene::PickedPart>(readWord(json, "parts", kParts, 0));
  ask.selection = readText(json, "selection");
  return ask;
}

}  // namespace command::viewer
