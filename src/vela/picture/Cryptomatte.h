/// \file
/// Mattes by name: the ids and the metadata of Cryptomatte, version 1.2.0.
///
/// A matte, `crypto_object`, `crypto_asset` or `crypto_material`, is three layers of four channels
/// each: `crypto_object00`, `crypto_object01` and `crypto_object02` with `.r .g .b .a`. They hold
/// six ranks, two a layer: the id of what covers most of the pixel and its share, then the next. A
/// share is that of the pixel's samples; what is of no rank is 0, 0. Everything here is a pure
/// function.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vela/picture/Api.h"
#include "vela/picture/Picture.h"

namespace vela::picture {

/// MurmurHash3_x86_32 with seed 0. Source: A. Appleby, the public-domain MurmurHash3, 2011.
[[nodiscard]] VELA_PICTURE_API std::uint32_t murmurHash3(std::string_view bytes) noexcept;

/// The id of a name, as the 32 bits that pictures and manifests have: its hash, with bit 23 flipped
/// where the float of these bits would otherwise be denormal, infinite or NaN. 0 stands for no name
/// at all.
///
/// \code
///   assert(vela::picture::cryptomatteId("hello") == 0x248bfa47u);
///   assert(vela::picture::cryptomatteId("") == 0x00800000u);
///   assert(vela::picture::cryptomatteValue(0x00800000u) == 1.17549435e-38f);
/// \endcode
[[nodiscard]] VELA_PICTURE_API std::uint32_t cryptomatteId(std::string_view name) noexcept;

/// The value of a channel that has these bits.
[[nodiscard]] VELA_PICTURE_API float cryptomatteValue(std::uint32_t id) noexcept;

/// The attribute of a matte: `cryptomatte/KEY/FIELD`, where KEY is the first seven hexadecimal
/// digits of the hash of the matte's name.
[[nodiscard]] VELA_PICTURE_API std::string cryptomatteAttribute(std::string_view matte,
                                                                std::string_view field);

/// The names of a picture's mattes, in the order of its layers: `crypto_object` where it has any of
/// that matte's layers.
[[nodiscard]] VELA_PICTURE_API std::vector<std::string> cryptomattesOf(const Picture& picture);

/// A manifest: one JSON object on one line, from each name to its id in eight hexadecimal digits,
/// in the order of the list. What is no UTF-8 in a name is replaced.
[[nodiscard]] VELA_PICTURE_API std::string cryptomatteManifest(
    const std::vector<std::pair<std::string, std::uint32_t>>& ids);

/// Takes the manifests of a picture's mattes out of its attributes, to be written into a file
/// beside it, and names that file there instead (`cryptomatte/KEY/manif_file`).
///
/// \param file its name as seen from the picture's folder
/// \return what to write: one JSON object with the names of all mattes, each once. A name has the
///         same id in every matte. Empty when the picture has no mattes, and is then unchanged
[[nodiscard]] VELA_PICTURE_API std::string takeCryptomatteManifests(Picture& picture,
                                                                    const std::string& file);

}  // namespace vela::picture
