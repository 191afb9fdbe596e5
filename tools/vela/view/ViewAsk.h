/// \file
/// What the page asks for, read from its JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "Options.h"
#include "tarn/Mat4.h"

namespace command::viewer {

/// A request that cannot be read; its text goes to the page.
struct BadAsk : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A view of the scene: the options of the command line, and what the page changes of them.
struct ViewAsk {
  RenderOptions options;
  /// Where the camera was moved to, without scale; else it stands as the options say.
  std::optional<tarn::Mat4d> pose;
  double zoom = 1.0;  ///< of a camera that was moved: its film by so much
  std::string key;    ///< equal for equal views
};

/// Which part of a picture is asked for, and how it is shown.
struct PictureAsk {
  ViewAsk view;
  std::string layer = "rgba";
  std::string client;               ///< who asks: what it asked for before may be given up
  std::uint64_t number = 0;         ///< rising with each request of a client
  bool isDraft = false;             ///< one sample a pixel, as JPEG: for cameras that move
  int y0 = 0, y1 = 0;               ///< rows
  std::optional<double> near, far;  ///< of depth: what is white and what is dark
};

/// Pixels of a view.
struct PlaceAsk {
  ViewAsk view;
  vela::scene::PixelRect rect;
  bool through = false;
  vela::scene::PickedPart parts = vela::scene::PickedPart::objects;
  std::string selection;  ///< what is added to, as text
};

/// \param options the command line's
/// \throws BadAsk for what is no such request
[[nodiscard]] ViewAsk readView(const nlohmann::json& json, const RenderOptions& options);
[[nodiscard]] PictureAsk readPicture(const nlohmann::json& json, const RenderOptions& options);
[[nodiscard]] PlaceAsk readPlace(const nlohmann::json& json, const RenderOptions& options);

/// A text of the request; empty when it has none.
[[nodiscard]] std::string readText(const nlohmann::json& json, const char* name);

}  // namespace command::viewer
