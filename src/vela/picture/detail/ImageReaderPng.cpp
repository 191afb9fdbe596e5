#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <string>
#include <vector>

#include "vela/picture/detail/ImageReader.h"

namespace vela::picture::detail {

namespace {

extern "C" {
void velaPngFails(png_structp context, png_const_charp message);
void velaPngWarns(png_structp, png_const_charp) {}
void velaPngReads(png_structp context, png_bytep out, std::size_t count);
}

// The library reports errors by a call that must not return. It jumps back over the library's own
// frames, which are C, into a function of this class that has nothing to destroy.
class PngReader final : public ImageReader {
 public:
  explicit PngReader(std::string_view bytes) : bytes_(bytes) {}
  ~PngReader() override { png_destroy_read_struct(&context_, &head_, nullptr); }

  bool start(std::size_t mostBytes, std::string* error) {
    context_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, velaPngFails, velaPngWarns);
    head_ = context_ ? png_create_info_struct(context_) : nullptr;
    if (!head_ || !readHead()) return fail(error);
    if (!checkImageSize(static_cast<std::int64_t>(png_get_image_width(context_, head_)),
                        static_cast<std::int64_t>(png_get_image_height(context_, head_)), error))
      return false;
    if (!prepare()) return fail(error);
    info_.width = static_cast<int>(png_get_image_width(context_, head_));
    info_.height = static_cast<int>(png_get_image_height(context_, head_));
    info_.channels = png_get_channels(context_, head_);
    info_.type = png_get_bit_depth(context_, head_) == 16 ? SampleType::uint16 : SampleType::uint8;
    info_.transfer = transfer();

    // Interlaced images come in passes over all of it.
    if (passes_ > 1) {
      const std::size_t row = info_.bytesOfRow();
      if (row > mostBytes / static_cast<std::size_t>(info_.height)) {
        if (error)
          *error = "an interlaced image of " + std::to_string(info_.width) + " x " +
                   std::to_string(info_.height) + " pixels does not fit into memory";
        return false;
      }
      whole_.resize(row * static_cast<std::size_t>(info_.height));
      for (int pass = 0; pass < passes_; ++pass)
        for (int y = 0; y < info_.height; ++y)
          if (!readLine(&whole_[static_cast<std::size_t>(y) * row])) return fail(error);
    }
    return true;
  }

  bool readRow(void* row, std::string* error) override {
    if (next_ >= info_.height) {
      if (error) *error = "it has no more rows";
      return false;
    }
    if (whole_.empty()) {
      if (!readLine(static_cast<png_bytep>(row))) return fail(error);
    } else {
      std::copy_n(&whole_[static_cast<std::size_t>(next_) * info_.bytesOfRow()], info_.bytesOfRow(),
                  static_cast<png_bytep>(row));
    }
    ++next_;
    return true;
  }

  void keep(const char* message) {
    std::strncpy(message_, message ? message : "", sizeof message_ - 1);
  }
  // False when the file ends before.
  bool take(png_bytep out, std::size_t count) {
    if (count > bytes_.size() - at_) return false;
    std::copy_n(bytes_.data() + at_, count, reinterpret_cast<char*>(out));
    at_ += count;
    return true;
  }

 private:
  // Each of these three sets the place to jump to and has no objects to destroy.
  bool readHead() {
    if (setjmp(png_jmpbuf(context_)) != 0) return false;
    png_set_read_fn(context_, this, velaPngReads);
    // Sizes are checked in one place, and chunks of other data are not kept.
    png_set_user_limits(context_, 0x7fffffff, 0x7fffffff);
    png_set_keep_unknown_chunks(context_, PNG_HANDLE_CHUNK_NEVER, nullptr, 0);
    png_read_info(context_, head_);
    return true;
  }
  bool prepare() {
    if (setjmp(png_jmpbuf(context_)) != 0) return false;
    // Palettes, packed greys and single transparent colours become channels of 8 bits.
    png_set_expand(context_);
    const unsigned one = 1;
    if (*reinterpret_cast<const unsigned char*>(&one) == 1) png_set_swap(context_);
    passes_ = png_set_interlace_handling(context_);
    png_read_update_info(context_, head_);
    return true;
  }
  bool readLine(png_bytep line) {
    if (setjmp(png_jmpbuf(context_)) != 0) return false;
    png_read_row(context_, line, nullptr);
    return true;
  }

  [[nodiscard]] Transfer transfer() const {
    int intent = 0;
    if (png_get_sRGB(context_, head_, &intent) != 0) return Transfer::srgb;
    double gamma = 0.0;
    if (png_get_gAMA(context_, head_, &gamma) == 0) return Transfer::unknown;
    // 1 / 2.2 as files round it, and 1.
    if (gamma > 0.43 && gamma < 0.48) return Transfer::srgb;
    if (gamma > 0.95 && gamma < 1.05) return Transfer::linear;
    return Transfer::unknown;
  }

  bool fail(std::string* error) {
    if (error) *error = message_[0] ? message_ : "it is damaged";
    return false;
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  png_structp context_ = nullptr;
  png_infop head_ = nullptr;
  int passes_ = 1;
  int next_ = 0;
  std::vector<unsigned char> whole_;
  char message_[128] = {};
};

extern "C" {
void velaPngFails(png_structp context, png_const_charp message) {
  static_cast<PngReader*>(png_get_error_ptr(context))->keep(message);
  png_longjmp(context, 1);
}
void velaPngReads(png_structp context, png_bytep out, std::size_t count) {
  if (!static_cast<PngReader*>(png_get_io_ptr(context))->take(out, count))
    png_error(context, "it is cut off");
}
}

}  // namespace

std::unique_ptr<ImageReader> openPng(std::string_view bytes, std::size_t mostBytes,
                                     std::string* error) {
  auto reader = std::make_unique<PngReader>(bytes);
  if (!reader->start(mostBytes, error)) return nullptr;
  return reader;
}

}  // namespace vela::picture::detail
