/// \file
/// What holds while the files of one stage are read.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "ovo/detail/OpenUsd.h"

namespace ovo::detail {

/// Said behind the name of a file that a root keeps out.
inline constexpr const char* kLiesOutside =
    ": it lies outside of the folder that the scene is kept in";

/// A part of the context that OpenUSD resolves a stage's file names under. That context goes
/// wherever the stage's names are resolved, on OpenUSD's own threads too; so limits that stand here
/// hold for this stage and no other.
class ReadContext {
 public:
  /// \param root       an absolute folder without links, or empty
  /// \param mostLayers how many files may be opened
  ReadContext(std::string root, std::size_t mostLayers)
      : state_(std::make_shared<State>(std::move(root), mostLayers)) {}

  /// Whether a resolved name may be opened: in the root, links followed. Names of what lies in a
  /// package stand for the package.
  [[nodiscard]] bool isInside(const std::string& resolved) const;
  /// Counts a file that is opened. \return false when it is one too many
  [[nodiscard]] bool countLayer() const;
  /// True once a file was one too many.
  [[nodiscard]] bool hasTooManyLayers() const { return state_->layers > state_->mostLayers; }

  // What OpenUSD asks of a part of a context. Each stage has its own.
  friend bool operator<(const ReadContext& a, const ReadContext& b) { return a.state_ < b.state_; }
  friend bool operator==(const ReadContext& a, const ReadContext& b) {
    return a.state_ == b.state_;
  }
  friend std::size_t hash_value(const ReadContext& context) {
    return std::hash<const void*>()(context.state_.get());
  }

 private:
  struct State {
    State(std::string r, std::size_t most) : root(std::move(r)), mostLayers(most) {}
    const std::string root;
    const std::size_t mostLayers;
    std::atomic<std::size_t> layers{0};
  };
  std::shared_ptr<State> state_;
};

}  // namespace ovo::detail

AR_NAMESPACE_OPEN_SCOPE
AR_DECLARE_RESOLVER_CONTEXT(ovo::detail::ReadContext);
AR_NAMESPACE_CLOSE_SCOPE
