/// \file
/// From a scene to a picture of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "tarn/Time.h"
#include "vela/picture/Api.h"
#include "vela/picture/LayerChoice.h"
#include "vela/picture/LayerTable.h"
#include "vela/picture/Picture.h"
#include "vela/picture/Tiles.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/Problem.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneLights.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/View.h"
#include "vela/scene/Work.h"
#include "vela/selection/GeoSelection.h"

namespace vela::picture {

/// How a pixel's samples are spread over it.
enum class SamplePattern {
  jittered,  ///< one in each cell of a grid over the pixel, at random
  regular,   ///< a regular grid over the pixel
};

/// Which lights shine in a picture.
enum class LightChoice {
  scene,  ///< the scene's; Vela's own where it has none
  own,    ///< Vela's own: a key light and a fill light by the camera, and daylight
  both,   ///< the scene's and Vela's own
};

/// What a picture is to show and how.
struct RenderOptions {
  double time = tarn::defaultTimeValue();  ///< of meshes and view; their own times do not count
  scene::MeshFilter meshes;                ///< which meshes show, how far they are refined
  scene::ViewOptions view;                 ///< camera, lens, size
  /// What answers rays; see scene::CasterKind
  scene::CasterKind caster = scene::CasterKind::tracer;
  /// Mixes normals between points where the scene has none, and in the layer `N` too.
  bool smooth = false;
  int samples = 16;  ///< rays a pixel, 1 to 4096; rounded to a square. A single one is the centre
  SamplePattern pattern = SamplePattern::jittered;    ///< how samples are spread over a pixel
  std::vector<std::string> layers = defaultLayers();  ///< names for chooseLayers()
  /// What it has is tinted; its status of prims need not be up to date.
  std::optional<Selection::GeoSelection> selection;
  /// Which of the scene's materials count.
  scene::MaterialPurpose materialPurpose = scene::MaterialPurpose::full;
  /// False: surfaces have their displayColor alone, as those without a material have.
  bool materials = true;
  /// What textures may take of memory, in bytes; larger ones are shown with fewer pixels.
  std::size_t textureMemory = std::size_t{1} << 30;
  LightChoice lights = LightChoice::scene;  ///< which lights shine
  /// How often light of the scene's lights, and of surfaces that shine, is scattered on its way by
  /// surfaces that the picture may show or not, 0 to 8. Vela's own lights are not.
  int bounces = 1;
  /// Shows the scene, and the camera, at so many moments while the camera's shutter is open, evenly
  /// over that time: each sample of a pixel is of one of them. 0: at the picture's time alone; at
  /// most 1024. Lights and materials count as they are at the picture's time; so do layers of data,
  /// and a single sample a pixel.
  int motionSteps = 0;
  /// Pixels that are rendered beyond each edge, 0 to 16384: the picture's own are the same with
  /// them as without. Only for lenses that show more there, the linear ones.
  int overscan = 0;
};

/// What a renderer has done until now, over all of its calls and threads.
struct RenderStats {
  /// Rays from the camera, and towards lights. @{
  std::uint64_t cameraRays = 0, lightRays = 0;
  /// @}
  /// Of all threads together: finding what rays meet, and making colours of that. @{
  double traceSeconds = 0.0, shadeSeconds = 0.0;
  /// @}
};

namespace detail {
struct OpenPicture;
}

/// A picture that is set up once and rendered whole or tile by tile.
///
/// Values depend on the scene, the options and the pixel alone: tiles in any order, on any number
/// of threads, make the bytes of the whole picture.
///
/// Threads: const calls may run from any number of threads at once, into one picture as well when
/// their tiles do not overlap. Setting up changes the default channel registry, see chooseLayers().
/// The stage must not change while the renderer lives. Nothing throws but allocation, and
/// std::system_error when the machine gives not a single thread.
///
/// \code
///   using namespace vela::picture;
///   const auto stage = ovo::Stage::open("examples/demo/demo.usda");
///   RenderOptions options;
///   options.view.width = 64;
///   options.view.height = 36;
///   options.samples = 4;
///   options.layers = {"rgba", "depth"};
///
///   std::vector<vela::scene::Problem> problems;
///   const auto renderer = PictureRenderer::make(stage, options, &problems);
///   for (const vela::scene::Problem& problem : problems) std::cerr << problem.text() << '\n';
///   assert(renderer);
///
///   // All of it, on four threads; then the same pixels of one tile.
///   const std::optional<Picture> picture = renderer->renderAll(4);
///   const std::optional<Picture> part = renderer->render({8, 4, 40, 20});
///   assert(part->width == 32 && part->height == 16);
///   assert(part->layer("depth").floats(0, 0) == picture->layer("depth").floats(8, 4));
/// \endcode
class VELA_PICTURE_API PictureRenderer {
 public:
  /// Finds meshes, view and layers, and builds what answers rays.
  ///
  /// \param problems gets what is left out or passed over, as notes and warnings, in the order in
  ///                 which it was found; on failure the reason last, as an error
  /// \return null on failure: an option out of its range (badOption), a layer or camera that cannot
  ///         be had, a scene of more than memory is likely to hold, or stopped work
  [[nodiscard]] static std::unique_ptr<PictureRenderer> make(
      const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options,
      std::vector<scene::Problem>* problems = nullptr, const scene::Work& work = {});

  /// The same scene in another view: shares what this one has found and built, so that it is there
  /// at once, for viewers whose camera moves. Its pictures are those of a renderer that is made
  /// with that view, number of samples and layers.
  ///
  /// \param stage   this renderer's
  /// \param view    as makeView() gives it, or changed from that: its placement, film and size. One
  ///                without a camera keeps the exposure of this renderer's camera. With motion it
  ///                stands still while the shutter is open
  /// \param samples as RenderOptions::samples. 0: a draft, of one sample and less of the light:
  ///                none is scattered on, and one ray looks for daylight. Its drafts and all that
  ///                comes of those by this function have no scattered light
  /// \param layers  names for chooseLayers(), of layers that this renderer has
  /// \param problem badOption on failure; else untouched
  /// \return null on failure. What comes back may outlive this renderer
  [[nodiscard]] std::unique_ptr<PictureRenderer> withView(const ovo::Stage& stage, scene::View view,
                                                          int samples,
                                                          const std::vector<std::string>& layers,
                                                          scene::Problem* problem = nullptr) const;

  ~PictureRenderer();
  PictureRenderer(const PictureRenderer&) = delete;
  PictureRenderer& operator=(const PictureRenderer&) = delete;

  /// Of the picture without what is beyond its edges. @{
  [[nodiscard]] int width() const noexcept;
  [[nodiscard]] int height() const noexcept;
  /// @}
  /// What is rendered: from (0, 0) to width and height, and RenderOptions::overscan beyond.
  [[nodiscard]] Tile window() const noexcept;
  /// The layers that are rendered.
  [[nodiscard]] const LayerChoice& layers() const noexcept;
  /// The meshes that show, those that move at their moments too.
  [[nodiscard]] const scene::MeshList& meshes() const noexcept;
  /// Of what the picture shows.
  [[nodiscard]] const scene::Extent& extent() const noexcept;
  /// The camera, its lens and the size.
  [[nodiscard]] const scene::View& view() const noexcept;
  /// What answers rays.
  [[nodiscard]] const scene::RayCaster& caster() const noexcept;
  /// When the samples are taken, by RenderOptions::motionSteps: of a camera whose shutter does not
  /// open, and where neither it nor anything else moves, none.
  [[nodiscard]] const std::vector<double>& moments() const noexcept;
  /// The lights of the scene, whether they were chosen or not; none when no layer needs light.
  [[nodiscard]] const scene::SceneLights& lights() const noexcept;

  /// The whole picture without its values, which are 0: size, layers, manifest and attributes. Its
  /// pixel (0, 0) is the first of window().
  ///
  /// Attributes: `software`; `versions`, of OpenUSD and OpenSubdiv; `worldToCamera`; of the linear
  /// lenses `worldToNDC`, from 0, 0 at the picture's upper left corner to 1, 1, and of the
  /// perspective one `screenWindowCenter` and `screenWindowWidth`, the film over its distance;
  /// `camera`, the prim's path, where there is one; `frame`, the time, where it is one; `exposure`,
  /// what the camera asks for in powers of two, where that is not 0 (values are never exposed);
  /// `framesPerSecond`; with the layer `material` also `material/manifest`: one JSON object from
  /// the path of a material to its value, 1 for the first; of each matte `cryptomatte/KEY/name`,
  /// `hash` and `conversion`.
  [[nodiscard]] Picture makePicture() const;

  /// Adds to a picture of this renderer what the ids of its mattes stand for: of each matte
  /// `cryptomatte/KEY/manifest`, with the names that the picture shows. renderAll() has done so.
  /// What was there under these names is replaced.
  void addManifests(Picture& picture) const;

  /// Renders a rectangle on the caller's thread, as a picture of its own without manifest and
  /// attributes.
  /// \param tile is cut off where it lies outside of window()
  /// \return nothing when the work was stopped
  [[nodiscard]] std::optional<Picture> render(const Tile& tile, const scene::Work& work = {}) const;

  /// Renders a rectangle into its place in a picture that makePicture() made.
  /// \return false when the work was stopped, or when the picture was not made by this renderer
  bool render(const Tile& tile, Picture& picture, const scene::Work& work = {}) const;

  /// Renders everything, all of window().
  /// \param threads as for threadCount(); the picture does not depend on it
  /// \param work    both callbacks are called on the caller's thread
  /// \return nothing when the work was stopped
  [[nodiscard]] std::optional<Picture> renderAll(int threads = 0,
                                                 const scene::Work& work = {}) const;

  /// Renders a rectangle as renderAll() would, as a picture of its own: its attributes are those of
  /// the whole picture, its values the whole picture's bit by bit, and its mattes name what shows
  /// in the rectangle. ExrOptions::x, y and the size of the display say in files where it lies.
  /// \param region  is cut off where it lies outside of window(); what is left may be empty
  /// \param threads as for threadCount(); the picture does not depend on it
  /// \param work    both callbacks are called on the caller's thread
  /// \return nothing when the work was stopped
  [[nodiscard]] std::optional<Picture> renderRegion(const Tile& region, int threads = 0,
                                                    const scene::Work& work = {}) const;

  /// How many rays all calls until now have traced; may be asked while they run.
  [[nodiscard]] std::uint64_t raysTraced() const noexcept;
  /// The same with its parts and times.
  [[nodiscard]] RenderStats stats() const noexcept;

 private:
  explicit PictureRenderer(std::unique_ptr<detail::OpenPicture> open);

  std::unique_ptr<detail::OpenPicture> open_;
};

/// All of it in one call.
/// \param error why nothing came back, one line; else untouched
/// \return nothing on failure, as for PictureRenderer::make() and renderAll()
///
/// \code
///   const auto stage = ovo::Stage::open("examples/demo/demo.usda");
///   vela::picture::RenderOptions options;
///   options.view.width = options.view.height = 16;
///   std::string error;
///   const auto picture = vela::picture::renderPicture(stage, options, 0, {}, &error);
///   assert(picture && picture->layer("rgba"));
/// \endcode
[[nodiscard]] VELA_PICTURE_API std::optional<Picture> renderPicture(
    const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options, int threads = 0,
    const scene::Work& work = {}, std::string* error = nullptr);

}  // namespace vela::picture
