#include "SelectionFile.h"

#include <cerrno>
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
    throw Failure{kBadInput, "cannot read the selection", file, in ? "it is empty" : std::strerror(errno),
                  "vela select FILE --rect X0,Y0,X1,Y1 -o " + file + " makes one"};

  // The reader says on standard error which word it did not expect, and gives an empty selection: so does the text of an
  // empty one, which is told apart by its count.
  vela::Selection::GeoSelection selection;
  selection.deserialize(text);
  std::string word, brace, paths, count;
  std::istringstream(text.str()) >> word >> brace >> paths >> count;
  if (selection.size() == 0 && !(word == "geoselection" && paths == "paths" && count == "0"))
    throw Failure{kBadInput, "cannot read the selection", file, "it is no selection, or a damaged one", "make it anew with vela select"};
  return selection;
}

void writeSelection(const vela::Selection::GeoSelection& selection, const std::string& file) {
  OutputFile output(file);
  std::ofstream out(output.temporaryName(), std::ios::binary | std::ios::trunc);
  selection.serialize(out);
  out << '\n';
  out.close();
  if (!out) throw Failure{kBadInput, "cannot write", file, std::strerror(errno), "see whether the disk is full"};
  output.commit();
}

}  // namespace command
