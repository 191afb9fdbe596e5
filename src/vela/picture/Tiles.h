/// \file
/// Work over an image, tile by tile, on several threads.
#pragma once

#include <functional>

#include "vela/picture/Api.h"
#include "vela/scene/Work.h"

namespace vela::picture {

/// Pixels from x0, y0 up to but without x1, y1.
struct Tile {
  /// Where it begins, and where it ends, in pixels from the top left. @{
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  /// @}

  /// Pixels. @{
  [[nodiscard]] int width() const noexcept { return x1 - x0; }
  [[nodiscard]] int height() const noexcept { return y1 - y0; }
  /// @}
};

/// The width and height of the tiles that forEachTile() makes, but for those at the right and the
/// lower end of an image.
inline constexpr int kTileSize = 32;

/// The number of threads for a request: as asked for, for 0 or less as many as the machine has.
[[nodiscard]] VELA_PICTURE_API int threadCount(int requested) noexcept;

/// Calls \p render once for each tile of a width x height image, on \p threads threads, and comes
/// back when all of them are done.
///
/// \param threads as for threadCount(). When the machine gives fewer, those do all the work
/// \param work    both callbacks are called on the caller's thread alone, about every 10 ms
/// \param render  gets the tile, the number of its thread (from 0 up) and what tells it to stop:
///                safe to ask from any thread, worth asking for every row. Which thread gets which
///                tile is not fixed, so that the result must depend on the tile alone
/// \return false when \p work stopped it: some tiles are then not done, or not wholly
/// \throws whatever \p render throws first, once all threads have ended; std::system_error when the
///         machine gives not a single thread
VELA_PICTURE_API bool forEachTile(
    int width, int height, int threads, const scene::Work& work,
    const std::function<void(const Tile& tile, int thread, const scene::Work& inTile)>& render);

}  // namespace vela::picture
