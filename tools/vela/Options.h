/// \file
/// What the command line says.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "ovo/Path.h"
#include "ovo/Variants.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"
#include "vela/picture/DisplayImage.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/FileFormat.h"
#include "vela/picture/LayerTable.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/Picking.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/View.h"

namespace command {

/// Options of every verb that looks at a scene through a camera.
struct SceneOptions {
  std::string file;
  std::string camera, lens;
  int width = 0, height = 0;
  double time = tarn::defaultTimeValue();
  std::vector<vela::scene::Purpose> purposes = vela::scene::MeshFilter().purposes;
  std::vector<std::string> includedTypes, excludedPaths, maskPaths;
  std::vector<ovo::VariantChoice> variants;
  std::optional<double> turn;  ///< degrees that the camera goes around
  bool withInvisible = false;
  int subdivisionLevel = 0;
  bool smooth = false;
  bool clipping = false;  ///< by the camera's planes
  vela::scene::CasterKind engine = vela::scene::CasterKind::tracer;
  vela::scene::MaterialPurpose materialPurpose = vela::scene::MaterialPurpose::full;

  [[nodiscard]] vela::scene::MeshFilter filter() const {
    return {time,
            purposes,
            withInvisible,
            includedTypes,
            {excludedPaths.begin(), excludedPaths.end()},
            subdivisionLevel,
            {maskPaths.begin(), maskPaths.end()}};
  }
  /// \throws Failure (usage) when there is no such lens
  [[nodiscard]] vela::scene::ViewOptions view() const;
};

/// A file that a picture is written to.
struct PictureOutput {
  std::string file;  ///< with `{layer}` in it: a file for each layer
  vela::picture::FileFormat format = vela::picture::FileFormat::exr;
  bool isColour = false;  ///< shows colour, whatever the layers are
};

/// How the files of a picture are written.
struct PictureFileOptions {
  vela::picture::Compression compression = vela::picture::Compression::zip;
  bool halfColour = false;
  vela::picture::Behind behind = vela::picture::Behind::backdrop;
  tarn::Vec3f colour;     ///< of Behind::colour: sRGB
  double exposure = 0.0;  ///< powers of two
  std::string view, display;
  std::string manifest;  ///< a file for the names of mattes; empty: they stand in the header
};

struct RenderOptions {
  SceneOptions scene;
  std::vector<PictureOutput> outputs;
  PictureFileOptions files;
  std::optional<vela::scene::PixelRect> region;  ///< as given; empty: the whole picture
  int tile = 0, tiles = 0;                       ///< band 1 to tiles of its rows; 0: no band
  std::string fromTiles;                         ///< names of bands with {tile}, to be read
  std::vector<double> frames;                    ///< empty: one picture
  int turntable = 0;                             ///< steps; 0: none
  bool allCameras = false;
  bool skipExisting = false;
  std::string show;           ///< the layer to draw in the terminal; empty for none
  std::string selection;      ///< a file; what it selects is tinted
  std::string like;           ///< the picture whose options are taken; empty for none
  std::string likeSelection;  ///< the text of a selection, out of that picture's header
  std::string likeOptions;    ///< that picture's, as one text
  bool statistics = false;
  bool layersAreGiven = false;
  int samples = 16;
  vela::picture::SamplePattern pattern = vela::picture::SamplePattern::jittered;
  int threads = 0;
  bool materials = true;     ///< else displayColor alone
  int textureMemory = 1024;  ///< megabytes
  vela::picture::LightChoice lights = vela::picture::LightChoice::scene;
  int bounces = vela::picture::RenderOptions().bounces;
  bool depthOfField = false;
  bool motion = false;
  int motionSteps = 32;
  int overscan = 0;  ///< pixels beyond each edge
  std::vector<std::string> layers = vela::picture::defaultLayers();
};

/// An option of `vela render` as it was given.
struct GivenOption {
  std::string name;   ///< `--output`
  std::string value;  ///< empty for a flag
  bool isFlag = false;
};

struct SubmitOptions {
  RenderOptions render;
  std::vector<GivenOption> given;  ///< in the order of the table; neither the scene nor the frames
  std::string job;                 ///< the template to write
  std::string command = "vela";    ///< what workers call
  int chunk = 1;                   ///< frames a task
  int tiles = 1;                   ///< tasks a frame
  int taskSeconds = 0;             ///< after which a task is ended; 0: never
  bool estimates = false;          ///< says what the job would take, and writes none
  std::vector<int> machines = {1, 10, 100, 1000};  ///< for which it says so
  double price = 0.0;                              ///< of a machine, an hour; 0: not told
  double bandwidth = 0.0;            ///< to and from a machine, MB/s; 0: files are where it is
  std::string version;               ///< what this worker must be; empty: a job is written
  std::vector<std::string> folders;  ///< which this worker must be able to write to
  std::vector<std::string> inputs;   ///< files besides the scene that it must be able to read
  std::string seen;  ///< the file that says what of the scene it must see; empty: nothing does
};

struct ViewVerbOptions {
  RenderOptions render;
  std::string address = "127.0.0.1";
  unsigned short port = 0;  ///< 0: any that is free
  bool opensBrowser = false;
};

struct PickOptions {
  SceneOptions scene;
  bool byRay = false;
  int pixelX = 0, pixelY = 0;
  double ray[6] = {};  ///< origin, direction
  bool json = false;
};

struct ExplainOptions {
  PickOptions pick;
  bool withCulled = false;
};

struct SelectOptions {
  SceneOptions scene;
  vela::scene::PixelRect rect;
  bool through = false;
  vela::scene::PickedPart parts = vela::scene::PickedPart::objects;
  std::string output, add;
  std::vector<std::string> shown;  ///< selections to print instead
  bool json = false;
};

struct InfoOptions {
  std::vector<std::string> files;
  int depth = 3;  ///< of the tree
  double time = tarn::defaultTimeValue();
  bool json = false;
  bool filesAlone = false;  ///< the list of files instead
};

struct ResolveOptions {
  std::vector<std::string> references;
  bool json = false;
};

struct ChannelsOptions {
  bool byName = false;
  std::string name;
  bool json = false;
};

struct MeshOptions {
  std::vector<std::string> files;
  std::string prim;  ///< empty: all meshes
  double time = tarn::defaultTimeValue();
  bool json = false;
};

struct MakeOptions {
  std::string shape, output;  ///< cube, grid, cylinder or sphere
  double size[3] = {1, 1, 1};
  unsigned rows = 1, columns = 1;
  std::string scheme = "none";
  bool separatePoints = false, withoutCaps = false;
};

struct SelftestOptions {
  int threads = 0;
};

struct HelpOptions {
  std::string verb;   ///< empty: all of them
  std::string shell;  ///< its completion instead
  std::string share;  ///< a folder: man pages and completions are written there instead
  bool man = false, messages = false;
};

/// Read the arguments that follow the verb. \throws Failure (usage) on wrong ones
/// \return false when the verb's help was asked for and printed
bool readArguments(int count, char** arguments, RenderOptions& options);
bool readArguments(int count, char** arguments, SubmitOptions& options);
bool readArguments(int count, char** arguments, ViewVerbOptions& options);
bool readArguments(int count, char** arguments, PickOptions& options);
bool readArguments(int count, char** arguments, InfoOptions& options);
bool readArguments(int count, char** arguments, MeshOptions& options);
bool readArguments(int count, char** arguments, MakeOptions& options);
bool readArguments(int count, char** arguments, ChannelsOptions& options);
bool readArguments(int count, char** arguments, SelectOptions& options);
bool readArguments(int count, char** arguments, ResolveOptions& options);
bool readArguments(int count, char** arguments, HelpOptions& options);
bool readArguments(int count, char** arguments, ExplainOptions& options);
bool readArguments(int count, char** arguments, SelftestOptions& options);

// The verbs. They give the exit code of what is no failure. \throws Failure, Interrupted
ExitCode render(const RenderOptions& options);
ExitCode submit(const SubmitOptions& options);
ExitCode view(const ViewVerbOptions& options);
ExitCode pick(const PickOptions& options);
ExitCode explain(const ExplainOptions& options);
ExitCode info(const InfoOptions& options);
ExitCode mesh(const MeshOptions& options);
ExitCode make(const MakeOptions& options);
ExitCode channels(const ChannelsOptions& options);
ExitCode select(const SelectOptions& options);
ExitCode resolve(const ResolveOptions& options);
ExitCode help(const HelpOptions& options);
ExitCode selftest(const SelftestOptions& options);

}  // namespace command
