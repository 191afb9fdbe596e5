#include "view/Questions.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <vector>

#include <nlohmann/json.hpp>

#include "Interrupt.h"
#include "Json.h"
#include "Messages.h"
#include "PictureRecord.h"
#include "Scene.h"
#include "Text.h"
#include "vela/Version.h"
#include "vela/picture/LayerTable.h"
#include "vela/scene/ExplainRay.h"
#include "vela/scene/Picking.h"
#include "vela/scene/ScenePrims.h"

namespace command::viewer {

namespace {

using Json = nlohmann::json;
using Ordered = nlohmann::ordered_json;
using vela::scene::View;

Json parse(const std::string& body) {
  Json json = Json::parse(body, nullptr, false);
  if (json.is_discarded()) throw BadAsk("the request is no JSON");
  return json;
}

HttpResponse jsonText(std::string text) {
  HttpResponse response;
  response.type = "application/json";
  response.body = std::move(text);
  return response;
}

// Names in files may be any bytes; what is no UTF-8 is replaced.
HttpResponse jsonOf(const Ordered& json) {
  return jsonText(json.dump(-1, ' ', false, Ordered::error_handler_t::replace));
}

// What the command line asks for, as the page asks for it.
Ordered defaultsOf(const RenderOptions& options, const std::string& camera) {
  const SceneOptions& scene = options.scene;
  constexpr const char* kNames[] = {"default", "render", "proxy", "guide"};
  Ordered purposes = Ordered::array();
  for (const vela::scene::Purpose purpose : scene.purposes)
    purposes.push_back(kNames[static_cast<int>(purpose)]);
  Ordered json = {{"camera", camera},
                  {"lens", scene.lens},
                  {"width", scene.width},
                  {"height", scene.height},
                  {"purposes", purposes},
                  {"invisible", scene.withInvisible},
                  {"smooth", scene.smooth},
                  {"subdivide", scene.subdivisionLevel},
                  {"exclude", scene.excludedPaths},
                  {"mask", scene.maskPaths},
                  {"samples", options.samples}};
  json["time"] = std::isfinite(scene.time) ? Ordered(scene.time) : Ordered();
  return json;
}

HttpResponse askScene(const Subject& of, const std::string&) {
  const auto stage = of.session.stage();
  const RenderOptions& options = of.session.options();
  Ordered json = {{"file", std::filesystem::path(options.scene.file).filename().string()},
                  {"version", vela::version()},
                  {"generation", of.session.generation()},
                  {"up", stage->getUpAxis().asString()},
                  {"timeCodesPerSecond", stage->getTimeCodesPerSecond()},
                  {"threads", options.threads}};
  if (stage->hasTimeCodeRange())
    json["range"] = {stage->getStartTimeCode(), stage->getEndTimeCode()};
  json["cameras"] = Ordered::array();
  for (const ovo::CameraPrim& camera : vela::scene::listCameras(*stage, interruptibleWork()))
    json["cameras"].push_back(camera.getPath().asString());
  throwIfInterrupted();
  json["layers"] = Ordered::array();
  for (const std::string& layer : Session::layers())
    json["layers"].push_back(
        {{"name", layer}, {"help", vela::picture::findLayerInfo(layer)->help}});
  json["defaults"] = defaultsOf(options, cameraPath(*stage, options.scene.camera));
  return jsonOf(json);
}

HttpResponse askView(const Subject& of, const std::string& body) {
  const ViewAsk ask = readView(parse(body), of.session.options());
  const auto built = of.session.build(ask);
  const View view = of.session.view(ask, *built);
  constexpr const char* kLenses[] = {"perspective", "orthographic", "spherical", "cylindrical"};
  Ordered matrix = Ordered::array();
  for (std::size_t i = 0; i < 16; ++i) matrix.push_back(view.worldFromCamera[i]);
  const vela::scene::Extent& extent = built->renderer->extent();
  const tarn::Vec3d centre = extent.box.isEmpty() ? tarn::Vec3d() : extent.box.center();
  const double radius = extent.box.isEmpty() ? 1.0 : 0.5 * extent.box.size().length();
  return jsonOf({{"camera", view.camera.asString()},
                 {"lens", kLenses[view.lens]},
                 {"width", view.width},
                 {"height", view.height},
                 {"matrix", matrix},
                 {"up", {view.up.x, view.up.y, view.up.z}},
                 {"focalLength", view.sample.optics.focalLength},
                 {"film", {view.sample.sensor.apertureSize.x, view.sample.sensor.apertureSize.y}},
                 {"centre", {centre.x, centre.y, centre.z}},
                 {"radius", radius},
                 {"meshes", built->renderer->meshes().entries.size()},
                 {"lights", built->renderer->lights().lights.size()}});
}

HttpResponse askPicture(const Subject& of, const std::string& body) {
  return of.pictures.image(readPicture(parse(body), of.session.options()));
}

HttpResponse askExr(const Subject& of, const std::string& body) {
  return of.pictures.exr(readPicture(parse(body), of.session.options()));
}

// A pixel of a view and the ray through its centre.
struct Looked {
  PlaceAsk ask;
  std::shared_ptr<const Built> built;
  vela::scene::WorldRay ray;
};

Looked look(const Subject& of, const std::string& body) {
  Looked looked;
  looked.ask = readPlace(parse(body), of.session.options());
  looked.built = of.session.build(looked.ask.view);
  const View view = of.session.view(looked.ask.view, *looked.built);
  const tarn::Vec2f place = view.ndc(looked.ask.rect.x0 + 0.5, looked.ask.rect.y0 + 0.5);
  view.makeRays(&place, 1, &looked.ray);
  return looked;
}

HttpResponse askPick(const Subject& of, const std::string& body) {
  const Looked looked = look(of, body);
  const auto& renderer = *looked.built->renderer;
  return jsonText(toJson(reportOf(*looked.built->stage, looked.ask.view.options.scene,
                                  renderer.meshes(), renderer.caster(), looked.ray)));
}

HttpResponse askExplain(const Subject& of, const std::string& body) {
  const Looked looked = look(of, body);
  const auto why =
      vela::scene::explainRay(*looked.built->stage, looked.ask.view.options.scene.filter(),
                              looked.ray, false, interruptibleWork());
  throwIfInterrupted();
  if (!why)
    throw failure(Message::tooManyInstances,
                  {"/", "together with what the options hide they are more than fit"});
  return jsonText(toJson(*why, looked.ray));
}

HttpResponse askSelect(const Subject& of, const std::string& body) {
  const PlaceAsk ask = readPlace(parse(body), of.session.options());
  vela::Selection::GeoSelection selection;
  if (!ask.selection.empty()) {
    std::istringstream text(ask.selection);
    std::string why;
    if (!selection.deserialize(text, &why))
      throw BadAsk("it is no selection, or a damaged one: " + why);
  }
  const auto built = of.session.build(ask.view);
  const View view = of.session.view(ask.view, *built);
  const auto& renderer = *built->renderer;
  // What lies outside of the picture shows nothing.
  const vela::scene::PixelRect rect{std::max(ask.rect.x0, 0), std::max(ask.rect.y0, 0),
                                    std::min(ask.rect.x1, view.width - 1),
                                    std::min(ask.rect.y1, view.height - 1)};
  const bool isEmpty = rect.x0 > rect.x1 || rect.y0 > rect.y1;
  const auto picked =
      isEmpty ? std::size_t{0}
              : vela::scene::pickRect(renderer.meshes(), renderer.caster(), view, rect, ask.through,
                                      ask.parts, selection, interruptibleWork());
  if (!picked) throw Interrupted{};
  std::ostringstream text;
  selection.serialize(text);
  return jsonOf({{"picked", *picked},
                 {"selection", text.str() + "\n"},
                 {"report", Ordered::parse(toJson(reportOf(selection)))}});
}

Ordered rowOf(const ovo::Prim& prim, double time) {
  std::vector<ovo::Prim> children;
  prim.getChildren(children);
  return {{"path", prim.getPath().asString()},     {"name", prim.getName().asString()},
          {"type", prim.getTypeName().asString()}, {"children", children.size()},
          {"visible", prim.isVisible(time)},       {"purpose", prim.purpose().asString()}};
}

// As many as a page can show; the rest is counted.
constexpr std::size_t kMostRows = 2000;
constexpr std::size_t kMostFound = 200;

HttpResponse askTree(const Subject& of, const std::string& body) {
  const std::string path = readText(parse(body), "path");
  const auto stage = of.session.stage();
  const ovo::Prim prim =
      path.empty() || path == "/" ? stage->getRootPrim() : stage->getPrimAtPath(ovo::Path(path));
  if (!prim.isValid()) throw BadAsk("there is no such prim");
  std::vector<ovo::Prim> children;
  prim.getChildren(children);
  Ordered rows = Ordered::array();
  for (std::size_t i = 0; i < std::min(children.size(), kMostRows); ++i)
    rows.push_back(rowOf(children[i], of.session.options().scene.time));
  return jsonOf({{"rows", rows}, {"all", children.size()}});
}

std::string lowered(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

HttpResponse askSearch(const Subject& of, const std::string& body) {
  const std::string wanted = lowered(readText(parse(body), "text"));
  const auto stage = of.session.stage();
  Ordered rows = Ordered::array();
  std::size_t all = 0;
  if (!wanted.empty())
    vela::scene::forEachPrim(
        *stage,
        [&](const ovo::Prim& prim) {
          if (lowered(prim.getPath().asString()).find(wanted) == std::string::npos &&
              lowered(prim.getTypeName().asString()) != wanted)
            return true;
          if (++all <= kMostFound) rows.push_back(rowOf(prim, of.session.options().scene.time));
          return true;
        },
        interruptibleWork());
  throwIfInterrupted();
  return jsonOf({{"rows", rows}, {"all", all}});
}

HttpResponse askStatus(const Subject& of, const std::string&) {
  return jsonOf({{"changed", of.session.hasChanged()}, {"generation", of.session.generation()}});
}

// The one question that is not answered beside others: see Session::reload().
HttpResponse askReload(const Subject& of, const std::string&) {
  of.session.reload([&] { of.pictures.forget(); });
  return jsonOf({{"generation", of.session.generation()}});
}

}  // namespace

const Question* findQuestion(const std::string& path) {
  static const std::map<std::string, Question> table = {
      {"/scene", askScene},   {"/view", askView},    {"/picture", askPicture},
      {"/exr", askExr},       {"/pick", askPick},    {"/explain", askExplain},
      {"/select", askSelect}, {"/tree", askTree},    {"/search", askSearch},
      {"/status", askStatus}, {"/reload", askReload}};
  const auto found = table.find(path);
  return found == table.end() ? nullptr : &found->second;
}

}  // namespace command::viewer
