#include <csetjmp>
#include <cstdio>
#include <string>
#include <vector>

// Needs cstdio before it.
#include <jerror.h>
#include <jpeglib.h>

#include "vela/picture/detail/ImageReader.h"

namespace vela::picture::detail {

namespace {

// The library reports errors by a call that must not return. It jumps back over the library's own
// frames, which are C, into a function of this class that has nothing to destroy.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  bool isCutOff;
};

extern "C" {
void velaJpegFails(j_common_ptr context) {
  auto* const manager = reinterpret_cast<ErrorManager*>(context->err);
  context->err->format_message(context, manager->message);
  std::longjmp(manager->jump, 1);
}
// Nothing is printed. Where the data end too early the library makes up the rest and says so here.
void velaJpegTells(j_common_ptr context, int level) {
  if (level >= 0) return;
  auto* const manager = reinterpret_cast<ErrorManager*>(context->err);
  if (context->err->msg_code == JWRN_JPEG_EOF || context->err->msg_code == JWRN_HIT_MARKER)
    manager->isCutOff = true;
}
void velaJpegPrints(j_common_ptr) {}
}

class JpegReader final : public ImageReader {
 public:
  JpegReader() {
    context_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = velaJpegFails;
    errors_.base.emit_message = velaJpegTells;
    errors_.base.output_message = velaJpegPrints;
    errors_.message[0] = '\0';
    errors_.isCutOff = false;
  }
  ~JpegReader() override {
    if (isMade_) jpeg_destroy_decompress(&context_);
  }

  bool start(std::string_view bytes, std::size_t mostBytes, std::string* error) {
    if (!readHead(bytes)) return fail(error);
    if (!checkImageSize(context_.image_width, context_.image_height, error)) return false;

    // Images in several passes are kept whole: a number of two bytes for each value.
    const std::size_t values = static_cast<std::size_t>(context_.image_width) *
                               context_.image_height *
                               static_cast<std::size_t>(context_.num_components);
    if (jpeg_has_multiple_scans(&context_) && values > mostBytes / 2) {
      if (error)
        *error = "a progressive image of " + std::to_string(context_.image_width) + " x " +
                 std::to_string(context_.image_height) + " pixels does not fit into memory";
      return false;
    }
    if (!startPixels()) return fail(error);
    info_.width = static_cast<int>(context_.output_width);
    info_.height = static_cast<int>(context_.output_height);
    info_.channels = context_.out_color_space == JCS_GRAYSCALE ? 1 : 3;
    info_.type = SampleType::uint8;
    if (context_.out_color_space == JCS_CMYK)
      inks_.resize(static_cast<std::size_t>(info_.width) * 4);
    return true;
  }

  bool readRow(void* row, std::string* error) override {
    auto* const out = static_cast<JSAMPLE*>(row);
    if (context_.output_scanline >= context_.output_height) {
      if (error) *error = "it has no more rows";
      return false;
    }
    if (!readLine(inks_.empty() ? out : inks_.data())) return fail(error);
    if (errors_.isCutOff) {
      if (error) *error = "it is cut off or damaged";
      return false;
    }
    if (!inks_.empty()) convertInks(out);
    return true;
  }

 private:
  // Each of these three sets the place to jump to and has no objects to destroy.
  bool readHead(std::string_view bytes) {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_create_decompress(&context_);
    isMade_ = true;
    jpeg_mem_src(&context_, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return jpeg_read_header(&context_, TRUE) == JPEG_HEADER_OK;
  }
  bool startPixels() {
    if (setjmp(errors_.jump) != 0) return false;
    if (context_.jpeg_color_space == JCS_GRAYSCALE)
      context_.out_color_space = JCS_GRAYSCALE;
    else if (context_.jpeg_color_space == JCS_CMYK || context_.jpeg_color_space == JCS_YCCK)
      context_.out_color_space = JCS_CMYK;
    else
      context_.out_color_space = JCS_RGB;
    return jpeg_start_decompress(&context_) != 0;
  }
  bool readLine(JSAMPLE* line) {
    if (setjmp(errors_.jump) != 0) return false;
    return jpeg_read_scanlines(&context_, &line, 1) == 1;
  }

  bool fail(std::string* error) {
    if (error) *error = errors_.message[0] ? errors_.message : "it is damaged";
    return false;
  }

  // Light that the inks leave. Files with the marker of the usual writer store what is left.
  void convertInks(JSAMPLE* out) const {
    const bool isLeft = context_.saw_Adobe_marker != 0;
    for (std::size_t i = 0; i < inks_.size(); i += 4) {
      const auto left = [&](std::size_t k) {
        return isLeft ? static_cast<unsigned>(inks_[i + k]) : 255u - inks_[i + k];
      };
      for (std::size_t k = 0; k < 3; ++k)
        *out++ = static_cast<JSAMPLE>((left(k) * left(3) + 127u) / 255u);
    }
  }

  jpeg_decompress_struct context_ = {};
  ErrorManager errors_ = {};
  bool isMade_ = false;
  std::vector<JSAMPLE> inks_;
};

}  // namespace

std::unique_ptr<ImageReader> openJpeg(std::string_view bytes, std::size_t mostBytes,
                                      std::string* error) {
  auto reader = std::make_unique<JpegReader>();
  if (!reader->start(bytes, mostBytes, error)) return nullptr;
  return reader;
}

}  // namespace vela::picture::detail
