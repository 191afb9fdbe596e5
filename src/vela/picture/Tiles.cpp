#include "vela/picture/Tiles.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace vela::picture {

int threadCount(int requested) noexcept {
  return requested > 0 ? requested
                       : std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

bool forEachTile(
    int width, int height, int threads, const scene::Work& work,
    const std::function<void(const Tile& tile, int thread, const scene::Work& inTile)>& render) {
  if (width <= 0 || height <= 0) return true;
  const int columns = (width - 1) / kTileSize + 1, rows = (height - 1) / kTileSize + 1;
  const int tiles = columns * rows;
  const int count = std::min(threadCount(threads), tiles);

  std::atomic<int> next{0}, done{0};
  std::atomic<bool> stopped{work.isStopped()};
  std::mutex mutex;
  std::condition_variable finished;
  std::exception_ptr failure;
  int running = count;
  scene::Work inTile;
  inTile.stop = [&stopped] { return stopped.load(std::memory_order_relaxed); };

  const auto run = [&](int thread) {
    try {
      for (int i; !stopped && (i = next.fetch_add(1)) < tiles; ++done) {
        const int x = i % columns * kTileSize, y = i / columns * kTileSize;
        // In this order nothing overflows, however wide the image is.
        render(Tile{x, y, x + std::min(kTileSize, width - x), y + std::min(kTileSize, height - y)},
               thread, inTile);
      }
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex);
      if (!failure) failure = std::current_exception();
      stopped = true;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (--running == 0) finished.notify_all();
  };

  std::vector<std::thread> pool;
  pool.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    try {
      pool.emplace_back(run, i);
    } catch (const std::exception&) {
      // The machine gives no more threads: those that run do all the work. Without a single one
      // there is none to do it.
      if (i == 0) throw;
      const std::lock_guard<std::mutex> lock(mutex);
      running -= count - i;
      break;
    }
  }

  // This thread asks whether to stop, and says how far the others are.
  bool wasStopped = stopped;
  {
    std::unique_lock<std::mutex> lock(mutex);
    while (!finished.wait_for(lock, std::chrono::milliseconds(10), [&] { return running == 0; })) {
      // The callbacks may take their time: the threads need the lock to end.
      lock.unlock();
      if (!wasStopped && work.isStopped()) wasStopped = stopped = true;
      work.report(static_cast<double>(done) / tiles);
      lock.lock();
    }
  }
  for (std::thread& thread : pool) thread.join();

  if (failure) std::rethrow_exception(failure);
  if (!wasStopped) work.report(1.0);
  return !wasStopped;
}

}  // namespace vela::picture
