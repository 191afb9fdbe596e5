#include "vela/picture/JpegFile.h"

#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

// Needs cstdio before it.
#include <jpeglib.h>

namespace vela::picture {

namespace {

constexpr int kQuality = 95;
constexpr int kWidest = 65535;

bool fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

// The library reports errors by a call that must not return. It jumps back over the library's own
// frames, which are C, into compress(), which has nothing to destroy.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

extern "C" {
void velaJpegWriterFails(j_common_ptr context) {
  auto* const manager = reinterpret_cast<ErrorManager*>(context->err);
  context->err->format_message(context, manager->message);
  std::longjmp(manager->jump, 1);
}
void velaJpegWriterTells(j_common_ptr, int) {}
void velaJpegWriterPrints(j_common_ptr) {}
}

// \param made the file's bytes, to be freed, whatever comes back
bool compress(const DisplayImage& image, ErrorManager& errors, unsigned char** made,
              unsigned long* size) {
  jpeg_compress_struct context = {};
  context.err = jpeg_std_error(&errors.base);
  errors.base.error_exit = velaJpegWriterFails;
  errors.base.emit_message = velaJpegWriterTells;
  errors.base.output_message = velaJpegWriterPrints;
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_compress(&context);
    return false;
  }
  jpeg_create_compress(&context);
  jpeg_mem_dest(&context, made, size);
  context.image_width = static_cast<JDIMENSION>(image.width);
  context.image_height = static_cast<JDIMENSION>(image.height);
  context.input_components = 3;
  context.in_color_space = JCS_RGB;
  jpeg_set_defaults(&context);
  jpeg_set_quality(&context, kQuality, TRUE);
  // Colours in full resolution: edges between them stay sharp.
  for (int i = 0; i < context.num_components; ++i)
    context.comp_info[i].h_samp_factor = context.comp_info[i].v_samp_factor = 1;
  jpeg_start_compress(&context, TRUE);
  while (context.next_scanline < context.image_height) {
    // Rows that are written are only read.
    JSAMPROW row = const_cast<JSAMPROW>(image.codes.data()) +
                   static_cast<std::size_t>(context.next_scanline) * context.image_width * 3;
    jpeg_write_scanlines(&context, &row, 1);
  }
  jpeg_finish_compress(&context);
  jpeg_destroy_compress(&context);
  return true;
}

}  // namespace

bool writeJpeg(const DisplayImage& image, std::vector<unsigned char>& bytes, std::string* error) {
  bytes.clear();
  if (image.width < 1 || image.height < 1) return fail(error, "the image has no pixels");
  if (image.width > kWidest || image.height > kWidest)
    return fail(error, "JPEG has at most 65535 pixels in a row or column");
  if (image.hasAlpha) return fail(error, "JPEG has no alpha");
  const std::size_t codes =
      static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) * 3;
  if (image.codes.size() != codes)
    return fail(error, "there are " + std::to_string(image.codes.size()) + " codes, not " +
                           std::to_string(codes));

  ErrorManager errors = {};
  unsigned char* made = nullptr;
  unsigned long size = 0;
  const bool isMade = compress(image, errors, &made, &size);
  if (isMade) bytes.assign(made, made + size);
  std::free(made);
  return isMade ? true : fail(error, errors.message);
}

bool writeJpeg(const DisplayImage& image, const std::string& file, std::string* error) {
  std::vector<unsigned char> bytes;
  if (!writeJpeg(image, bytes, error)) return false;
  errno = 0;
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  out.close();
  return out.good() ? true : fail(error, std::strerror(errno));
}

}  // namespace vela::picture
