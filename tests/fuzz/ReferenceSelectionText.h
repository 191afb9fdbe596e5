/// \file
/// The selection text format by the plainest means: formatted extraction and insertion of the
/// standard library. Slow and obvious; the tests and the fuzz target hold the library's own reader
/// and writer against it.
#pragma once

#include <cstdint>
#include <istream>
#include <locale>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "vela/selection/GeoSelection.h"

namespace vela_test {

struct ReferenceObject {
  bool objectSelected = false;
  std::vector<float> lists[4];  ///< selections and weights of the vertices, then of the faces
};

/// Ordered as the text is.
using ReferenceSelection = std::map<ovo::Path, ReferenceObject>;

inline ReferenceSelection referenceOf(const vela::Selection::GeoSelection& selection) {
  ReferenceSelection result;
  for (const auto& [path, object] : selection)
    result[path] = {object.objectSelected,
                    {object.parts[0].selections, object.parts[0].weights,
                     object.parts[1].selections, object.parts[1].weights}};
  return result;
}

/// \param out in the classic locale with default flags
inline void referenceWrite(std::ostream& out, const ReferenceSelection& selection) {
  const auto list = [&](const std::vector<float>& values) {
    out << values.size() << " ";
    if (values.empty()) return;
    out << "{ ";
    for (std::size_t i = 0; i < values.size();) {
      std::size_t length = 1;
      while (i + length < values.size() && values[i + length] == values[i]) ++length;
      out << " " << length << " " << values[i] << " ";
      i += length;
    }
    out << " } ";
  };
  out << "geoselection"
      << " { "
      << "paths"
      << " " << selection.size() << " { ";
  for (const auto& [path, object] : selection) {
    out << path.asString() << " " << object.objectSelected << " ";
    for (int part = 0; part < 2; ++part) {
      out << " { " << (part == 0 ? "verts" : "faces") << " ";
      list(object.lists[2 * part]);
      list(object.lists[2 * part + 1]);
      out << " } ";
    }
  }
  out << " } "
      << " } ";
}

/// More values than any machine holds.
constexpr std::uint64_t kMostRun = std::uint64_t{1} << 44;

/// Whether a number in the text may be a run that is too long to be filled here and too short to be
/// refused everywhere.
inline bool hasLargeRun(const std::string& text) {
  std::size_t digits = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && text[i] >= '0' && text[i] <= '9') {
      if (digits > 0 || text[i] != '0') ++digits;
      continue;
    }
    if (digits >= 7 && digits <= 14) return true;
    digits = 0;
  }
  return false;
}

/// \param in     in the classic locale with default flags
/// \param error  the error line without its end, empty without an error
inline ReferenceSelection referenceRead(std::istream& in, std::string& error) {
  struct Stop {};
  ReferenceSelection result;
  std::string token;
  error.clear();
  const auto expect = [&](const char* expected) {
    const std::streampos position = in.tellg();
    in >> token;
    if (token == expected) return;
    std::ostringstream line;
    line << "GeoSelection deserialization error, bad token '" << token << "' at position "
         << position << ", expected '" << expected << "'";
    error = line.str();
    throw Stop();
  };
  const auto readCount = [&] {
    std::uint64_t count = 0;
    in >> count;  // leaves 0 without a number, and the largest one when it does not fit
    return count;
  };
  const auto list = [&](std::vector<float>& values) {
    const std::uint64_t count = readCount();
    if (count == 0) return;
    expect("{");
    while (values.size() < count) {
      std::uint64_t run = 0;
      float value = 0;
      if (!(in >> run >> value)) break;
      if (run > kMostRun) {
        in.setstate(std::ios_base::failbit);
        break;
      }
      values.insert(values.end(), static_cast<std::size_t>(run), value);
    }
    expect("}");
  };

  try {
    expect("geoselection");
    expect("{");
    expect("paths");
    const std::uint64_t count = readCount();
    expect("{");
    for (std::uint64_t i = 0; i < count; ++i) {
      in >> token;
      ReferenceObject& object = result[ovo::Path(token)];
      bool selected = false;
      in >> selected;
      object.objectSelected = selected;
      for (int part = 0; part < 2; ++part) {
        expect("{");
        expect(part == 0 ? "verts" : "faces");
        list(object.lists[2 * part]);
        list(object.lists[2 * part + 1]);
        expect("}");
      }
    }
    for (int i = 0; i < 3; ++i) expect("}");
  } catch (const Stop&) {
    result.clear();
  }
  return result;
}

}  // namespace vela_test
