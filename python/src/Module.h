/// \file
/// What each subsystem adds to the module, a source file each.
#pragma once

#include <nanobind/nanobind.h>

namespace vela::python {

void bindTarn(nanobind::module_& tarn);
void bindScenes(nanobind::module_& ovo);
void bindAttributes(nanobind::module_& ovo);
void bindPrims(nanobind::module_& ovo);
void bindSubdivision(nanobind::module_& ovo);
void bindCamera(nanobind::module_& vela);
void bindLenses(nanobind::module_& vela);
void bindChannels(nanobind::module_& vela);
void bindTracer(nanobind::module_& vela);
void bindIntersection(nanobind::module_& vela);
void bindMeshes(nanobind::module_& vela);
void bindSampling(nanobind::module_& vela);
void bindSelection(nanobind::module_& selection);
void bindAssets(nanobind::module_& asset);
void bindLog(nanobind::module_& log);
void bindSceneMeshes(nanobind::module_& scene);
void bindSceneRays(nanobind::module_& scene);
void bindLook(nanobind::module_& look);
void bindPicture(nanobind::module_& picture);

}  // namespace vela::python
