/// \file
/// What a picture's header says of how it was made, so that `vela render --like` makes it again.
///
/// - `vela/scene`: the scene file's name, without its folder.
/// - `vela/options`: the options that make the picture, in one canonical form: words as for a
/// shell,
///   each option with the value that took effect, in a fixed order. Outputs, threads and folders
///   are not among them, nor how images show colour: the header of a picture is the same whoever
///   rendered it, wherever.
/// - `vela/selection`: what is tinted, as `vela select` writes it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Options.h"
#include "vela/picture/Picture.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/selection/GeoSelection.h"

namespace command {

/// Adds all that holds for each file of the picture.
/// \param region what is rendered of it: all, or a part
void recordPicture(const RenderOptions& options, const vela::picture::PictureRenderer& renderer,
                   const std::optional<vela::Selection::GeoSelection>& selection,
                   const vela::picture::Tile& region, vela::picture::Picture& picture);

/// Adds the layers of one file to what recordPicture() wrote.
void recordLayers(const std::vector<std::string>& layers, vela::picture::Picture& picture);

/// Why a file is no part of the picture that these options make, by what its header says; empty
/// when it is. What it holds and how it was written does not count.
[[nodiscard]] std::string whyNoPart(const RenderOptions& options,
                                    const vela::picture::PictureRenderer& renderer,
                                    const std::optional<vela::Selection::GeoSelection>& selection,
                                    const std::string& file);

/// What a header says.
struct PictureRecord {
  std::string file;       ///< the picture's
  std::string scene;      ///< as a path that exists, when it was found
  std::string selection;  ///< the text; empty when there is none
  std::string software;   ///< what wrote the picture
  std::vector<std::string> options;
};

/// Reads the header of a picture. The scene is looked for in the current folder and beside the
/// picture.
/// \throws Failure when the file is no picture that vela render wrote
[[nodiscard]] PictureRecord readRecord(const std::string& picture);

/// What becomes of the picture that is to be like another: true when both headers say the same, and
/// yet the files differ, which is so when the scene or a file that it reads has changed. Pictures
/// with their names of mattes beside them are not compared.
[[nodiscard]] bool hasChanged(const std::string& made, const std::string& like);

/// Completes a command line by the options of the picture that `--like` names: those that it does
/// not have itself nor speaks against, and the scene. That another version wrote the picture is
/// said.
/// \param options gets the picture's options as one text, and that of the selection
/// \throws Failure when the picture's header says nothing, or nothing that this version reads, and
///         when its scene is not found
void completeLike(Arguments& arguments, RenderOptions& options);

/// Words as a shell takes them: apart by blanks, with quotes where they are needed.
[[nodiscard]] std::string joinWords(const std::vector<std::string>& words);
/// The words that joinWords() joined.
[[nodiscard]] std::vector<std::string> splitWords(const std::string& text);

}  // namespace command
