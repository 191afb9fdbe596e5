/// \file
/// The scene that the page shows: opened once, found and built for each time and each choice of
/// what shows, seen from anywhere.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "Options.h"
#include "ovo/Stage.h"
#include "vela/picture/PictureRenderer.h"
#include "view/ViewAsk.h"

namespace command::viewer {

/// What of a scene is found and built. It keeps its stage, whatever is opened later.
struct Built {
  std::string key;
  std::shared_ptr<ovo::Stage> stage;
  std::unique_ptr<const vela::picture::PictureRenderer> renderer;
};

/// A view that is ready to be rendered, and what it came from.
struct Seen {
  std::shared_ptr<const Built> built;
  std::unique_ptr<const vela::picture::PictureRenderer> renderer;
};

/// Threads: all calls may run from any number of threads at once. What is found and built is so one
/// after the other, since all of it says what it leaves out on the same standard error.
class Session {
 public:
  /// Opens the scene and builds the view of the command line. \throws Failure, Interrupted
  explicit Session(const RenderOptions& options);

  [[nodiscard]] const RenderOptions& options() const { return options_; }
  [[nodiscard]] std::shared_ptr<ovo::Stage> stage();

  /// \throws Failure, Interrupted
  [[nodiscard]] std::shared_ptr<const Built> build(const ViewAsk& ask);
  /// The view of a request: that of `vela render` with its options, or where its camera was moved.
  /// \throws Failure, Interrupted
  [[nodiscard]] vela::scene::View view(const ViewAsk& ask, const Built& built);
  /// \param samples a pixel; 0: a draft
  /// \throws Failure, Interrupted, BadAsk
  [[nodiscard]] Seen see(const ViewAsk& ask, int samples, const std::vector<std::string>& layers);

  /// True when a file that the scene is composed of is another one than when it was opened.
  [[nodiscard]] bool hasChanged();
  /// Opens the scene anew. Layers that somebody still holds would be the old ones again: the call
  /// waits until no question is being answered, and \p forget lets go of what is kept elsewhere.
  /// What is there stays when a first look finds that the scene cannot be opened.
  /// \throws Failure, Interrupted
  void reload(const std::function<void()>& forget);
  /// How often it was opened. Pictures of another generation need not be finished.
  [[nodiscard]] int generation() const { return generation_; }
  /// To be held while a question is answered.
  [[nodiscard]] std::shared_lock<std::shared_mutex> use() {
    return std::shared_lock<std::shared_mutex>(inUse_);
  }

  /// The layers that a page may show, by their names.
  [[nodiscard]] static std::vector<std::string> layers();

 private:
  using Stamp = std::pair<std::filesystem::file_time_type, std::uintmax_t>;
  [[nodiscard]] static Stamp stampOf(const std::string& file);
  void open();
  [[nodiscard]] std::shared_ptr<ovo::Stage> stageUnlocked() const;
  [[nodiscard]] vela::scene::View viewUnlocked(const ViewAsk& ask, const Built& built);
  [[nodiscard]] std::shared_ptr<const Built> buildUnlocked(const ViewAsk& ask);

  const RenderOptions options_;
  std::shared_mutex inUse_;
  std::mutex mutex_;
  std::shared_ptr<ovo::Stage> stage_;
  std::list<std::shared_ptr<const Built>> built_;  // the last used first
  std::vector<std::pair<std::string, Stamp>> files_;
  std::atomic<int> generation_{0};
};

}  // namespace command::viewer
