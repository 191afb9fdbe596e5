#include "vela/picture/detail/Texture.h"

#include <half.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>

namespace vela::picture::detail {

namespace {

using tarn::Vec2f;
using tarn::Vec4f;

// The channels that carry light, of an image with so many.
int coloursOf(int channels) { return channels <= 2 ? 1 : 3; }

template <class T>
T valueAt(const unsigned char* bytes, std::size_t index) {
  T value;
  std::memcpy(&value, bytes + index * sizeof(T), sizeof value);
  return value;
}

float storedAt(const unsigned char* bytes, std::size_t index, SampleType type) {
  switch (type) {
    case SampleType::uint8: return static_cast<float>(bytes[index]) / 255.0f;
    case SampleType::uint16:
      return static_cast<float>(valueAt<std::uint16_t>(bytes, index)) / 65535.0f;
    case SampleType::half: return static_cast<float>(valueAt<half>(bytes, index));
    default: return valueAt<float>(bytes, index);
  }
}

const std::array<float, 256>& srgbOfBytes() {
  static const std::array<float, 256> table = [] {
    std::array<float, 256> made{};
    for (std::size_t i = 0; i < made.size(); ++i)
      made[i] = decodeSrgb(static_cast<float>(i) / 255.0f);
    return made;
  }();
  return table;
}

// Reduces an image while its rows come in, each texel to the mean over the area that it covers.
class RowReducer {
 public:
  using Sink = std::function<void(const float* row, int y)>;

  RowReducer(int width, int height, int outWidth, int outHeight, int channels, Sink sink)
      : width_(width),
        height_(height),
        outWidth_(outWidth),
        outHeight_(outHeight),
        channels_(static_cast<std::size_t>(channels)),
        sink_(std::move(sink)),
        narrow_(static_cast<std::size_t>(outWidth) * channels_),
        sums_(narrow_.size()),
        out_(narrow_.size()) {}

  void add(const float* row) {
    narrow(row);
    // The rows that this one is part of, in units of its own height.
    const double scale = static_cast<double>(height_) / outHeight_;
    while (outY_ < outHeight_) {
      const double from = std::max(outY_ * scale, static_cast<double>(y_));
      const double to = std::min((outY_ + 1) * scale, static_cast<double>(y_ + 1));
      const double share = std::max(to - from, 0.0) / scale;
      for (std::size_t i = 0; i < sums_.size(); ++i) sums_[i] += narrow_[i] * share;
      // The last row ends with the image, whatever rounding says.
      const bool isDone = y_ + 1 == height_ ? true : (outY_ + 1) * scale <= y_ + 1;
      if (!isDone) break;
      for (std::size_t i = 0; i < sums_.size(); ++i) out_[i] = static_cast<float>(sums_[i]);
      sink_(out_.data(), outY_++);
      std::fill(sums_.begin(), sums_.end(), 0.0);
    }
    ++y_;
  }

 private:
  void narrow(const float* row) {
    const double scale = static_cast<double>(width_) / outWidth_;
    for (int x = 0; x < outWidth_; ++x) {
      const double from = x * scale, to = (x + 1) * scale;
      const int last = std::min(width_ - 1, static_cast<int>(std::ceil(to)) - 1);
      double* const out = &narrow_[static_cast<std::size_t>(x) * channels_];
      std::fill_n(out, channels_, 0.0);
      for (int i = static_cast<int>(from); i <= last; ++i) {
        const double share =
            (std::min(to, i + 1.0) - std::max(from, static_cast<double>(i))) / scale;
        for (std::size_t c = 0; c < channels_; ++c)
          out[c] += share * static_cast<double>(row[static_cast<std::size_t>(i) * channels_ + c]);
      }
    }
  }

  int width_, height_, outWidth_, outHeight_;
  std::size_t channels_;
  Sink sink_;
  std::vector<double> narrow_, sums_;
  std::vector<float> out_;
  int y_ = 0, outY_ = 0;
};

// The texel for an index beyond the edges.
int wrapIndex(std::int64_t i, int size, Wrap wrap) {
  if (wrap == Wrap::repeat) {
    i %= size;
    return static_cast<int>(i < 0 ? i + size : i);
  }
  if (wrap == Wrap::mirror) {
    const std::int64_t period = 2 * static_cast<std::int64_t>(size);
    i %= period;
    if (i < 0) i += period;
    return static_cast<int>(i < size ? i : period - 1 - i);
  }
  return static_cast<int>(std::clamp<std::int64_t>(i, 0, size - 1));
}

// A coordinate within the range where the image does not repeat itself.
double reduceCoordinate(double v, Wrap wrap) {
  if (wrap == Wrap::repeat) return v - std::floor(v);
  if (wrap == Wrap::mirror) return v - 2.0 * std::floor(0.5 * v);
  return std::clamp(v, 0.0, 1.0);
}

Vec4f mix(const Vec4f& a, const Vec4f& b, float t) { return a * (1.0f - t) + b * t; }

}  // namespace

float decodeSrgb(float encoded) noexcept {
  return encoded <= 0.04045f ? encoded / 12.92f : std::pow((encoded + 0.055f) / 1.055f, 2.4f);
}

int sizeAtLevel(int size, int level) noexcept {
  for (; level > 0 && size > 1; --level) size = size / 2 + size % 2;
  return size;
}

std::size_t Texture::bytesFor(const ImageInfo& info, int reduction) {
  const SampleType reduced =
      info.type == SampleType::float32 ? SampleType::float32 : SampleType::half;
  std::size_t bytes = 0;
  for (int level = reduction;; ++level) {
    const int width = sizeAtLevel(info.width, level), height = sizeAtLevel(info.height, level);
    bytes += static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
             static_cast<std::size_t>(info.channels) * bytesOf(level == 0 ? info.type : reduced);
    if (width == 1 && height == 1) return bytes;
  }
}

void Texture::makeLevels(const ImageInfo& info, int reduction) {
  const SampleType reduced =
      info.type == SampleType::float32 ? SampleType::float32 : SampleType::half;
  for (int level = reduction;; ++level) {
    Level made;
    made.width = sizeAtLevel(info.width, level);
    made.height = sizeAtLevel(info.height, level);
    made.type = level == 0 ? info.type : reduced;
    made.bytes.resize(static_cast<std::size_t>(made.width) * static_cast<std::size_t>(made.height) *
                      static_cast<std::size_t>(info.channels) * bytesOf(made.type));
    levels_.push_back(std::move(made));
    if (levels_.back().width == 1 && levels_.back().height == 1) return;
  }
}

void Texture::storeRow(const float* row, int y, Level& level) const {
  const std::size_t count =
      static_cast<std::size_t>(level.width) * static_cast<std::size_t>(channels_);
  unsigned char* const out =
      &level.bytes[static_cast<std::size_t>(y) * count * bytesOf(level.type)];
  if (level.type == SampleType::float32) {
    std::memcpy(out, row, count * sizeof(float));
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const half rounded(row[i]);
    std::memcpy(out + i * sizeof rounded, &rounded, sizeof rounded);
  }
}

std::unique_ptr<const Texture> Texture::read(std::string_view bytes, ColourSpace space,
                                             int reduction, std::size_t mostBytes,
                                             std::string* error) {
  const std::unique_ptr<ImageReader> reader = ImageReader::open(bytes, mostBytes, error);
  if (!reader) return nullptr;
  const ImageInfo& info = reader->info();
  std::unique_ptr<Texture> texture(new Texture);
  texture->channels_ = info.channels;
  texture->isEncoded_ =
      space == ColourSpace::srgb ||
      (space == ColourSpace::automatic &&
       (info.transfer == Transfer::srgb || (info.transfer == Transfer::unknown &&
                                            info.type == SampleType::uint8 && info.channels >= 3)));
  texture->makeLevels(info, reduction);

  // Each level takes its rows from the one before while the image is read; the first of them may be
  // reduced too.
  std::vector<Level>& levels = texture->levels_;
  std::vector<std::unique_ptr<RowReducer>> reducers(levels.size());
  const auto hand = [&](std::size_t to, const float* row) {
    if (to < levels.size()) reducers[to]->add(row);
  };
  for (std::size_t i = reduction > 0 ? 0 : 1; i < levels.size(); ++i) {
    const int width = i == 0 ? info.width : levels[i - 1].width;
    const int height = i == 0 ? info.height : levels[i - 1].height;
    reducers[i] = std::make_unique<RowReducer>(width, height, levels[i].width, levels[i].height,
                                               info.channels, [&, i](const float* row, int y) {
                                                 texture->storeRow(row, y, levels[i]);
                                                 hand(i + 1, row);
                                               });
  }

  const std::size_t stored = info.bytesOfRow();
  std::vector<unsigned char> row(stored);
  std::vector<float> decoded(static_cast<std::size_t>(info.width) *
                             static_cast<std::size_t>(info.channels));
  const auto channels = static_cast<std::size_t>(info.channels);
  const auto colours = static_cast<std::size_t>(coloursOf(info.channels));
  for (int y = 0; y < info.height; ++y) {
    if (!reader->readRow(row.data(), error)) return nullptr;
    if (reduction == 0)
      std::copy(row.begin(), row.end(), &levels[0].bytes[static_cast<std::size_t>(y) * stored]);
    if (reduction == 0 && levels.size() == 1) continue;
    for (std::size_t i = 0; i < decoded.size(); ++i) {
      const float value = storedAt(row.data(), i, info.type);
      const bool isColour = i % channels < colours;
      decoded[i] = !texture->isEncoded_ || !isColour ? value
                   : info.type == SampleType::uint8  ? srgbOfBytes()[row[i]]
                                                     : decodeSrgb(value);
    }
    hand(reduction == 0 ? 1 : 0, decoded.data());
  }
  if (reduction > 0) texture->isEncoded_ = false;
  return texture;
}

Vec4f Texture::texel(const Level& level, int x, int y) const {
  const auto channels = static_cast<std::size_t>(channels_);
  const std::size_t first = (static_cast<std::size_t>(y) * static_cast<std::size_t>(level.width) +
                             static_cast<std::size_t>(x)) *
                            channels;
  const bool isEncoded = isEncoded_ && &level == &levels_[0];
  const auto colours = static_cast<std::size_t>(coloursOf(channels_));
  float values[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  for (std::size_t c = 0; c < channels; ++c) {
    const bool isColour = c < colours;
    float value = 0.0f;
    if (isEncoded && isColour)
      value = level.type == SampleType::uint8
                  ? srgbOfBytes()[level.bytes[first + c]]
                  : decodeSrgb(storedAt(level.bytes.data(), first + c, level.type));
    else
      value = storedAt(level.bytes.data(), first + c, level.type);
    values[isColour ? c : 3] = value;
  }
  if (colours == 1) values[1] = values[2] = values[0];
  return {values[0], values[1], values[2], values[3]};
}

Vec4f Texture::bilinear(const Level& level, double s, double t, Wrap wrapS, Wrap wrapT) const {
  // Rows are stored from the top. Texels have their centres half a texel in.
  const double x = s * level.width - 0.5, y = (1.0 - t) * level.height - 0.5;
  const double left = std::floor(x), top = std::floor(y);
  const auto fx = static_cast<float>(x - left), fy = static_cast<float>(y - top);
  const auto column = static_cast<std::int64_t>(left), line = static_cast<std::int64_t>(top);
  const int x0 = wrapIndex(column, level.width, wrapS);
  const int x1 = wrapIndex(column + 1, level.width, wrapS);
  // Mirrored rows are counted from below, where coordinates begin.
  const auto row = [&](std::int64_t i) {
    return level.height - 1 - wrapIndex(level.height - 1 - i, level.height, wrapT);
  };
  const int y0 = row(line), y1 = row(line + 1);
  return mix(mix(texel(level, x0, y0), texel(level, x1, y0), fx),
             mix(texel(level, x0, y1), texel(level, x1, y1), fx), fy);
}

Vec4f Texture::lookup(const Vec2f& st, float footprint, Wrap wrapS, Wrap wrapT) const {
  if (!std::isfinite(st.x) || !std::isfinite(st.y)) return {0.0f, 0.0f, 0.0f, 0.0f};
  const auto isOutside = [](float v, Wrap wrap) {
    return wrap == Wrap::black && (v < 0.0f || v > 1.0f);
  };
  if (isOutside(st.x, wrapS) || isOutside(st.y, wrapT)) return {0.0f, 0.0f, 0.0f, 0.0f};
  const double s = reduceCoordinate(static_cast<double>(st.x), wrapS);
  const double t = reduceCoordinate(static_cast<double>(st.y), wrapT);

  const double texels =
      static_cast<double>(footprint) * std::max(levels_[0].width, levels_[0].height);
  const auto last = static_cast<double>(levels_.size() - 1);
  // Also false for a NaN.
  const double level = texels > 1.0 ? std::min(std::log2(texels), last) : 0.0;
  const auto finer = static_cast<std::size_t>(level);
  const auto between = static_cast<float>(level - std::floor(level));
  const Vec4f value = bilinear(levels_[finer], s, t, wrapS, wrapT);
  if (between == 0.0f || finer + 1 == levels_.size()) return value;
  return mix(value, bilinear(levels_[finer + 1], s, t, wrapS, wrapT), between);
}

}  // namespace vela::picture::detail
