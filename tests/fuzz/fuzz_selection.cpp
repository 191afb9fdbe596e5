// Reads any bytes as a selection and holds the result against plain formatted extraction, and what
// is written against itself read back.
#include <cmath>
#include <iostream>
#include <limits>

#include "fuzz/ReferenceSelectionText.h"
#include "fuzz/Require.h"
#include "vela/selection/GeoSelection.h"

namespace {

using vela_test::require;

// Denormals have fewer than the six digits that the text carries.
bool survivesText(const vela_test::ReferenceSelection& selection) {
  for (const auto& [path, object] : selection) {
    if (path.isEmpty()) return false;
    for (const auto& list : object.lists)
      for (const float value : list)
        if (value != 0 && std::fabs(value) < 2 * std::numeric_limits<float>::min()) return false;
  }
  return true;
}

std::string readInto(vela::Selection::GeoSelection& selection, std::istream& in) {
  std::ostringstream captured;
  std::streambuf* const before = std::cerr.rdbuf(captured.rdbuf());
  selection.deserialize(in);
  std::cerr.rdbuf(before);
  return captured.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (vela_test::hasLargeRun(text)) return 0;

  vela::Selection::GeoSelection selection;
  std::istringstream in(text), referenceIn(text);
  const std::string error = readInto(selection, in);

  std::string referenceError;
  const vela_test::ReferenceSelection reference =
      vela_test::referenceRead(referenceIn, referenceError);
  require(error == (referenceError.empty() ? "" : referenceError + "\n"), "the error line differs");
  require(in.rdstate() == referenceIn.rdstate(), "the stream's state differs");
  in.clear();
  referenceIn.clear();
  require(in.tellg() == referenceIn.tellg(), "the stream's place differs");

  std::ostringstream out, referenceOut;
  selection.serialize(out);
  vela_test::referenceWrite(referenceOut, reference);
  require(out.str() == referenceOut.str(), "the content differs");

  if (survivesText(reference)) {
    vela::Selection::GeoSelection again;
    std::istringstream back(out.str());
    require(readInto(again, back).empty(), "what was written cannot be read");
    std::ostringstream outAgain;
    again.serialize(outAgain);
    require(outAgain.str() == out.str(), "what was written reads as something else");
  }
  return 0;
}
