#include "Tiles.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "Interrupt.h"

namespace command {

namespace {

using Clock = std::chrono::steady_clock;

// One line that overwrites itself; the spaces wipe what a longer line left.
void showProgress(const char* verb, double done, double seconds, std::uint64_t rays) {
  const double left = done > 0.0 ? seconds * (1.0 - done) / done : 0.0;
  const int leftSeconds = static_cast<int>(std::min(left + 0.5, 359999.0));
  std::fprintf(stderr, "\rvela %s: %3.0f %%  %.1f million rays/s  %d:%02d left   ", verb,
               100.0 * done, seconds > 0.0 ? static_cast<double>(rays) / seconds * 1e-6 : 0.0,
               leftSeconds / 60, leftSeconds % 60);
  std::fflush(stderr);
}

}  // namespace

int threadCount(int requested) {
  return requested > 0 ? requested
                       : std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

void forEachTile(const char* verb, int width, int height, int threads,
                 const std::atomic<std::uint64_t>& rays,
                 const std::function<void(const Tile&, int)>& work) {
  const int columns = (width + kTileSize - 1) / kTileSize,
            rows = (height + kTileSize - 1) / kTileSize;
  const int tiles = columns * rows;
  const int count = std::min(threadCount(threads), std::max(tiles, 1));

  std::atomic<int> next{0}, done{0};
  std::atomic<bool> stop{false};
  std::mutex mutex;
  std::condition_variable finished;
  std::exception_ptr failure;
  int running = count;

  const auto run = [&](int thread) {
    try {
      for (int i; !stop && !isInterrupted() && (i = next.fetch_add(1)) < tiles; ++done) {
        const int x = i % columns * kTileSize, y = i / columns * kTileSize;
        work(Tile{x, y, std::min(x + kTileSize, width), std::min(y + kTileSize, height)}, thread);
      }
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex);
      if (!failure) failure = std::current_exception();
      stop = true;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (--running == 0) finished.notify_all();
  };

  std::vector<std::thread> pool;
  pool.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    try {
      pool.emplace_back(run, i);
    } catch (const std::system_error&) {
      // The machine gives no more threads: those that run do all the work. Without a single one
      // there is none to do it.
      if (i == 0) throw;
      const std::lock_guard<std::mutex> lock(mutex);
      running -= count - i;
      break;
    }
  }

  // This thread only shows how far the others are.
  const bool terminal = isatty(STDERR_FILENO) != 0;
  const Clock::time_point start = Clock::now();
  {
    std::unique_lock<std::mutex> lock(mutex);
    while (!finished.wait_for(lock, std::chrono::milliseconds(250), [&] { return running == 0; }))
      if (terminal)
        showProgress(verb, static_cast<double>(done) / tiles,
                     std::chrono::duration<double>(Clock::now() - start).count(), rays);
  }
  for (std::thread& thread : pool) thread.join();
  if (terminal) {
    std::fprintf(stderr, "\r%*s\r", 78, "");
    std::fflush(stderr);
  }

  if (failure) std::rethrow_exception(failure);
  throwIfInterrupted();
}

}  // namespace command
