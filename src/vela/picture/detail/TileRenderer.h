/// \file
/// Renders the pixels of a tile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/Vec.h"
#include "vela/picture/Picture.h"
#include "vela/picture/Tiles.h"
#include "vela/picture/detail/Mattes.h"
#include "vela/picture/detail/PixelSamples.h"
#include "vela/picture/detail/PixelValues.h"
#include "vela/picture/detail/RenderJob.h"
#include "vela/picture/detail/Shader.h"
#include "vela/scene/SurfaceHit.h"
#include "vela/scene/Work.h"
#include "vela/scene/WorldRay.h"

namespace vela::picture::detail {

/// What work has been done.
struct TileCounts {
  std::uint64_t cameraRays = 0, lightRays = 0;
  std::int64_t traceTime = 0, shadeTime = 0;  ///< nanoseconds
};

/// The scratch memory of one thread, and the way from pixels to layers: rays, hits, light, values.
/// A pixel depends on its position in the picture, the frame and the scene alone.
class TileRenderer {
 public:
  /// \param job must outlive the renderer
  explicit TileRenderer(const RenderJob& job);

  /// \param tile    of the job's picture, at most kTileSize wide
  /// \param x0, y0  the pixel of the whole picture that is pixel (0, 0) of \p picture
  /// \param picture has the job's layers and room for the tile
  /// \param counts  counts up what was done
  /// \return false when the work was stopped, which is asked before each row
  bool render(const Tile& tile, int x0, int y0, Picture& picture, const scene::Work& work,
              TileCounts& counts);

 private:
  // An array of bool: std::vector<bool> has no addresses.
  class Answers {
   public:
    bool* withRoomFor(std::size_t count);

   private:
    std::size_t size_ = 0;
    std::unique_ptr<bool[]> answers_;
  };

  void renderRow(const Tile& tile, int y);
  void traceCentres(const Tile& tile, int y);
  void traceSamples(const Tile& tile, int y);
  // The same by points of the lens, or at moments.
  void traceThroughLens(int width);
  void trace();
  void shade(int width);
  // The same for scenes with materials or lights: what shows through surfaces counts too, and light
  // that they scatter.
  void shadeLooks(int width);
  void resolveLooks(float share);
  void bounce(float share);
  void makeFootprints(const Tile& tile, int y);
  void writeCentres(const Tile& tile, int y);
  void writeMeans(const Tile& tile, int y);
  void writeCoverage(const Tile& tile, int y);
  // The index in the picture of the whole picture's pixel (x, y).
  [[nodiscard]] std::size_t pixel(int x, int y) const;

  const RenderJob& job_;
  bool hasCentres_, hasMeans_, hasCoverage_;  // which samplings the job's layers have
  std::vector<PixelSamples> samples_;
  std::vector<tarn::Vec2f> points_;  // of the picture, NDC
  std::vector<tarn::Vec2f> onLens_;
  std::vector<scene::WorldRay> rays_;
  std::vector<scene::SurfaceHit> hits_;
  Shader::Batch batch_;
  Answers answers_;
  std::vector<PixelMean> means_;
  PixelCoverage coverage_;

  // A sample's way through surfaces that hide only some of what is behind them.
  struct Path {
    std::size_t pixel, sample;
    scene::WorldRay ray;
    float weight;
    double travelled;  // up to the ray's start
    bool hasAlbedo;
  };
  // A ray to a light that met surfaces which may let it through.
  struct Passage {
    std::size_t light;  // in the batch
    float weight;
    double travelled;  // up to the ray's start
  };
  // How far apart neighbouring samples of a pixel are: at the camera, and more with each unit.
  struct Footprint {
    float start = 0.0f, growth = 0.0f;
  };
  std::vector<Path> paths_, further_;
  std::vector<Passage> passages_;
  std::vector<scene::WorldRay> passing_;
  std::vector<Footprint> footprints_;

  // Of the tile that is being rendered.
  Picture* picture_ = nullptr;
  int x0_ = 0, y0_ = 0;
  TileCounts counts_;
};

}  // namespace vela::picture::detail
