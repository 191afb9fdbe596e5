#include "SelectionFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Failure.h"
#include "OutputFile.h"

namespace command {

namespace {

bool isEmptySelection(const std::string& text) {
  std::istringstream in(text);
  std::string word, words;
  while (in >> word) words += word + ' ';
  // The reader takes from one to three closing braces.
  const std::string begin = "geoselection { paths 0 { ";
  return words == begin + "} " || words == begin + "} } " || words == begin + "} } } ";
}

}  // namespace

vela::Selection::GeoSelection readSelection(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  if (!in || !(text << in.rdbuf()))
    throw Failure{kBadInput, "cannot read the selection", file,
                  in ? "it is empty" : std::strerror(errno),
                  "vela select FILE --rect X0,Y0,X1,Y1 -o " + file + " makes one"};

  // The reader says on standard error which word it did not expect, and gives an empty selection:
  // so does the text of an empty one, which is told apart by its words.
  vela::Selection::GeoSelection selection;
  selection.deserialize(text);
  if (selection.size() == 0 && !isEmptySelection(text.str()))
    throw Failure{kBadInput, "cannot read the selection", file,
                  "it is no selection, or a damaged one", "make it anew with vela select"};
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
