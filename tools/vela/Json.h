/// \file
/// What the verbs report, and its JSON form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ovo/LayerUses.h"
#include "tarn/Vec.h"
#include "vela/scene/ExplainRay.h"
#include "vela/scene/SceneSummary.h"
#include "vela/selection/GeoSelection.h"

namespace command {

struct PickReport {
  bool hit = false;
  std::string path;
  std::uint32_t entry = 0;
  std::int32_t face = 0;
  float distance = 0.0f;
  tarn::Vec3f position, normal;
  std::string material;  ///< a path; empty: none
};

/// What a scene reads.
struct FilesReport {
  std::string file;
  std::vector<std::string> reads;
};

struct InfoReport {
  struct MeshFacts {
    std::string path, subdivision, purpose;
    std::size_t points = 0, faces = 0, triangles = 0;
    bool visible = true;
  };
  struct CurveFacts {
    std::string path, type, purpose;
    std::size_t curves = 0;  ///< or points, where the type is Points
    std::size_t points = 0;  ///< control points
    bool visible = true;
  };
  struct CameraFacts {
    std::string path;
    bool perspective = true;
    double focalLength = 0, horizontalAperture = 0, verticalAperture = 0, horizontalOffset = 0,
           verticalOffset = 0;  ///< mm
    double horizontalView = 0,
           verticalView = 0;  ///< degrees; of an orthographic camera its window in scene units
    double clippingNear = 0, clippingFar = 0, focusDistance = 0;  ///< scene units
    double fStop = 0, shutterOpen = 0, shutterClose = 0;
  };
  struct MaterialFacts {
    std::string path;
    struct Texture {
      std::string file;  ///< as the scene has it
      bool found = false;
    };
    std::size_t prims = 0;  ///< that have it, subsets of meshes among them
    bool isShown = false;   ///< by its preview surface
    std::vector<Texture> textures;
  };
  std::string file, upAxis, defaultPrim;
  double metersPerUnit = 0, timeCodesPerSecond = 0, framesPerSecond = 0, startTimeCode = 0,
         endTimeCode = 0;
  bool hasTimeRange = false;
  std::vector<std::string> problems;
  std::map<std::string, std::size_t> primsByType;
  std::vector<MeshFacts> meshes;
  std::vector<CurveFacts> curves;
  std::vector<CameraFacts> cameras;
  std::vector<MaterialFacts> materials;
  vela::scene::SceneSummary summary;
  std::vector<ovo::LayerUse> layers;
};

struct ChannelsReport {
  struct ChannelFacts {
    int number = 0;
    std::string name, layer, purpose, valueType;
    unsigned position = 0;
  };
  struct Member {
    int number = 0;
    std::string name;
  };
  struct LayerFacts {
    std::string name, purpose, valueType;
    std::vector<Member> channels;  ///< by place
  };
  std::vector<ChannelFacts> channels;  ///< by number
  std::vector<LayerFacts> layers;      ///< in the registry's order
  int firstFree = 0, free = 0;
};

/// What a name is to the registry; each list has one entry or none.
struct ChannelNameReport {
  std::string name, channelName;  ///< as given; as the registry rewrites it for a channel
  std::vector<ChannelsReport::LayerFacts> layer;
  std::vector<ChannelsReport::ChannelFacts> channel;
  std::string newLayer,
      newPurpose;     ///< of a channel made by that name now; no layer: it cannot be made
  int newNumber = 0;  ///< 0: no number is free
};

struct SelectionReport {
  /// Neighbouring elements of equal value and weight; those with neither are left out.
  struct Run {
    std::size_t first = 0, last = 0;
    float value = 0.0f, weight = 0.0f;
  };
  struct Object {
    std::string path;
    bool selected = false;
    std::size_t vertexCount = 0, faceCount = 0;
    std::vector<Run> vertices, faces;
  };
  std::string file;
  std::vector<Object> objects;  ///< by path
};

/// What a selection holds.
[[nodiscard]] SelectionReport reportOf(const vela::Selection::GeoSelection& selection);

struct ResolveReport {
  struct Reference {
    std::string reference, path, error;  ///< a path, or an error
  };
  std::vector<Reference> references;  ///< as asked for
};

/// What has changed in the reports' form: a number that grows when a key goes or changes. Their
/// schemas are in tools/vela/schemas, and are installed.
constexpr int kReportVersion = 1;

/// Texts end with a line end. What is not finite is null.
[[nodiscard]] std::string toJson(const PickReport& report);
[[nodiscard]] std::string toJson(const vela::scene::RayExplanation& why,
                                 const vela::scene::WorldRay& ray);
[[nodiscard]] std::string toJson(const InfoReport& report);
/// Of several files one object.
[[nodiscard]] std::string toJson(const std::vector<InfoReport>& reports);
[[nodiscard]] std::string toJson(const FilesReport& report);
[[nodiscard]] std::string toJson(const std::vector<FilesReport>& reports);
[[nodiscard]] std::string toJson(const ChannelsReport& report);
[[nodiscard]] std::string toJson(const ChannelNameReport& report);
[[nodiscard]] std::string toJson(const SelectionReport& report);
/// Of several files one object.
[[nodiscard]] std::string toJson(const std::vector<SelectionReport>& reports);
[[nodiscard]] std::string toJson(const ResolveReport& report);

}  // namespace command
