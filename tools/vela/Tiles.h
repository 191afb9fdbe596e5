/// \file
/// Work over an image, tile by tile, on several threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace command {

struct Tile {
  int x0, y0, x1, y1;  ///< pixels from x0, y0 up to but without x1, y1
};

inline constexpr int kTileSize = 32;

/// Calls \p work(tile, thread) once for each tile of a width x height image, on \p threads threads
/// (0: as many as the machine has); `thread` counts from 0. Which thread gets which tile is not
/// fixed: work must depend on the tile alone.
///
/// While it runs, a line on standard error shows progress when that is a terminal: share done, rays
/// per second (from \p rays, which the work counts up) and time left.
///
/// \throws Interrupted after SIGINT or SIGTERM, once the tiles under way are done; whatever the
///         work throws first
void forEachTile(const char* verb, int width, int height, int threads,
                 const std::atomic<std::uint64_t>& rays,
                 const std::function<void(const Tile&, int)>& work);

/// The number of threads that forEachTile takes for a request.
[[nodiscard]] int threadCount(int requested);

}  // namespace command
