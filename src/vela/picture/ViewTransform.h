/// \file
/// From linear colour to what a display is sent: exposure, then a view.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarn/Span.h"
#include "vela/picture/Api.h"

namespace vela::picture {

/// What to see a picture through.
struct ViewTransformOptions {
  /// An OpenColorIO configuration: a file, or a name that OpenColorIO knows. Empty: none, and the
  /// views are the two that are built in.
  std::string config;
  /// A view of the configuration's display; empty: the display's default one. Without a
  /// configuration `soft`, which empty stands for as well, or `clip`.
  std::string view;
  std::string display;  ///< of the configuration; empty: its default one
};

/// Linear colour, encoded for a display.
///
/// The built-in views are for sRGB displays and primaries:
/// - `clip` encodes 0 to 1 and cuts off what is beyond.
/// - `soft` leaves a colour as it is while its largest channel is at most 0.8. Above, that channel
///   approaches 1 without reaching it, and the others keep their ratio to it, so that the hue stays
///   and no difference in brightness is lost: the largest channel m becomes
///   0.8 + 0.2 t / (t + 0.2) with t = m - 0.8, which leaves 0.8 at slope 1.
///
/// With a configuration colours come in its role `scene_linear`.
///
/// Threads: const calls may run from any number of threads at once. Copies share what is inside.
///
/// \code
///   std::string error;
///   const auto soft = vela::picture::ViewTransform::make({}, &error);
///   float rgb[3] = {0.5f, 0.25f, 0.0f};
///   soft->apply(rgb);
///   assert(rgb[0] > 0.73f && rgb[0] < 0.74f && rgb[2] == 0.0f);  // encoded as sRGB
///   assert(!vela::picture::ViewTransform::make({"", "film", ""}, &error));
///   assert(error == "there is no view film; try soft or clip");
/// \endcode
class VELA_PICTURE_API ViewTransform {
 public:
  /// \param error why nothing came back, one line; else untouched
  /// \return nothing when the configuration cannot be read, or has no such display or view; when a
  ///         configuration is named and the library was built without OpenColorIO
  [[nodiscard]] static std::optional<ViewTransform> make(const ViewTransformOptions& options,
                                                         std::string* error = nullptr);

  /// Changes colours where they are.
  /// \param rgb any number of colours, three values each; what is left over stays
  void apply(tarn::Span<float> rgb) const;

 private:
  struct Processor;
  enum class View { soft, clip, configured };

  ViewTransform() = default;

  View view_ = View::soft;
  std::shared_ptr<const Processor> processor_;
};

}  // namespace vela::picture
