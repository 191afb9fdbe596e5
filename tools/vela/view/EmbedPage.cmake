# Writes files into a C++ source. FILES: their paths; OUTPUT: the source.
set(_types_html "text/html; charset=utf-8")
set(_types_css "text/css; charset=utf-8")
set(_types_js "text/javascript; charset=utf-8")
set(_types_svg "image/svg+xml")
set(_arrays "")
set(_rows "")
set(_number 0)
foreach(_file IN LISTS FILES)
  get_filename_component(_name "${_file}" NAME)
  get_filename_component(_extension "${_file}" LAST_EXT)
  string(SUBSTRING "${_extension}" 1 -1 _extension)
  if(NOT DEFINED _types_${_extension})
    message(FATAL_ERROR "${_file}: no type is known for .${_extension}")
  endif()
  file(READ "${_file}" _bytes HEX)
  # A byte a character, so that no length of a text is in the way.
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," _bytes "${_bytes}")
  string(APPEND _arrays "constexpr char kFile${_number}[] = {\n${_bytes}};\n")
  string(APPEND _rows
    "      {\"/${_name}\", \"${_types_${_extension}}\", kFile${_number},\n"
    "       sizeof kFile${_number}},\n")
  math(EXPR _number "${_number} + 1")
endforeach()
file(WRITE "${OUTPUT}" "#include \"view/PageFiles.h\"

namespace command::viewer {

namespace {

${_arrays}
}  // namespace

const std::vector<PageFile>& pageFiles() {
  static const std::vector<PageFile> files = {
${_rows}  };
  return files;
}

}  // namespace command::viewer
")
