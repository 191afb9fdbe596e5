#include "Json.h"

#include <cmath>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "Text.h"

namespace command {

namespace {

// Keys stay in the order of the code.
using Json = nlohmann::ordered_json;

// A float as the shortest decimal that reads back as that float; widened as it is it would show
// digits that mean nothing.
Json number(float value) {
  return std::isfinite(value) ? Json(std::strtod(toText(value).c_str(), nullptr)) : Json();
}
Json number(double value) { return std::isfinite(value) ? Json(value) : Json(); }
Json vector(const tarn::Vec3f& v) { return Json::array({number(v.x), number(v.y), number(v.z)}); }

Json object(const ChannelsReport::ChannelFacts& channel) {
  return {{"channel", channel.number},  {"name", channel.name},
          {"layer", channel.layer},     {"place", channel.position},
          {"purpose", channel.purpose}, {"valueType", channel.valueType}};
}

Json object(const ChannelsReport::LayerFacts& layer) {
  Json json = {{"name", layer.name},
               {"purpose", layer.purpose},
               {"valueType", layer.valueType},
               {"channels", Json::array()}};
  for (const ChannelsReport::Member& member : layer.channels)
    json["channels"].push_back({{"channel", member.number}, {"name", member.name}});
  return json;
}

// Names in files may be any bytes; what is no UTF-8 is replaced.
std::string dump(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string toJson(const PickReport& report) {
  Json json = {{"version", kReportVersion}, {"hit", report.hit}};
  if (report.hit) {
    json["prim"] = report.path;
    json["entry"] = report.entry;
    json["face"] = report.face;
    json["distance"] = number(report.distance);
    json["position"] = vector(report.position);
    json["normal"] = vector(report.normal);
    if (!report.material.empty()) json["material"] = report.material;
  }
  return dump(json, 2) + "\n";
}

std::string toJson(const vela::scene::RayExplanation& why, const vela::scene::WorldRay& ray) {
  const auto outcome = [](const vela::scene::RayOutcome& from) {
    Json json = {{"verdict", wordOf(from.verdict)}};
    if (from.face >= 0) {
      json["distance"] = number(static_cast<float>(from.distance));
      json["face"] = from.face;
    }
    return json;
  };
  Json json = {{"version", kReportVersion},
               {"origin", vector(tarn::Vec3f(ray.base + ray.offset))},
               {"direction", vector(ray.direction)},
               {"prims", Json::array()},
               {"culled", why.culled},
               {"withoutFaces", why.withoutFaces}};
  for (const vela::scene::RayItem& item : why.items) {
    const std::string hiddenBy = wordOf(item.hiddenBy);
    json["prims"].push_back({{"prim", item.name},
                             {"type", item.type},
                             {"purpose", item.purpose},
                             {"hiddenBy", hiddenBy.empty() ? Json() : Json(hiddenBy)},
                             {"tracer", outcome(item.tracer)},
                             {"hitDetector", outcome(item.detector)}});
  }
  return dump(json, 2) + "\n";
}

namespace {

// Null for an empty box.
Json object(const tarn::Box3d& box, double scale = 1.0) {
  if (box.isEmpty()) return Json();
  const auto vector = [&](const tarn::Vec3d& v) {
    return Json::array({number(v.x * scale), number(v.y * scale), number(v.z * scale)});
  };
  return {{"min", vector(box.min)}, {"max", vector(box.max)}};
}

void addSummary(const InfoReport& report, Json& json) {
  const vela::scene::SceneSummary& summary = report.summary;
  json["boundingBoxUnits"] = object(summary.box);
  json["boundingBoxMetres"] = object(summary.box, report.metersPerUnit);
  json["tree"] = Json::array();
  for (const auto& node : summary.tree)
    json["tree"].push_back({{"path", node.path.asString()},
                            {"type", node.type},
                            {"depth", node.depth},
                            {"primsBelow", node.below},
                            {"instance", node.isInstance},
                            {"boundingBoxUnits", object(node.box)}});
  json["variants"] = Json::array();
  for (const auto& set : summary.variants)
    json["variants"].push_back({{"prim", set.prim.asString()},
                                {"set", set.set},
                                {"selected", set.selected},
                                {"variants", set.variants}});
  json["lights"] = Json::array();
  for (const auto& light : summary.lights)
    json["lights"].push_back(
        {{"path", light.path.asString()}, {"type", light.type}, {"visible", light.visible}});
  json["textures"] = Json::array();
  for (const auto& texture : summary.textures)
    json["textures"].push_back(
        {{"file", texture.file},
         {"resolved", texture.resolved.empty() ? Json() : Json(texture.resolved)},
         {"missing", texture.resolved.empty()},
         {"shader", texture.shader.asString()},
         {"uses", texture.uses}});
  json["instances"] = {{"prims", summary.instances}, {"pointInstancers", Json::array()}};
  for (const auto& instancer : summary.instancers)
    json["instances"]["pointInstancers"].push_back(
        {{"path", instancer.path.asString()}, {"instances", instancer.instances}});
  json["layers"] = Json::array();
  for (const ovo::LayerUse& layer : report.layers)
    json["layers"].push_back({{"file", layer.file},
                              {"arc", layer.arc},
                              {"from", layer.from.empty() ? Json() : Json(layer.from)},
                              {"prims", layer.prims}});
}

Json infoObject(const InfoReport& report) {
  Json json = {{"file", report.file},
               {"upAxis", report.upAxis},
               {"metersPerUnit", number(report.metersPerUnit)},
               {"timeCodesPerSecond", number(report.timeCodesPerSecond)},
               {"framesPerSecond", number(report.framesPerSecond)},
               {"defaultPrim", report.defaultPrim}};
  if (report.hasTimeRange)
    json["timeCodes"] = Json::array({number(report.startTimeCode), number(report.endTimeCode)});
  json["problems"] = report.problems;
  json["primsByType"] = report.primsByType;
  json["meshes"] = Json::array();
  for (const InfoReport::MeshFacts& mesh : report.meshes)
    json["meshes"].push_back({{"path", mesh.path},
                              {"points", mesh.points},
                              {"faces", mesh.faces},
                              {"triangles", mesh.triangles},
                              {"subdivisionScheme", mesh.subdivision},
                              {"purpose", mesh.purpose},
                              {"visible", mesh.visible}});
  if (!report.curves.empty()) json["curves"] = Json::array();
  for (const InfoReport::CurveFacts& set : report.curves)
    json["curves"].push_back({{"path", set.path},
                              {"type", set.type},
                              {"points", set.points},
                              {"curves", set.curves},
                              {"purpose", set.purpose},
                              {"visible", set.visible}});
  json["cameras"] = Json::array();
  for (const InfoReport::CameraFacts& camera : report.cameras) {
    Json entry = {{"path", camera.path},
                  {"projection", camera.perspective ? "perspective" : "orthographic"}};
    if (camera.perspective) {
      entry["focalLengthMm"] = number(camera.focalLength);
      entry["apertureMm"] =
          Json::array({number(camera.horizontalAperture), number(camera.verticalAperture)});
      entry["apertureOffsetMm"] =
          Json::array({number(camera.horizontalOffset), number(camera.verticalOffset)});
      entry["fieldOfViewDegrees"] =
          Json::array({number(camera.horizontalView), number(camera.verticalView)});
    } else {
      entry["windowUnits"] =
          Json::array({number(camera.horizontalView), number(camera.verticalView)});
    }
    entry["clippingRangeUnits"] =
        Json::array({number(camera.clippingNear), number(camera.clippingFar)});
    entry["focusDistanceUnits"] = number(camera.focusDistance);
    entry["fStop"] = number(camera.fStop);
    entry["shutterTimeCodes"] =
        Json::array({number(camera.shutterOpen), number(camera.shutterClose)});
    json["cameras"].push_back(entry);
  }
  json["materials"] = Json::array();
  for (const InfoReport::MaterialFacts& material : report.materials) {
    Json entry = {{"path", material.path},
                  {"prims", material.prims},
                  {"previewSurface", material.isShown},
                  {"textures", Json::array()}};
    for (const InfoReport::MaterialFacts::Texture& texture : material.textures)
      entry["textures"].push_back({{"file", texture.file}, {"found", texture.found}});
    json["materials"].push_back(entry);
  }
  addSummary(report, json);
  return json;
}

}  // namespace

std::string toJson(const InfoReport& report) {
  Json json = {{"version", kReportVersion}};
  json.update(infoObject(report));
  return dump(json, 2) + "\n";
}

std::string toJson(const std::vector<InfoReport>& reports) {
  Json json = {{"version", kReportVersion}, {"files", Json::array()}};
  for (const InfoReport& report : reports) json["files"].push_back(infoObject(report));
  return dump(json, 2) + "\n";
}

std::string toJson(const FilesReport& report) {
  return dump(Json{{"version", kReportVersion}, {"file", report.file}, {"reads", report.reads}},
              2) +
         "\n";
}

std::string toJson(const std::vector<FilesReport>& reports) {
  Json json = {{"version", kReportVersion}, {"files", Json::array()}};
  for (const FilesReport& report : reports)
    json["files"].push_back({{"file", report.file}, {"reads", report.reads}});
  return dump(json, 2) + "\n";
}

std::string toJson(const ChannelsReport& report) {
  Json json = {{"version", kReportVersion},
               {"channels", Json::array()},
               {"layers", Json::array()},
               {"firstFree", report.firstFree},
               {"free", report.free}};
  for (const ChannelsReport::ChannelFacts& channel : report.channels)
    json["channels"].push_back(object(channel));
  for (const ChannelsReport::LayerFacts& layer : report.layers)
    json["layers"].push_back(object(layer));
  return dump(json, 2) + "\n";
}

std::string toJson(const ChannelNameReport& report) {
  Json json = {
      {"version", kReportVersion}, {"name", report.name}, {"channelName", report.channelName}};
  json["layer"] = report.layer.empty() ? Json() : object(report.layer[0]);
  json["channel"] = report.channel.empty() ? Json() : object(report.channel[0]);
  if (report.channel.empty() && !report.newLayer.empty() && report.newNumber > 0)
    json["new"] = {
        {"channel", report.newNumber}, {"layer", report.newLayer}, {"purpose", report.newPurpose}};
  return dump(json, 2) + "\n";
}

namespace {

Json objectsOf(const SelectionReport& report) {
  const auto part = [](std::size_t size, const std::vector<SelectionReport::Run>& runs) {
    Json json = {{"size", size}, {"runs", Json::array()}};
    for (const SelectionReport::Run& run : runs)
      json["runs"].push_back({{"first", run.first},
                              {"last", run.last},
                              {"value", number(run.value)},
                              {"weight", number(run.weight)}});
    return json;
  };
  Json objects = Json::array();
  for (const SelectionReport::Object& object : report.objects)
    objects.push_back({{"path", object.path},
                       {"selected", object.selected},
                       {"faces", part(object.faceCount, object.faces)},
                       {"vertices", part(object.vertexCount, object.vertices)}});
  return objects;
}

}  // namespace

std::string toJson(const SelectionReport& report) {
  const Json json = {{"version", kReportVersion}, {"objects", objectsOf(report)}};
  return dump(json, 2) + "\n";
}

std::string toJson(const std::vector<SelectionReport>& reports) {
  Json json = {{"version", kReportVersion}, {"files", Json::array()}};
  for (const SelectionReport& report : reports)
    json["files"].push_back({{"file", report.file}, {"objects", objectsOf(report)}});
  return dump(json, 2) + "\n";
}

std::string toJson(const ResolveReport& report) {
  const auto text = [](const std::string& value) { return value.empty() ? Json() : Json(value); };
  Json json = {{"version", kReportVersion}, {"references", Json::array()}};
  for (const ResolveReport::Reference& one : report.references)
    json["references"].push_back({{"reference", one.reference},
                                  {"resolved", !one.path.empty()},
                                  {"path", text(one.path)},
                                  {"error", text(one.error)}});
  return dump(json, 2) + "\n";
}

}  // namespace command
