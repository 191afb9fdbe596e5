#include "vela/picture/detail/TextureSet.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <system_error>
#include <thread>

#include "ovo/OpenOptions.h"
#include "ovo/Stage.h"
#include "vela/picture/Tiles.h"

namespace vela::picture::detail {

using scene::Problem;
using tarn::Vec2f;
using tarn::Vec4f;

namespace {

const std::string kTileMark = "<UDIM>";
constexpr int kFirstTile = 1001, kLastTile = 1100;

// Runs what reads an image. Memory may end on a thread of its own, where nobody would catch it.
template <class Function>
void withinMemory(std::string& why, const Function& read) {
  try {
    read();
  } catch (const std::bad_alloc&) {
    why = "there is not enough memory to read it";
  }
}

// Calls work(i) for each i below count, on several threads.
template <class Function>
void forEach(std::size_t count, int threads, const Function& work) {
  std::atomic<std::size_t> next{0};
  const auto run = [&] {
    for (std::size_t i = next++; i < count; i = next++) work(i);
  };
  std::vector<std::thread> others;
  try {
    for (int i = 1; i < threadCount(threads) && static_cast<std::size_t>(i) < count; ++i)
      others.emplace_back(run);
  } catch (const std::system_error&) {
    // Those that there are do it all.
  }
  run();
  for (std::thread& other : others) other.join();
}

}  // namespace

std::uint32_t TextureSet::add(const ovo::PropertyLinks& owner, const ovo::FileReference& file,
                              ColourSpace space) {
  if (owner.isValid())
    mostPixels_ = std::min(mostPixels_, ovo::openOptionsOf(*owner.getStage()).texturePixels);
  const std::string& name = file.anchored;
  const auto [place, isNew] =
      textureOf_.try_emplace({name, space}, static_cast<std::uint32_t>(textures_.size()));
  if (!isNew) return place->second;
  Entry& entry = textures_.emplace_back();
  entry.name = name.empty() ? file.written : name;
  const std::size_t mark = name.find(kTileMark);
  entry.isTiled = mark != std::string::npos;
  if (!entry.isTiled) {
    if (!file.resolved.empty()) entry.images[0] = addImage(file.resolved, space);
    return place->second;
  }
  for (int tile = kFirstTile; tile <= kLastTile; ++tile) {
    std::string ofTile = name;
    ofTile.replace(mark, kTileMark.size(), std::to_string(tile));
    const std::string resolved = owner.resolveFile(ofTile);
    if (!resolved.empty()) entry.images[tile] = addImage(resolved, space);
  }
  return place->second;
}

std::size_t TextureSet::addImage(const std::string& file, ColourSpace space) {
  const auto [place, isNew] = imageOf_.try_emplace({file, space}, images_.size());
  if (isNew) {
    Image& image = images_.emplace_back();
    image.file = file;
    image.space = space;
  }
  return place->second;
}

void TextureSet::load(std::size_t mostBytes, int threads, const scene::Work& work) {
  // First the headers alone, which say how large the images are.
  forEach(images_.size(), threads, [&](std::size_t i) {
    Image& image = images_[i];
    withinMemory(image.why, [&] {
      ovo::FileBytes bytes;
      if (work.isStopped() || !readFileBytes(image.file, bytes, &image.why)) return;
      const auto reader = ImageReader::open(bytes.view(), mostBytes, &image.why);
      if (!reader) return;
      image.info = reader->info();
      const auto width = static_cast<std::size_t>(image.info.width),
                 height = static_cast<std::size_t>(image.info.height);
      image.isOpen = width * height <= mostPixels_;
      if (!image.isOpen)
        image.why = "it has " + std::to_string(width) + " x " + std::to_string(height) +
                    " pixels, more than " + std::to_string(mostPixels_);
    });
  });

  // Then the widths and heights to read them at: the largest is halved until all fit.
  const auto size = [](const Image& image) {
    return image.isOpen ? Texture::bytesFor(image.info, image.reduction) : 0;
  };
  for (const Image& image : images_) bytes_ += size(image);
  while (bytes_ > mostBytes) {
    const auto largest =
        std::max_element(images_.begin(), images_.end(),
                         [&](const Image& a, const Image& b) { return size(a) < size(b); });
    const std::size_t before = size(*largest);
    ++largest->reduction;
    const std::size_t after = size(*largest);
    if (after >= before) break;  // all are single texels
    bytes_ -= before - after;
  }

  // Then the pixels.
  forEach(images_.size(), threads, [&](std::size_t i) {
    Image& image = images_[i];
    withinMemory(image.why, [&] {
      ovo::FileBytes bytes;
      if (work.isStopped() || !image.isOpen || !readFileBytes(image.file, bytes, &image.why))
        return;
      image.texture =
          Texture::read(bytes.view(), image.space, image.reduction, mostBytes, &image.why);
    });
  });

  // What is missing or smaller than in its file is said.
  const auto note = [&](Problem::Kind kind, const std::string& subject, const std::string& reason) {
    problems_.push_back({kind, Problem::Severity::note, subject, reason});
  };
  for (Entry& entry : textures_) {
    for (const auto& [tile, index] : entry.images) {
      const Image& image = images_[index];
      entry.hasAny = entry.hasAny || image.texture;
      if (!image.texture) note(Problem::Kind::noTexture, image.file, image.why);
    }
    // A node without a file asks for its fallback.
    if (entry.images.empty() && !entry.name.empty())
      note(Problem::Kind::noTexture, entry.name, "it is missing");
  }
  for (const Image& image : images_)
    if (image.texture && image.reduction > 0)
      note(Problem::Kind::textureReduced, image.file,
           "shown with " + std::to_string(image.texture->width()) + " x " +
               std::to_string(image.texture->height()) + " of " + std::to_string(image.info.width) +
               " x " + std::to_string(image.info.height) +
               " pixels, to stay within the memory for textures");
}

Vec4f TextureSet::lookup(std::uint32_t texture, const Vec2f& st, float footprint, Wrap s,
                         Wrap t) const {
  const Entry& entry = textures_[texture];
  constexpr Vec4f kNothing{0.0f, 0.0f, 0.0f, 0.0f};
  if (!entry.isTiled) {
    const auto found = entry.images.find(0);
    if (found == entry.images.end() || !images_[found->second].texture) return kNothing;
    return images_[found->second].texture->lookup(st, footprint, s, t);
  }
  const float column = std::floor(st.x), line = std::floor(st.y);
  // Also false for a NaN.
  if (!(column >= 0.0f && column <= 9.0f && line >= 0.0f && line <= 9.0f)) return kNothing;
  const auto found =
      entry.images.find(kFirstTile + static_cast<int>(column) + 10 * static_cast<int>(line));
  if (found == entry.images.end() || !images_[found->second].texture) return kNothing;
  return images_[found->second].texture->lookup({st.x - column, st.y - line}, footprint,
                                                Wrap::clamp, Wrap::clamp);
}

}  // namespace vela::picture::detail
