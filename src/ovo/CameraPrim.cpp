#include "ovo/CameraPrim.h"

#include "ovo/Stage.h"
#include "ovo/Tokens.h"

namespace ovo {

CameraPrim::CameraPrim() noexcept = default;
CameraPrim::CameraPrim(const Prim& prim) : XformablePrim(prim) {}

CameraPrim CameraPrim::define(const std::shared_ptr<Stage>& stage, const Path& path) {
  return stage ? CameraPrim(stage->definePrim(path, tokens().Camera)) : CameraPrim();
}

bool CameraPrim::isValid() const noexcept {
  return Prim::isValid() && getTypeName() == tokens().Camera;
}

CameraParameters CameraPrim::getParameters(double time) const {
  CameraParameters parameters;
  if (!isValid()) return parameters;
  const Tokens& t = tokens();
  const auto number = [&](const Token& name, double& into, double per) {
    double value = 0.0;
    if (getAttr(name).get(value, time)) into = value / per;
  };
  Token projection;
  getAttr(t.projection).get(projection, time);
  parameters.perspective = projection != t.orthographic;
  number(t.focalLength, parameters.focalLength, 10.0);
  number(t.horizontalAperture, parameters.horizontalAperture, 10.0);
  number(t.verticalAperture, parameters.verticalAperture, 10.0);
  number(t.horizontalApertureOffset, parameters.horizontalApertureOffset, 10.0);
  number(t.verticalApertureOffset, parameters.verticalApertureOffset, 10.0);
  tarn::Vec2d range;
  if (getAttr(t.clippingRange).get(range, time)) {
    parameters.clippingNear = range.x;
    parameters.clippingFar = range.y;
  }
  getAttr(t.clippingPlanes).get(parameters.clippingPlanes, time);
  number(t.fStop, parameters.fStop, 1.0);
  number(t.focusDistance, parameters.focusDistance, 1.0);
  number(t.shutterOpen, parameters.shutterOpen, 1.0);
  number(t.shutterClose, parameters.shutterClose, 1.0);
  number(t.exposure, parameters.exposure, 1.0);
  return parameters;
}

bool CameraPrim::setParameters(const CameraParameters& parameters, double time) const {
  if (!isValid()) return false;
  const Tokens& t = tokens();
  bool done = createAttr(t.projection, "token")
                  .set(parameters.perspective ? t.perspective : t.orthographic, time);
  const auto number = [&](const Token& name, const char* type, double value) {
    done = createAttr(name, type).set(value, time) && done;
  };
  number(t.focalLength, "float", parameters.focalLength * 10.0);
  number(t.horizontalAperture, "float", parameters.horizontalAperture * 10.0);
  number(t.verticalAperture, "float", parameters.verticalAperture * 10.0);
  number(t.horizontalApertureOffset, "float", parameters.horizontalApertureOffset * 10.0);
  number(t.verticalApertureOffset, "float", parameters.verticalApertureOffset * 10.0);
  const tarn::Vec2d range(parameters.clippingNear, parameters.clippingFar);
  done = createAttr(t.clippingRange, "float2").set(range, time) && done;
  if (!parameters.clippingPlanes.empty())
    done = createAttr(t.clippingPlanes, "float4[]").set(parameters.clippingPlanes, time) && done;
  number(t.fStop, "float", parameters.fStop);
  number(t.focusDistance, "float", parameters.focusDistance);
  number(t.shutterOpen, "double", parameters.shutterOpen);
  number(t.shutterClose, "double", parameters.shutterClose);
  number(t.exposure, "float", parameters.exposure);
  return done;
}

}  // namespace ovo
