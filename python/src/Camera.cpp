// Cameras and their samples, ray records, cameras from scenes.

#include "vela/camera/Camera.h"

#include <sstream>
#include <string>
#include <tuple>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "vela/camera/LensProjection.h"
#include "vela/camera/MultiProjectionCamera.h"
#include "vela/camera/RayContext.h"
#include "vela/camera/SceneCamera.h"

namespace vela::python {

namespace {

using Sample = Camera::Sample;

template <class T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

void bindParameters(nb::module_& m) {
  {
    Record<XformParameters> r(m, "XformParameters",
                              "Where something stands, as matrices (4, 4).\n\n"
                              ">>> vela.XformParameters().l2w[0].tolist()\n[1.0, 0.0, 0.0, 0.0]");
    r.field("parent", &XformParameters::parent, "Parent to world.")
        .field("local", &XformParameters::local, "Local to parent.")
        .field("l2w", &XformParameters::l2w, "Local to world.")
        .field("w2l", &XformParameters::w2l, "World to local; update_derived_values computes it.");
    r.type().def("__str__", &printed<XformParameters>);
  }
  {
    using P = CameraSensorParameters;
    Record<P> r(m, "CameraSensorParameters",
                "The film back; lengths in the unit of the focal length.\n\n"
                ">>> vela.CameraSensorParameters(aperture_size=[36, 24]).aperture_size.tolist()\n"
                "[36.0, 24.0]");
    r.field("aperture_size", &P::apertureSize, "Of the film window, (2,).")
        .field("aperture_translate", &P::apertureTranslate, "In NDC, (2,): 2 is a whole width.")
        .field("aperture_rotate", &P::apertureRotate, "Degrees.")
        .field("aperture_scale", &P::apertureScale, "Of the window, (2,).")
        .field("scene_to_camera_factor", &P::sceneToCameraFactor, "Scene units to camera units.")
        .field("sensor_iso", &P::sensorISO, "Sensitivity.")
        .field("sensor_exposure_bias", &P::sensorExposureBias, "Powers of two.");
    r.type().def("__str__", &printed<P>);
  }
  {
    using P = CameraMountParameters;
    Record<P> r(m, "CameraMountParameters",
                "How the camera is mounted.\n\n>>> vela.CameraMountParameters().offset.tolist()\n"
                "[0.0, 0.0]");
    r.field("offset", &P::offset, "(2,).");
    r.type().def("__str__", &printed<P>);
  }
  {
    using P = CameraLensApertureParameters;
    Record<P> r(m, "CameraLensApertureParameters",
                "F-stop and clipping.\n\n"
                ">>> vela.CameraLensApertureParameters().clip_far_distance\n1.0");
    r.field("f_stop", &P::fStop, "0 gives an infinite pupil.")
        .field("clip_near_distance", &P::clipNearDistance, "Scene units.")
        .field("clip_far_distance", &P::clipFarDistance, "Scene units.");
    r.type().def("__str__", &printed<P>);
  }
  {
    using P = CameraOpticsParameters;
    Record<P> r(
        m, "CameraOpticsParameters",
        "Focal length, focus, distortion.\n\n>>> vela.CameraOpticsParameters().focal_length\n"
        "1.0");
    r.field("focal_length", &P::focalLength, "In the unit of the film window.")
        .field("focus_distance", &P::focusDistance, "From the camera.")
        .field("optical_attenuation", &P::opticalAttenuation, "Attenuation.")
        .field("optical_width_squeeze", &P::opticalWidthSqueeze, "Anamorphic squeeze.")
        .field("optical_distortion_a", &P::opticalDistortionA, "First coefficient.")
        .field("optical_distortion_b", &P::opticalDistortionB, "Second coefficient.")
        .field("optical_distortion_c", &P::opticalDistortionC, "Third coefficient.");
    r.type().def("__str__", &printed<P>);
  }
}

void bindCameras(nb::module_& m) {
  nb::class_<Axis> axis(m, "Axis",
                        "Something that stands somewhere.\n\n>>> vela.Axis.Sample().time\n0.0");
  axis.def(nb::init<>()).def("draw_axis", &Axis::drawAxis, "For hosts that draw; does nothing.");
  refusePickle(axis, "it holds nothing");
  {
    Record<Axis::Sample> r(axis, "Sample", "A transform at one time.");
    r.field("time", &Axis::Sample::time, "Time code.")
        .part("xform", &Axis::Sample::xform, "Where it stands; changes in place.");
  }
  nb::class_<Camera, Axis> camera(
      m, "Camera",
      "A camera; its state at one time is Camera.Sample.\n\n>>> vela.Camera().draw_camera()");
  camera.def(nb::init<>())
      .def("draw_camera", &Camera::drawCamera, "For hosts that draw; does nothing.")
      .def("validate_camera", &Camera::validateCamera, "Runs the class's own validation.");
  nb::object sampleType;
  {
    Record<Sample, Axis::Sample> r(
        camera, "Sample",
        "A camera at one time: what was set, and what follows from it once update_derived_values "
        "has "
        "run. Angles are degrees; the camera looks along its local -z.\n\n"
        ">>> sample = vela.Camera.Sample()\n"
        ">>> sample.sensor.aperture_size = [36, 24]\n"
        ">>> sample.optics.focal_length = 50\n"
        ">>> sample.update_derived_values(vela.LinearProjection())\n"
        ">>> round(sample.lens_magnification, 6)\n0.72");
    r.part("sensor", &Sample::sensor, "The film back; changes in place.")
        .part("mount", &Sample::mount, "The mount; changes in place.")
        .part("lens_ap", &Sample::lensAp, "F-stop and clipping; changes in place.")
        .part("optics", &Sample::optics, "Focal length and distortion; changes in place.")
        .field("ndc", &Sample::ndc, "What the film window does to NDC coordinates, (4, 4).")
        .field("ndc_is_identity", &Sample::ndcIsIdentity, "Of `ndc`; lenses then leave it out.")
        .field("proj", &Sample::proj, "Camera space to NDC, (4, 4).");
    r.withoutPickling();
    sampleType = nb::borrow(r.type());
    r.type()
        .def_prop_ro("lens_magnification", &Sample::lensMagnification,
                     "Film width over focal length.")
        .def_prop_ro("lens_pupil_radius", &Sample::lensPupilRadius,
                     "Half of focal length over f-stop.")
        .def_prop_ro("distortion_enabled", &Sample::distortionEnabled,
                     "True when a distortion coefficient is not 0.")
        .def_prop_ro("world_to_ndc", &Sample::worldToNdc, "(4, 4).")
        .def(
            "update_derived_values",
            [](Sample& s, const LensProjectionFunction* lens) { s.updateDerivedValues(lens); },
            nb::arg("projection") = nb::none(),
            "Computes xform.w2l and the derived values; `proj` becomes that of the lens.")
        .def(
            "print_values",
            [](const Sample& s, const std::string& indent) {
              std::ostringstream out;
              s.printValues(out, indent);
              return out.str();
            },
            nb::arg("indent") = "", "Eight lines of labelled values, each after `indent`.")
        .def("__copy__", [](const Sample& s) { return Sample(s); })
        .def(
            "__deepcopy__", [](const Sample& s, nb::handle) { return Sample(s); }, nb::arg("memo"))
        .def("__str__", &printed<Sample>);
  }
  refusePickle(sampleType,
               "what follows from its values belongs to a lens; copy it, or pickle its parts");
  camera
      .def_static("build_ndc_transform", &Camera::BuildNDCTransform, nb::arg("sample"),
                  nb::arg("inverse") = false,
                  "What the film window does to NDC coordinates, or its inverse, (4, 4).")
      .def_static("build_linear_projection", &Camera::BuildLinearProjection, nb::arg("sample"),
                  nb::arg("with_ndc") = true, nb::arg("perspective") = true,
                  "Camera space to NDC, (4, 4).");
  m.def("build_projection_matrix", &BuildProjectionMatrix, nb::arg("lens_magnification"),
        nb::arg("near"), nb::arg("far"), nb::arg("translate") = std::tuple(0.0, 0.0),
        nb::arg("scale") = std::tuple(1.0, 1.0), nb::arg("rotate_degrees") = 0.0,
        nb::arg("perspective") = true,
        "Camera space to NDC from numbers, (4, 4); `lens_magnification` is focal length over film "
        "width here.\n\n>>> vela.build_projection_matrix(0.5, 1, 100).shape\n(4, 4)");
}

void bindMultiProjection(nb::module_& m) {
  using C = MultiProjectionCamera;
  nb::class_<C, Camera> camera(
      m, "MultiProjectionCamera",
      "A camera whose parameters can be projected by any lens. What follows from a setter is up to "
      "date after validate_camera.\n\n"
      ">>> camera = vela.MultiProjectionCamera()\n"
      ">>> camera.focal_length = 35\n>>> camera.set_horizontal_fov(90)\n"
      ">>> camera.projection = vela.SphericalProjection()\n>>> camera.validate_camera()\n"
      ">>> round(camera.horizontal_aperture, 9), camera.properties.lens_magnification\n(70.0, "
      "2.0)");
  camera.def(nb::init<>())
      .def_prop_rw("projection", &C::projectionFunc, &C::setProjectionFunc,
                   nb::for_getter(nb::rv_policy::reference), nb::for_setter(nb::keep_alive<1, 2>()),
                   nb::for_setter(nb::arg("lens").none()), "The lens, or None.")
      .def_prop_ro(
          "projection_mode", [](const C& c) { return c.projectionMode(); },
          "Of the lens; LensProjection.NONE without one.")
      .def_prop_ro(
          "projection_identifier", [](const C& c) { return std::string(c.projectionIdentifier()); },
          "Of the lens; empty without one.")
      .def_prop_ro(
          "is_base_projection_linear", [](const C& c) { return c.isBaseProjectionLinear(); },
          "Whether the lens keeps straight lines straight.")
      .def_prop_ro(
          "is_distorted", [](const C& c) { return c.isDistorted(); },
          "True when a distortion coefficient is not 0.")
      .def_prop_ro(
          "properties", [](const C& c) { return Sample(c.properties()); }, "A copy of the sample.")
      .def_prop_ro(
          "projection_matrix", [](const C& c) { return c.projectionMatrix(); }, "(4, 4).")
      .def_prop_rw("horizontal_aperture", &C::horizontalAperture, &C::setHorizontalAperture,
                   "Film width.")
      .def_prop_rw("vertical_aperture", &C::verticalAperture, &C::setVerticalAperture,
                   "Film height.")
      .def_prop_rw(
          "window_translate", [](const C& c) { return c.windowTranslate(); },
          [](C& c, const tarn::Vec2d& v) { c.setWindowTranslate(v.x, v.y); }, "NDC, (2,).")
      .def_prop_rw("window_rotate_z", &C::windowRotateZ, &C::setWindowRotateZ, "Degrees.")
      .def_prop_rw(
          "window_scale", [](const C& c) { return c.windowScale(); },
          [](C& c, const tarn::Vec2d& v) { c.setWindowScale(v.x, v.y); }, "(2,).")
      .def(
          "set_horizontal_fov", &C::setHorizontalFov, nb::arg("degrees"),
          "Sets the horizontal aperture to what shows that angle at the focal length as it is now.")
      .def_prop_rw("f_stop", &C::fStop, &C::setfStop, "F-stop.")
      .def_prop_rw("near_plane_distance", &C::nearPlaneDistance, &C::setNearPlaneDistance,
                   "Scene units.")
      .def_prop_rw("far_plane_distance", &C::farPlaneDistance, &C::setFarPlaneDistance,
                   "Scene units.")
      .def_prop_rw("focal_length", &C::focalLength, &C::setFocalLength,
                   "In the unit of the film window.")
      .def_prop_rw("focus_distance", &C::focusDistance, &C::setFocusDistance, "From the camera.")
      .def_prop_rw("distort_a", &C::distortA, &C::setDistortA, "First coefficient.")
      .def_prop_rw("distort_b", &C::distortB, &C::setDistortB, "Second coefficient.")
      .def_prop_rw("distort_c", &C::distortC, &C::setDistortC, "Third coefficient.");
  refusePickle(camera, "its lens is shared with others; pickle its numbers");
}

void bindRayContext(nb::module_& m) {
  using R = RayContext;
  nb::object type;
  {
    Record<R> r(
        m, "RayContext",
        "The ray record: what a lens writes and what intersection reads; 88 bytes. Distances "
        "are multiples of the direction. Who assigns `direction` calls update_slopes after.\n\n"
        ">>> ray = vela.RayContext()\n"
        ">>> ray.set([0, 0, 5], [0, 0, -2], vela.RayContext.CAMERA_RAY, 0.0, "
        "vela.RayContext.OUTSIDE_ORIGIN, 0.0, 100.0)\n"
        ">>> ray.is_camera_path, ray.is_slope_positive(2), ray.inv_dir[2].item()\n"
        "(True, True, -0.5)");
    r.field("origin", &R::origin, "(3,).")
        .field("direction", &R::direction, "(3,).")
        .field("min_distance", &R::minDistance, "In multiples of the direction.")
        .field("max_distance", &R::maxDistance, "In multiples of the direction.")
        .field("x_direction", &R::xDirection, "Of the neighbouring ray in x, (3,).")
        .field("y_direction", &R::yDirection, "Of the neighbouring ray in y, (3,).")
        .field("time", &R::time, "Time code.")
        .field("type", &R::type, "One word of ray type, path type and test options.")
        .field("assigned", &R::assigned, "1 once the record was filled as a whole.")
        .field("origin_type", &R::originType, "Kind of origin.")
        .field("slope_bits", &R::slopeBits, "Bits 0, 1, 2: the reciprocal's x, y, z is below 0.");
    r.withoutPickling();
    type = nb::borrow(r.type());
    r.type()
        .def("set", &R::set, nb::arg("origin"), nb::arg("direction"), nb::arg("type"),
             nb::arg("time"), nb::arg("origin_type"), nb::arg("min_distance"),
             nb::arg("max_distance"), "Fills the record; the neighbouring directions become zero.")
        .def("set_geom", &R::setGeom, nb::arg("origin"), nb::arg("direction"),
             nb::arg("min_distance"), nb::arg("max_distance"), "Replaces the ray and its range.")
        .def("set_origin_and_direction", &R::setOriginAndDirection, nb::arg("origin"),
             nb::arg("direction"), "Replaces the ray.")
        .def("set_direction", &R::setDirection, nb::arg("direction"), "Replaces the direction.")
        .def("set_dir_and_distance", &R::setDirAndDistance, nb::arg("direction"),
             nb::arg("min_distance"), nb::arg("max_distance"), "Replaces direction and range.")
        .def("invert", &R::invert, "Turns the direction round.")
        .def("set_xy_dirs_from_angle", &R::setXYDirsFromAngle, nb::arg("ax"), nb::arg("ay"),
             "Sets the neighbouring directions by angles in radians.")
        .def(
            "transform", [](R& ray, const tarn::Mat4d& by) { ray.transform(by); },
            nb::arg("matrix"), "Moves origin and direction through a matrix.")
        .def(
            "transform",
            [](R& ray, const tarn::Mat4d& m0, const tarn::Mat4d& m1, float t) {
              ray.transform(m0, m1, t);
            },
            nb::arg("m0"), nb::arg("m1"), nb::arg("t"),
            "Moves the ray as a moving frame has it at `t` from 0 to 1.")
        .def("update_slopes", &R::updateSlopes, "Refreshes the reciprocal and its sign bits.")
        .def_prop_ro(
            "inv_dir", [](const R& ray) { return ray.invDir(); },
            "1 / direction as of the last refresh, (3,).")
        .def_prop_ro("ray_type", &R::rayType, "The ray type within `type`.")
        .def_prop_ro("path_type", &R::pathType, "The path type within `type`.")
        .def_prop_ro("sides_type", &R::sidesType, "The sides within `type`.")
        .def_prop_ro("test_type", &R::testType, "The test options within `type`.")
        .def_prop_ro("is_camera_path", &R::isCameraPath, "Of exactly that ray type.")
        .def_prop_ro("is_shadow_path", &R::isShadowPath, "Of exactly that ray type.")
        .def_prop_ro("is_reflected_path", &R::isReflectedPath, "Of exactly that ray type.")
        .def_prop_ro("is_refracted_path", &R::isRefractedPath, "Of exactly that ray type.")
        .def_prop_ro("is_thin_transmitted_path", &R::isThinTransmittedPath,
                     "Of exactly that ray type.")
        .def_prop_ro("is_valid_path", &R::isValidPath, "Of any ray type.")
        .def_prop_ro("is_diffuse_contributor", &R::isDiffuseContributor, "Has that bit.")
        .def_prop_ro("is_glossy_contributor", &R::isGlossyContributor, "Has that bit.")
        .def_prop_ro("test_front_side_only", &R::testFrontSideOnly, "Has that bit.")
        .def_prop_ro("test_back_side_only", &R::testBackSideOnly, "Has that bit.")
        .def_prop_ro("test_presence_disabled", &R::testPresenceDisabled, "Has that bit.")
        .def(
            "is_slope_positive",
            [](const R& ray, int axis) {
              if (axis < 0 || axis > 2) refuse("axis: expected 0, 1 or 2");
              return ray.isSlopePositive(axis);
            },
            nb::arg("axis"), "True where the direction is negative.")
        .def("__setstate__",
             [](R& ray, const nb::bytes& bytes) {
               if (bytes.size() != sizeof(R)) refuse("a RayContext has 88 bytes");
               new (&ray) R();
               std::memcpy(static_cast<void*>(&ray), bytes.c_str(), sizeof(R));
             })
        .def_static("turn_on", &R::TurnOn, nb::arg("flags"), nb::arg("bits"), "flags | bits.")
        .def_static("turn_off", &R::TurnOff, nb::arg("flags"), nb::arg("bits"), "flags & ~bits.");
  }
  // The cached reciprocal is no field: pickles hold the bytes.
  nb::cpp_function_def(
      [](nb::handle self) {
        const R& ray = nb::cast<const R&>(self);
        return nb::make_tuple(nb::module_::import_("copyreg").attr("__newobj__"),
                              nb::make_tuple(self.type()),
                              nb::bytes(reinterpret_cast<const char*>(&ray), sizeof(R)));
      },
      nb::scope(type), nb::is_method(), nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"));
  const std::pair<const char*, R::Constant> constants[] = {
      {"UNDEFINED_RAY", R::undefinedRay},
      {"CAMERA_RAY", R::cameraRay},
      {"SHADOW_RAY", R::shadowRay},
      {"REFLECTION_RAY", R::reflectionRay},
      {"REFRACTION_RAY", R::refractionRay},
      {"THIN_TRANSMISSION_RAY", R::thinTransmissionRay},
      {"ALL_RAY_TYPES", R::allRayTypes},
      {"DIFFUSE_PATH", R::diffusePath},
      {"GLOSSY_PATH", R::glossyPath},
      {"DIFFUSE_REFLECTION_PATH", R::diffuseReflectionPath},
      {"GLOSSY_REFLECTION_PATH", R::glossyReflectionPath},
      {"SHADOW_TRANSMISSION_PATH", R::shadowTransmissionPath},
      {"ALL_PATH_TYPES", R::allPathTypes},
      {"FRONT_SIDE_TEST_ONLY", R::frontSideTestOnly},
      {"BACK_SIDE_TEST_ONLY", R::backSideTestOnly},
      {"ALL_SIDE_TYPES", R::allSideTypes},
      {"NO_PRESENCE_TEST", R::noPresenceTest},
      {"ALL_TESTS", R::allTests},
      {"ALL_TYPES", R::allTypes},
      {"UNDEFINED_ORIGIN", R::undefinedOrigin},
      {"OUTSIDE_ORIGIN", R::outsideOrigin},
      {"INSIDE_ORIGIN", R::insideOrigin},
      {"ALL_ORIGINS", R::allOrigins},
  };
  for (const auto& [name, constant] : constants)
    nb::setattr(type, name, nb::int_(int{constant.bits}));
}

}  // namespace

void bindCamera(nb::module_& m) {
  nb::enum_<LensProjection>(
      m, "LensProjection", nb::is_arithmetic(),
      "The lenses that there are.\n\n>>> vela.LensProjection.SPHERICAL.value\n2")
      .value("PERSPECTIVE", LensProjection::perspective)
      .value("ORTHOGRAPHIC", LensProjection::orthographic)
      .value("SPHERICAL", LensProjection::spherical)
      .value("CYLINDRICAL", LensProjection::cylindrical)
      .value("NONE", LensProjection::none, "What a lens outside the list reports.");
  // The lens's class is told in Lenses.cpp; calls here take it.
  nb::class_<LensProjectionFunction>(
      m, "LensProjectionFunction",
      "A lens: from image coordinates to rays, and back. Image coordinates are NDC: x from -1 to 1 "
      "over "
      "the width, y in x's unit, up. Rays are in camera space, looking down -z; single "
      "precision.\n\n"
      ">>> vela.create_lens(vela.LensProjection.SPHERICAL).identifier\n'Spherical'");
  bindParameters(m);
  bindCameras(m);
  bindMultiProjection(m);
  bindRayContext(m);
  m.def(
      "camera_prim_lens",
      [](const ovo::CameraPrim& prim, Time time) {
        requireOpen(prim);
        return cameraPrimLens(prim, time);
      },
      nb::arg("prim"), nb::arg("time") = Time(),
      "PERSPECTIVE or ORTHOGRAPHIC, as a camera prim asks for.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> vela.camera_prim_lens(vela.scene.list_cameras(stage)[0]).name\n'PERSPECTIVE'");
  m.def(
      "sample_camera_prim",
      [](const ovo::CameraPrim& prim, Time time, LensProjection lens) {
        requireOpen(prim);
        Sample sample;
        std::string why;
        if (!sampleCameraPrim(prim, time, sample, lens, &why)) refuse(why);
        return sample;
      },
      nb::arg("prim"), nb::arg("time") = Time(), nb::arg("lens") = LensProjection::none,
      "A camera prim as a sample at a time, derived values included; ValueError with the reason "
      "when no "
      "picture can be made with it.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> vela.sample_camera_prim(vela.scene.list_cameras(stage)[0]).optics.focal_length > "
      "0\nTrue");
  m.def(
      "sample_camera",
      [](const ovo::CameraParameters& parameters, const tarn::Mat4d& parent,
         const tarn::Mat4d& local, Time time, LensProjection lens) {
        Sample sample;
        std::string why;
        if (!sampleCamera(parameters, parent, local, time, sample, lens, &why)) refuse(why);
        return sample;
      },
      nb::arg("parameters"), nb::arg("parent_to_world"), nb::arg("local"), nb::arg("time") = Time(),
      nb::arg("lens") = LensProjection::none,
      "The same for cameras that are in no file.\n\n"
      ">>> import numpy\n>>> still = numpy.eye(4)\n"
      ">>> vela.sample_camera(vela.ovo.CameraParameters(), still, still).optics.focal_length\n5.0");
}

}  // namespace vela::python
