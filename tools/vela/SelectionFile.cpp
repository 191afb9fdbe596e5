#include "SelectionFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Failure.h"
#include "OutputFile.h"

namespace command {

vela::Selection::GeoSelection readSelection(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  if (!in || !(text << in.rdbuf()))
    throw Failure{kBadInput, "cannot read the selection", file,
                  in ? "it is empty" : std::strerror(errno),
                  "vela select FILE --rect X0,Y0,X1,Y1 -o " + file + " makes one"};

  vela::Selection::GeoSelection selection;
  std::string error;
  if (!selection.deserialize(text, &error)) {
    const std::string line = "GeoSelection deserialization error, " + error + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    throw Failure{kBadInput, "cannot read the selection", file,
                  "it is no selection, or a damaged one", "make it anew with vela select"};
  }
  return selection;
}

void writeSelection(const vela::Selection::GeoSelection& selection, const std::string& file) {
  OutputFile output(file);
  std::ofstream out(output.temporaryName(), std::ios::binary | std::ios::trunc);
  selection.serialize(out);
  out << '\n';
  out.close();
  if (!out)
    throw Failure{kBadInput, "cannot write", file, std::strerror(errno),
                  "see whether the disk is full"};
  output.commit();
}

}  // namespace command
