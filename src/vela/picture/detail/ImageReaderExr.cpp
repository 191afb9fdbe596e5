#include <ImathBox.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>
#include <ImfVersion.h>
#include <half.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "vela/picture/detail/ImageReader.h"

namespace vela::picture::detail {

namespace {

// A file in memory.
class MemoryStream final : public Imf::IStream {
 public:
  explicit MemoryStream(std::string_view bytes) : IStream("memory"), bytes_(bytes) {}
  bool isMemoryMapped() const override { return true; }
  char* readMemoryMapped(int n) override {
    return const_cast<char*>(take(static_cast<std::size_t>(n)));
  }
  bool read(char c[], int n) override {
    std::copy_n(take(static_cast<std::size_t>(n)), n, c);
    return at_ < bytes_.size();
  }
  std::uint64_t tellg() override { return at_; }
  void seekg(std::uint64_t at) override { at_ = static_cast<std::size_t>(at); }

 private:
  const char* take(std::size_t count) {
    if (at_ > bytes_.size() || count > bytes_.size() - at_)
      throw std::runtime_error("it is cut off");
    const char* const from = bytes_.data() + at_;
    at_ += count;
    return from;
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
};

class ExrReader final : public ImageReader {
 public:
  ExrReader(std::string_view bytes, std::size_t mostBytes) : stream_(bytes) {
    // Sizes are checked before the library makes room for them.
    if (bytes.size() < 8) throw std::runtime_error("it is cut off");
    std::int32_t version = 0;
    std::memcpy(&version, bytes.data() + 4, sizeof version);
    if (!Imf::isNonImage(version) && !Imf::isMultiPart(version)) {
      MemoryStream head(bytes);
      head.seekg(8);
      Imf::Header header;
      header.readFrom(head, version);
      check(header, mostBytes);
    } else if (Imf::isNonImage(version)) {
      throw std::runtime_error("deep images are not read");
    }
    file_ = std::make_unique<Imf::InputFile>(stream_, 0);
    check(file_->header(), mostBytes);
    choose(file_->header());
  }

  bool readRow(void* row, std::string* error) override {
    if (next_ >= info_.height) {
      if (error) *error = "it has no more rows";
      return false;
    }
    try {
      const int y = window_.min.y + next_;
      const std::size_t pixel = static_cast<std::size_t>(info_.channels) * bytesOf(info_.type);
      Imf::FrameBuffer buffer;
      for (std::size_t c = 0; c < channels_.size(); ++c) {
        char* const first = static_cast<char*>(row) + c * bytesOf(info_.type);
        // The library finds a pixel at base + x * step; rows do not count.
        buffer.insert(channels_[c],
                      Imf::Slice(info_.type == SampleType::half ? Imf::HALF : Imf::FLOAT,
                                 first - static_cast<std::ptrdiff_t>(window_.min.x) *
                                             static_cast<std::ptrdiff_t>(pixel),
                                 pixel, 0, 1, 1, 0.0));
      }
      file_->setFrameBuffer(buffer);
      file_->readPixels(y);
    } catch (const std::exception&) {
      if (error) *error = "it is cut off or damaged";
      return false;
    }
    ++next_;
    return true;
  }

 private:
  void check(const Imf::Header& header, std::size_t mostBytes) const {
    const Imath::Box2i& window = header.dataWindow();
    const std::int64_t width = std::int64_t{window.max.x} - window.min.x + 1;
    const std::int64_t height = std::int64_t{window.max.y} - window.min.y + 1;
    std::string why;
    if (!checkImageSize(width, height, &why)) throw std::runtime_error(why);
    std::size_t channels = 0;
    for (auto c = header.channels().begin(); c != header.channels().end(); ++c) ++channels;
    // Blocks of rows are unpacked at once, up to 256 in the largest, those of tiles in rows of
    // them.
    std::size_t rows = 256;
    if (header.hasTileDescription())
      rows = std::max<std::size_t>(rows, header.tileDescription().ySize);
    rows = std::min<std::size_t>(rows, static_cast<std::size_t>(height));
    if (channels == 0) throw std::runtime_error("it has no channels");
    if (static_cast<std::size_t>(width) * channels * 4 > mostBytes / rows)
      throw std::runtime_error("an image of rows of " + std::to_string(width) +
                               " pixels does not fit into memory");
  }

  void choose(const Imf::Header& header) {
    window_ = header.dataWindow();
    info_.width = window_.max.x - window_.min.x + 1;
    info_.height = window_.max.y - window_.min.y + 1;
    const Imf::ChannelList& list = header.channels();
    const auto has = [&](const char* name) {
      const Imf::Channel* const found = list.findChannel(name);
      return found && found->xSampling == 1 && found->ySampling == 1;
    };
    if (has("R") || has("G") || has("B"))
      channels_ = {"R", "G", "B"};
    else if (has("Y"))
      channels_ = {"Y"};
    else if (has(list.begin().name()))
      channels_ = {list.begin().name()};
    else
      throw std::runtime_error("it has no channel of every pixel");
    if (has("A") && channels_[0] != "A") channels_.push_back("A");
    info_.channels = static_cast<int>(channels_.size());
    info_.type = SampleType::half;
    for (const std::string& name : channels_)
      if (const Imf::Channel* const found = list.findChannel(name.c_str());
          found && found->type != Imf::HALF)
        info_.type = SampleType::float32;
    info_.transfer = Transfer::linear;
  }

  MemoryStream stream_;
  std::unique_ptr<Imf::InputFile> file_;
  Imath::Box2i window_;
  std::vector<std::string> channels_;
  int next_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openExr(std::string_view bytes, std::size_t mostBytes,
                                     std::string* error) {
  try {
    return std::make_unique<ExrReader>(bytes, mostBytes);
  } catch (const std::exception& problem) {
    if (error) {
      *error = problem.what();
      // Messages of the library may have several lines.
      std::replace(error->begin(), error->end(), '\n', ' ');
    }
    return nullptr;
  }
}

}  // namespace vela::picture::detail
