/// \file
/// All textures of a picture: each read once, together within a bound of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ovo/PropertyLinks.h"
#include "tarn/Vec.h"
#include "vela/picture/detail/Texture.h"
#include "vela/scene/Problem.h"
#include "vela/scene/Work.h"

namespace vela::picture::detail {

/// Textures by number. First all files are named, then all are read, then values are looked up.
///
/// A name with `<UDIM>` in it stands for the tiles 1001 to 1100 that are there: tile 1001 + i + 10
/// j covers the coordinates from (i, j) to (i + 1, j + 1).
///
/// When the textures would take more than the bound, the largest is halved until they do not. So
/// what a picture shows depends on the bound and the files alone, never on the order of look-ups.
///
/// Threads: const calls may run from any number of threads at once.
class TextureSet {
 public:
  /// The number of a file's texture; the same for equal files and colour spaces.
  /// \param owner where the file is named from; resolves the names of tiles
  std::uint32_t add(const ovo::PropertyLinks& owner, const ovo::FileReference& file,
                    ColourSpace space);
  /// Reads all that was added.
  /// \param mostBytes of all textures together; what reading takes for a time comes on top: a few
  ///                  rows, and at most as much again for images that can only be decoded whole
  /// \param threads   how many read at the same time; 0: as many as the machine has
  void load(std::size_t mostBytes, int threads, const scene::Work& work = {});

  /// True when there is something to look up: a file that was read, or one of its tiles.
  [[nodiscard]] bool has(std::uint32_t texture) const { return textures_[texture].hasAny; }
  /// See Texture::lookup; coordinates of a tile that is not there have 0 in all channels.
  [[nodiscard]] tarn::Vec4f lookup(std::uint32_t texture, const tarn::Vec2f& st, float footprint,
                                   Wrap s, Wrap t) const;

  /// Files that are missing or cannot be read, then those that were halved, as notes.
  [[nodiscard]] const std::vector<scene::Problem>& problems() const { return problems_; }
  /// What the textures take.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  // One file of a texture.
  struct Image {
    std::string file;  // as it can be read
    ColourSpace space = ColourSpace::automatic;
    ImageInfo info;
    bool isOpen = false;  // its head could be read
    int reduction = 0;
    std::unique_ptr<const Texture> texture;
    std::string why;  // it cannot be read
  };
  struct Entry {
    std::string name;  // for messages
    bool isTiled = false, hasAny = false;
    std::map<int, std::size_t> images;  // by tile; a plain file is tile 0
  };

  std::size_t addImage(const std::string& file, ColourSpace space);

  std::vector<Entry> textures_;
  std::vector<Image> images_;
  std::map<std::pair<std::string, ColourSpace>, std::uint32_t> textureOf_;
  std::map<std::pair<std::string, ColourSpace>, std::size_t> imageOf_;
  std::vector<scene::Problem> problems_;
  std::size_t bytes_ = 0;
  std::size_t mostPixels_ = kMostPixels;  // of a texture, as the stages of its owners say
};

}  // namespace vela::picture::detail
