#include "vela/picture/FileFormat.h"

#include <algorithm>

namespace vela::picture {

std::string_view fileExtension(std::string_view name) {
  name = name.substr(name.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot);
}

std::optional<FileFormat> fileFormat(std::string_view name) {
  std::string extension(fileExtension(name));
  // Of these letters only, whatever the locale.
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  if (extension == ".exr") return FileFormat::exr;
  if (extension == ".png") return FileFormat::png;
  if (extension == ".jpg" || extension == ".jpeg") return FileFormat::jpg;
  return std::nullopt;
}

}  // namespace vela::picture
