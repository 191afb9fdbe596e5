#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Interrupt.h"
#include "Json.h"
#include "Messages.h"
#include "Options.h"
#include "OutputFile.h"
#include "Scene.h"
#include "SelectionFile.h"
#include "SeveralFiles.h"
#include "Text.h"

namespace command {

namespace {

using vela::scene::MeshList;
using vela::scene::PickedPart;
using vela::scene::RayCaster;
using vela::scene::View;
using vela::Selection::GeoSelection;
using vela::Selection::WeightedPartSelection;

// Elements of one part that have a value, as runs of equal ones.
std::vector<SelectionReport::Run> runsOf(const WeightedPartSelection& part) {
  std::vector<SelectionReport::Run> runs;
  for (std::size_t i = 0; i < part.selections.size(); ++i) {
    const float value = part.selections[i],
                weight = i < part.weights.size() ? part.weights[i] : 0.0f;
    if (value == 0.0f && weight == 0.0f) continue;
    if (!runs.empty() && runs.back().last + 1 == i && runs.back().value == value &&
        runs.back().weight == weight)
      runs.back().last = i;
    else
      runs.push_back({i, i, value, weight});
  }
  return runs;
}

void printRuns(const char* name, std::size_t size, const std::vector<SelectionReport::Run>& runs) {
  if (size == 0) return;
  std::size_t count = 0;
  for (const SelectionReport::Run& run : runs) count += run.last - run.first + 1;
  std::printf("  %zu of %zu %s:", count, size, name);
  for (const SelectionReport::Run& run : runs) {
    std::printf(run.first == run.last ? " %zu" : " %zu-%zu", run.first, run.last);
    if (run.value != 1.0f) std::printf(" (%s)", toText(run.value).c_str());
    if (run.weight != 0.0f) std::printf(" (weight %s)", toText(run.weight).c_str());
  }
  std::printf("\n");
}

void print(const SelectionReport& report) {
  if (report.objects.empty()) std::puts("nothing is selected");
  for (const SelectionReport::Object& object : report.objects) {
    std::printf("%s%s\n", object.path.c_str(), object.selected ? "  (whole object)" : "");
    printRuns("faces", object.faceCount, object.faces);
    printRuns("vertices", object.vertexCount, object.vertices);
  }
}

const char* wordOf(PickedPart part) {
  return part == PickedPart::objects ? "objects" : part == PickedPart::faces ? "faces" : "vertices";
}

}  // namespace

SelectionReport reportOf(const GeoSelection& selection) {
  SelectionReport report;
  for (const auto& [path, object] : selection) {
    const WeightedPartSelection &vertices = object.getPartSelection(vela::Selection::vertices),
                                &faces = object.getPartSelection(vela::Selection::faces);
    report.objects.push_back({path.asString(), object.objectSelected, vertices.size(), faces.size(),
                              runsOf(vertices), runsOf(faces)});
  }
  std::sort(report.objects.begin(), report.objects.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  return report;
}

namespace {

// Prints selections.
ExitCode show(const SelectOptions& options) {
  const bool areSeveral = options.shown.size() > 1;
  std::vector<SelectionReport> reports;
  Separator separator;
  const ExitCode code = forEachFile("select", options.shown, [&](const std::string& file) {
    SelectionReport report = reportOf(readSelection(file));
    report.file = file;
    if (options.json) {
      reports.push_back(std::move(report));
      return;
    }
    if (areSeveral) {
      separator.print();
      std::printf("%s\n", file.c_str());
    }
    print(report);
  });
  if (options.json)
    std::fputs(areSeveral ? toJson(reports).c_str() : toJson(reports.front()).c_str(), stdout);
  return code;
}

}  // namespace

ExitCode select(const SelectOptions& options) {
  if (!options.shown.empty()) return show(options);

  // Names and places are checked before the long work. What is added to may be replaced: it is read
  // whole before.
  OutputFile output(options.output, OutputKind::selection);
  GeoSelection selection;
  if (!options.add.empty()) selection = readSelection(options.add, true);
  const SceneOptions& scene = options.scene;
  const std::shared_ptr<ovo::Stage> stage = openStage("select", scene.file, scene.variants);
  const MeshList list = listMeshes(*stage, scene);
  const vela::scene::Extent extent = findExtent(list);
  const View view = makeView(*stage, scene, extent);
  // What lies outside the picture shows nothing.
  const vela::scene::PixelRect rect{std::max(options.rect.x0, 0), std::max(options.rect.y0, 0),
                                    std::min(options.rect.x1, view.width - 1),
                                    std::min(options.rect.y1, view.height - 1)};
  const bool isEmpty = rect.x0 > rect.x1 || rect.y0 > rect.y1;

  const RayCaster caster = makeCaster(scene, list, extent);
  const std::optional<std::size_t> picked =
      isEmpty ? 0
              : pickRect(list, caster, view, rect, options.through, options.parts, selection,
                         interruptibleWork());
  if (!picked) throw Interrupted{};
  writeSelection(selection, output);
  // Not into a selection that goes to standard output.
  std::fprintf(comesOutOf(STDOUT_FILENO, options.output) ? stderr : stdout,
               "%s: %s of %zu object%s picked; %zu in all\n", options.output.c_str(),
               wordOf(options.parts), *picked, *picked == 1 ? "" : "s", selection.size());
  return *picked > 0 ? kDone : kNotFound;
}

}  // namespace command
