#include "vela/picture/detail/LayerRows.h"

#include <cstddef>

#include "vela/picture/Cryptomatte.h"
#include "vela/picture/detail/Mattes.h"
#include "vela/picture/detail/PixelValues.h"

namespace vela::picture::detail {

namespace {

constexpr ValueType kFloats = ValueType::float32;
constexpr ValueType kIds = ValueType::uint32;
constexpr bool kDefault = true;
constexpr bool kOnRequest = false;

void put(const tarn::Vec3f& v, LayerValues& out) {
  for (std::size_t i = 0; i < 3; ++i) out.floats[i] = v[i];
}

// Two ranks of a matte: ids and shares of the pixel.
template <MatteKind kKind, std::size_t kRank>
void putRanks(const PixelCoverage& coverage, LayerValues& out) {
  for (std::size_t i = 0; i < 2; ++i) {
    const PixelCoverage::Rank& rank = coverage.rank(kKind, kRank + i);
    out.floats[2 * i] = cryptomatteValue(rank.id);
    out.floats[2 * i + 1] = rank.share;
  }
}

// A row of a matte. Its values are bits that stand for names, so that none may be mixed or rounded.
LayerRow matteRow(MatteKind kind, int number, LayerFunction::OfCoverage function) {
  const std::string matte = matteName(kind);
  const std::string name = matte + "0" + std::to_string(number);
  LayerRow row;
  row.info = {name,    {"r", "g", "b", "a"}, {name + ".r", name + ".g", name + ".b", name + ".a"},
              kFloats, kOnRequest,           matteHelp(kind)};
  row.function = function;
  row.purpose = Channel::data;
  row.channelTypes = {Channel::data, Channel::data, Channel::data, Channel::data};
  row.group = matte;
  return row;
}

template <MatteKind kKind>
void addMatte(std::vector<LayerRow>& rows) {
  rows.push_back(matteRow(kKind, 0, putRanks<kKind, 0>));
  rows.push_back(matteRow(kKind, 1, putRanks<kKind, 2>));
  rows.push_back(matteRow(kKind, 2, putRanks<kKind, 4>));
}

// The table. All else that knows of layers reads it.
std::vector<LayerRow> writtenRows() {
  return {
      {{"rgba",
        {"red", "green", "blue", "alpha"},
        {"R", "G", "B", "A"},
        kFloats,
        kDefault,
        "(light only where surfaces are, colour multiplied by A)"},
       +[](const PixelMean& mean, LayerValues& out) {
         put(mean.colour, out);
         out.floats[3] = mean.alpha;
       }},
      {{"rgb", {"red", "green", "blue"}, {"R", "G", "B"}, kFloats, kOnRequest, "(as in rgba)"}},
      {{"alpha", {"alpha"}, {"A"}, kFloats, kOnRequest, "(as in rgba)"}},
      {{"depth", {"Z"}, {"Z"}, kFloats, kDefault, "depth (infinite where nothing is)"},
       +[](const PixelCentre& centre, LayerValues& out) { out.floats[0] = centre.depth(); }},
      {{"P", {"x", "y", "z"}, {"P.x", "P.y", "P.z"}, kFloats, kDefault, "world position"},
       +[](const PixelCentre& centre, LayerValues& out) { put(centre.position(), out); },
       Channel::dataVec3},
      {{"N",
        {"x", "y", "z"},
        {"N.x", "N.y", "N.z"},
        kFloats,
        kDefault,
        "normal (the face's own; in smooth pictures the one that is shaded with)"},
       +[](const PixelCentre& centre, LayerValues& out) { put(centre.normal(), out); },
       Channel::dataVec3,
       {},
       true},
      {{"prim",
        {"id"},
        {"prim.id"},
        kIds,
        kDefault,
        "(0: nothing; else as the attribute \"prim/manifest\" says)"},
       +[](const PixelCentre& centre, LayerValues& out) { out.integers[0] = centre.prim(); },
       Channel::bitmaskId,
       {Channel::bitmaskId}},
      {{"face", {"id"}, {"face.id"}, kIds, kDefault, "the face's index in its prim"},
       +[](const PixelCentre& centre, LayerValues& out) { out.integers[0] = centre.face(); },
       Channel::bitmaskId,
       {Channel::bitmaskId}},
      {{"material",
        {"id"},
        {"material.id"},
        kIds,
        kOnRequest,
        "(0: none; else as the attribute \"material/manifest\" says)"},
       +[](const PixelCentre& centre, LayerValues& out) { out.integers[0] = centre.material(); },
       Channel::bitmaskId,
       {Channel::bitmaskId}},
      {{"albedo",
        {"red", "green", "blue"},
        {"albedo.R", "albedo.G", "albedo.B"},
        kFloats,
        kOnRequest,
        "displayColor, or a material's diffuse colour, without light"},
       +[](const PixelMean& mean, LayerValues& out) { put(mean.albedo, out); },
       Channel::color3,
       {Channel::colorRed, Channel::colorGreen, Channel::colorBlue}},
  };
}

}  // namespace

const std::vector<LayerRow>& layerRows() {
  static const std::vector<LayerRow> rows = [] {
    std::vector<LayerRow> made = writtenRows();
    addMatte<MatteKind::object>(made);
    addMatte<MatteKind::asset>(made);
    addMatte<MatteKind::material>(made);
    for (LayerRow& row : made) {
      row.info.sampling = row.function.atCentre     ? Sampling::pixelCentre
                          : row.function.ofCoverage ? Sampling::coverageOfSamples
                                                    : Sampling::meanOfSamples;
      row.info.isPart = !row.function;
    }
    return made;
  }();
  return rows;
}

const LayerRow& rowOf(const LayerInfo& info) {
  return layerRows()[static_cast<std::size_t>(&info - layerTable().data())];
}

}  // namespace vela::picture::detail
