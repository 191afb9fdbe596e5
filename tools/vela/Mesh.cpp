#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Interrupt.h"
#include "Json.h"
#include "Messages.h"
#include "Options.h"
#include "Scene.h"
#include "SeveralFiles.h"
#include "Suggest.h"
#include "Text.h"
#include "vela/scene/MeshDefects.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

using Json = nlohmann::ordered_json;
using tarn::Vec3f;
using vela::scene::MeshDefect;
using vela::scene::MeshReport;
using vela::scene::PrimvarReport;

Json number(float value) {
  return std::isfinite(value) ? Json(std::strtod(toText(value).c_str(), nullptr)) : Json();
}
Json vector(const Vec3f& v) { return Json::array({number(v.x), number(v.y), number(v.z)}); }

Json toJson(const MeshReport& report) {
  Json primvars = Json::array(), defects = Json::array();
  for (const PrimvarReport& p : report.primvars)
    primvars.push_back({{"name", p.name},
                        {"type", p.type},
                        {"interpolation", p.interpolation},
                        {"elements", p.elements},
                        {"indexed", p.isIndexed},
                        {"fits", p.fits}});
  for (const MeshDefect& d : report.defects)
    defects.push_back({{"kind", describe(d.kind)}, {"count", d.count}, {"first", d.first}});
  const bool empty = report.bounds.isEmpty();
  return {{"prim", report.path},
          {"points", report.points},
          {"faces", report.faces},
          {"faceVertices", report.faceVertices},
          {"triangles", report.triangles},
          {"quads", report.quads},
          {"edges", report.edges},
          {"borderEdges", report.borderEdges},
          {"edgesOfMoreThanTwoFaces", report.crowdedEdges},
          {"bounds",
           empty ? Json()
                 : Json{{"min", vector(report.bounds.min)}, {"max", vector(report.bounds.max)}}},
          {"subdivisionScheme", report.scheme},
          {"orientation", report.orientation},
          {"primvars", primvars},
          {"defects", defects}};
}

std::string textOf(const Vec3f& v) { return toText(v.x) + " " + toText(v.y) + " " + toText(v.z); }

void print(const MeshReport& report) {
  std::printf("%s\n  %zu points, %zu faces (%zu triangles, %zu quads), %zu face-vertices\n",
              report.path.c_str(), report.points, report.faces, report.triangles, report.quads,
              report.faceVertices);
  std::printf("  %zu edges, %zu on borders, %zu of more than two faces\n", report.edges,
              report.borderEdges, report.crowdedEdges);
  if (!report.bounds.isEmpty())
    std::printf("  from %s to %s\n", textOf(report.bounds.min).c_str(),
                textOf(report.bounds.max).c_str());
  std::printf("  subdivision %s, %s\n", report.scheme.c_str(), report.orientation.c_str());
  for (const PrimvarReport& p : report.primvars)
    std::printf("  %s %s: %zu, %s%s%s\n", p.type.c_str(), p.name.c_str(), p.elements,
                p.interpolation.c_str(), p.isIndexed ? ", indexed" : "",
                p.fits ? "" : " (does not fit)");
  for (const MeshDefect& d : report.defects)
    std::printf("  defect: %s: %zu, first %zu\n", describe(d.kind), d.count, d.first);
}

// The path of a prim that is there may be no mesh's.
Failure noSuchMesh(const ovo::Stage& stage, const std::string& path) {
  std::vector<std::string> meshes;
  vela::scene::forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        if (ovo::MeshPrim(prim).isValid()) meshes.push_back(prim.getPath().asString());
        return true;
      },
      interruptibleWork());
  throwIfInterrupted();
  const ovo::Prim prim = stage.getPrimAtPath(ovo::Path(path));
  const std::string attempt = attemptAmong(path, meshes);
  return failure(Message::noSuchMesh,
                 {path,
                  prim.isValid() ? "its type is " + (prim.getTypeName().isEmpty()
                                                         ? std::string("none")
                                                         : prim.getTypeName().asString())
                                 : "",
                  attempt.empty() ? "vela info lists the meshes of a scene" : attempt});
}

// The meshes of one file, those that are asked for.
std::vector<ovo::MeshPrim> findMeshes(const ovo::Stage& stage, const std::string& path) {
  std::vector<ovo::MeshPrim> prims;
  if (!path.empty()) {
    prims.emplace_back(stage.getPrimAtPath(ovo::Path(path)));
    if (!prims.back().isValid()) throw noSuchMesh(stage, path);
    return prims;
  }
  vela::scene::forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        if (const ovo::MeshPrim candidate(prim); candidate.isValid()) prims.push_back(candidate);
        return true;
      },
      interruptibleWork());
  throwIfInterrupted();
  return prims;
}

}  // namespace

ExitCode mesh(const MeshOptions& options) {
  const bool areSeveral = options.files.size() > 1;
  Json reports = Json::array();
  Separator separator;
  // A file with defects is told whole, and counts as one that failed.
  std::optional<Failure> defectsOfOne;
  const ExitCode code = forEachFile("mesh", options.files, [&](const std::string& file) {
    const std::shared_ptr<ovo::Stage> stage = openStage("mesh", file);
    const std::vector<ovo::MeshPrim> prims = findMeshes(*stage, options.prim);
    if (areSeveral && !options.json) {
      separator.print();
      std::printf("%s\n", file.c_str());
    }
    std::size_t defects = 0, faulty = 0;
    Json all = Json::array();
    for (const ovo::MeshPrim& prim : prims) {
      const std::optional<MeshReport> report =
          vela::scene::inspectMesh(prim, options.time, interruptibleWork());
      if (!report) throw Interrupted{};
      defects += report->defects.size();
      faulty += report->defects.empty() ? 0u : 1u;
      if (options.json)
        all.push_back(toJson(*report));
      else
        print(*report);
    }
    reports.push_back({{"file", file}, {"meshes", all}});
    if (defects == 0) return;
    const Failure why = failure(
        Message::defects,
        {file, std::to_string(defects), std::to_string(faulty), std::to_string(prims.size())});
    if (areSeveral) throw why;
    defectsOfOne = why;
  });
  if (options.json) {
    Json whole = {{"version", kReportVersion}};
    if (areSeveral)
      whole["files"] = reports;
    else
      whole.update(reports.front());
    std::fputs((whole.dump(2, ' ', false, Json::error_handler_t::replace) + "\n").c_str(), stdout);
  }
  if (defectsOfOne) throw *defectsOfOne;
  return code;
}

}  // namespace command
