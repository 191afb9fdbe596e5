// The text form of a selection.
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>

#include "vela/selection/GeoSelection.h"
#include "vela/selection/detail/TextReader.h"
#include "vela/selection/detail/TextWriter.h"

namespace vela::Selection {
namespace {

using detail::TextReader;
using detail::TextWriter;

const std::string kSelection = "geoselection";
const std::string kPaths = "paths";
const std::string kVertices = "verts";
const std::string kFaces = "faces";
const std::string kOpen = "{";
const std::string kClose = "}";

// ---- Writing

void writeList(TextWriter& writer, const std::vector<float>& values) {
  writer.number(std::uint64_t{values.size()});
  writer.text(" ");
  if (values.empty()) return;

  writer.text("{ ");
  const float* const end = values.data() + values.size();
  for (const float* run = values.data(); run != end;) {
    // The first value always belongs to its run, though a NaN does not equal itself.
    const float* next = run + 1;
    while (next != end && *next == *run) ++next;
    writer.text(" ");
    writer.number(static_cast<std::uint64_t>(next - run));
    writer.text(" ");
    writer.number(*run);
    writer.text(" ");
    run = next;
  }
  writer.text(" } ");
}

void writePart(TextWriter& writer, const std::string& keyword, const WeightedPartSelection& part) {
  writer.text(" { ");
  writer.text(keyword);
  writer.text(" ");
  writeList(writer, part.selections);
  writeList(writer, part.weights);
  writer.text(" } ");
}

// ---- Reading

// The shortest run, with its blanks: "1 0 ".
constexpr std::size_t kShortestRun = 4;

// The most values of runs in a text: a gigabyte of them, or what the machine holds if that is
// less. A text of a few bytes must not claim more, and no mesh has as many faces or points.
std::size_t mostValues() {
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  const std::size_t most = std::size_t{1} << 28;
  if (pages <= 0 || pageSize <= 0) return most;
  return std::min(
      most, static_cast<std::size_t>(pages) * (static_cast<std::size_t>(pageSize) / sizeof(float)));
}

// Reads a selection's text word by word; false from any step means that error() names an
// unexpected word.
class Parser {
 public:
  explicit Parser(std::istream& in) : reader_(in) {}

  TextReader& reader() { return reader_; }

  // The word that was read last, by expect() or path(). At the end of the text there is no new
  // one, and it stays.
  bool expect(const std::string& expected) {
    const TextReader::Mark mark = reader_.mark();
    reader_.word(token_);
    if (token_ == expected) return true;

    error_ = "bad token '" + token_ + "' at position " + std::to_string(reader_.position(mark)) +
             ", expected '" + expected + "'";
    return false;
  }
  const std::string& error() const { return error_; }

  ovo::Path path() {
    reader_.word(token_);
    return ovo::Path(token_);
  }

  bool part(const std::string& keyword, WeightedPartSelection& part) {
    return expect(kOpen) && expect(keyword) && list(part.selections) && list(part.weights) &&
           expect(kClose);
  }

 private:
  bool list(std::vector<float>& values) {
    // A count too large to be read is still not 0: the brace that should follow is then looked for,
    // and reported.
    std::uint64_t count = 0;
    reader_.number(count);
    if (count == 0) return true;

    // No more room than single values would need for the text at hand: a count alone must not cost
    // memory.
    const std::uint64_t possible = values.size() + reader_.charactersAtHand() / kShortestRun;
    values.reserve(static_cast<std::size_t>(std::min(count, possible)));

    if (!expect(kOpen)) return false;
    // KEEP(selection-duplicate-path): values that an earlier list of the same object left here
    // count towards this list's length, and the last run may go past it. Files that hold an object
    // twice keep the values that they have always given.
    while (values.size() < count) {
      std::uint64_t run = 0;
      float value = 0;
      if (!reader_.number(run) || !reader_.number(value)) break;
      if (!append(values, run, value)) {
        reader_.fail();
        break;
      }
    }
    return expect(kClose);
  }

  // False when memory could not hold that many, with all the runs before.
  bool append(std::vector<float>& values, std::uint64_t run, float value) {
    if (run == 1) {
      values.push_back(value);
      return true;
    }
    if (run > mostValues_ - valuesInRuns_) return false;
    try {
      values.insert(values.end(), static_cast<std::size_t>(run), value);
    } catch (const std::bad_alloc&) {
      return false;
    } catch (const std::length_error&) {
      return false;
    }
    valuesInRuns_ += run;
    return true;
  }

  TextReader reader_;
  std::string token_;
  std::string error_;
  const std::uint64_t mostValues_ = mostValues();
  std::uint64_t valuesInRuns_ = 0;  // of all lists; single values cost no more than their text
};

}  // namespace

std::ostream& GeoSelection::serialize(std::ostream& out) const {
  // A map of hashes has no order of its own.
  std::vector<const Entries::value_type*> ordered;
  ordered.reserve(entries_.size());
  for (const auto& entry : entries_) ordered.push_back(&entry);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });

  TextWriter writer(out);
  writer.text(kSelection);
  writer.text(" { ");
  writer.text(kPaths);
  writer.text(" ");
  writer.number(std::uint64_t{ordered.size()});
  writer.text(" { ");
  for (const auto* entry : ordered) {
    const GeoObjectSelection& object = entry->second;
    writer.text(entry->first.asString());
    writer.text(" ");
    writer.text(object.objectSelected ? "1" : "0");
    writer.text(" ");
    writePart(writer, kVertices, object.getPartSelection(vertices));
    writePart(writer, kFaces, object.getPartSelection(faces));
  }
  writer.text(" } ");
  writer.text(" } ");
  writer.flush();
  return out;
}

std::istream& GeoSelection::deserialize(std::istream& in) {
  std::string error;
  if (!deserialize(in, &error)) {
    const std::string line = "GeoSelection deserialization error, " + error + "\n";
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
    std::cerr.flush();
  }
  return in;
}

bool GeoSelection::deserialize(std::istream& in, std::string* error) {
  clear();
  if (error) error->clear();
  Parser parser(in);

  const auto read = [&] {
    if (!parser.expect(kSelection) || !parser.expect(kOpen) || !parser.expect(kPaths)) return false;
    std::uint64_t count = 0;
    parser.reader().number(count);
    if (!parser.expect(kOpen)) return false;

    for (std::uint64_t i = 0; i < count; ++i) {
      const ovo::Path path = parser.path();
      bool isSelected = false;
      parser.reader().number(isSelected);
      setObjectSelected(path, isSelected);
      GeoObjectSelection& object = entries_[path];
      if (!parser.part(kVertices, object.getPartSelection(vertices))) return false;
      if (!parser.part(kFaces, object.getPartSelection(faces))) return false;
    }

    // KEEP(selection-third-brace): one brace more than is written; at the end of the text the one
    // before it serves. Saved files rely on what that accepts and refuses.
    return parser.expect(kClose) && parser.expect(kClose) && parser.expect(kClose);
  };
  const bool isRead = read();
  if (!isRead) {
    clear();
    if (error) *error = parser.error();
  }
  return isRead;
}

std::ostream& operator<<(std::ostream& out, const GeoSelection& selection) {
  return selection.serialize(out);
}

}  // namespace vela::Selection
