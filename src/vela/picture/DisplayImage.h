/// \file
/// Layers of a picture as images of 8 bits a channel, to be looked at.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarn/Vec.h"
#include "vela/picture/Api.h"
#include "vela/picture/Picture.h"
#include "vela/picture/ViewTransform.h"

namespace vela::picture {

/// Codes of what a display is sent, row by row from the top.
struct DisplayImage {
  /// Pixels. @{
  int width = 0, height = 0;
  /// @}
  bool hasAlpha = false;            ///< four channels a pixel, alpha not multiplied in; else three
  std::vector<std::uint8_t> codes;  ///< width * height * channels
};

/// What is behind the surfaces of a picture.
enum class Behind {
  backdrop,  ///< the plain backdrop, seen through the view as the surfaces are
  colour,    ///< one colour, which comes out as it is
  nothing,   ///< the image has alpha
};

/// How colour is shown. Other layers have a form of their own.
struct DisplayOptions {
  ViewTransform view = *ViewTransform::make({});  ///< from linear colour to codes
  /// Powers of two, on top of the picture's attribute `exposure`.
  double exposure = 0.0;
  Behind behind = Behind::backdrop;  ///< what fills the rest
  tarn::Vec3f colour;                ///< of Behind::colour: sRGB, 0 to 1
  /// Of a picture that is a part of a larger one, where its first row lies in that and how high
  /// that is, so that the backdrop is the larger one's. 0: the picture is whole. @{
  int y = 0, wholeHeight = 0;
  /// @}
};

/// An image of one layer.
///
/// - Colour (`rgba`, `rgb`, `albedo`): exposed, over what is behind it (but `rgb` and `albedo`,
///   which know no alpha), through the view.
/// - `alpha`: grey, from black at 0 to white at 1.
/// - `depth`: the nearest white, the farthest dark grey, misses black.
/// - `P`: each axis from 0 at its least value in the picture to 1 at its largest.
/// - `N`: half the normal and a half more; misses black.
/// - `prim`, `face`, `material`: a colour for each number; black for 0 of `prim` and `material`,
///   which is nothing.
/// - Mattes, by a layer of theirs or their common name: a colour for each id, mixed by shares.
///
/// \param error why nothing came back, one line; else untouched
/// \return nothing when the picture does not have that layer or has no pixels, or when its exposure
///         is not finite
///
/// \code
///   vela::picture::Picture picture;
///   picture.width = picture.height = 1;
///   picture.layers.push_back({"N", {"N.x", "N.y", "N.z"}, {}, {0.0f, 0.0f, 1.0f}, {}});
///   const auto image = vela::picture::displayLayer(picture, "N", {});
///   assert(image && image->codes == (std::vector<std::uint8_t>{128, 128, 255}));
/// \endcode
[[nodiscard]] VELA_PICTURE_API std::optional<DisplayImage> displayLayer(
    const Picture& picture, std::string_view layer, const DisplayOptions& options,
    std::string* error = nullptr);

}  // namespace vela::picture
