#include "ovo/Xform.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "ovo/detail/Resolve.h"
#include "tarn/Constants.h"

namespace ovo {

using Matrix = tarn::Mat4d;
using Vector = tarn::Vec3d;

namespace {

constexpr double kRadians = tarn::kRadiansPerDegree<double>;
const std::string kOp = "xformOp:";
const std::string kInvert = "!invert!";

bool startsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

template <class T>
bool read(const Attribute& attribute, T& value, double time, bool authored) {
  return authored ? attribute.getAuthored(value, time) : attribute.get(value, time);
}

// A turn about an axis of unit length.
Matrix rotation(const Vector& axis, double degrees) {
  const double c = std::cos(degrees * kRadians), s = std::sin(degrees * kRadians), d = 1.0 - c;
  const double x = axis.x, y = axis.y, z = axis.z;
  Matrix m;
  m[0] = x * x * d + c;
  m[1] = y * x * d + z * s;
  m[2] = z * x * d - y * s;
  m[4] = x * y * d - z * s;
  m[5] = y * y * d + c;
  m[6] = z * y * d + x * s;
  m[8] = x * z * d + y * s;
  m[9] = y * z * d - x * s;
  m[10] = z * z * d + c;
  return m;
}

Vector axisOf(char letter) {
  return letter == 'X' ? Vector(1, 0, 0) : letter == 'Y' ? Vector(0, 1, 0) : Vector(0, 0, 1);
}
std::size_t indexOf(char letter) { return static_cast<std::size_t>(letter - 'X'); }
bool isAxis(char letter) { return letter >= 'X' && letter <= 'Z'; }

// The matrix of one operation; false when it has no value at the time or its type is not known.
bool operation(const Prim& prim, const std::string& name, double time, bool authored,
               Matrix& matrix) {
  const std::size_t colon = name.find(':', kOp.size());
  const std::string type =
      name.substr(kOp.size(), colon == std::string::npos ? colon : colon - kOp.size());
  const Attribute attribute = prim.getAttr(Token(name));
  matrix = Matrix();
  if (type == "transform") return read(attribute, matrix, time, authored);
  if (type == "translate" || type == "scale") {
    Vector v;
    if (!read(attribute, v, time, authored)) return false;
    type == "scale" ? matrix.scale(v) : matrix.translate(v);
    return true;
  }
  if (type == "orient") {
    // As an axis and an angle, so that the length of the quaternion plays no part.
    tarn::Vec4d q;
    if (!read(attribute, q, time, authored)) return false;
    const Vector imaginary(q.x, q.y, q.z);
    const double size = imaginary.length();
    if (!(size > 1e-10)) return true;
    const double half = std::acos(std::clamp(q.w, -1.0, 1.0));
    matrix = rotation(imaginary / size, 2.0 * half / kRadians);
    return true;
  }
  if (startsWith(type, "rotate") && type.size() == 7 && isAxis(type[6])) {
    double degrees = 0.0;
    if (!read(attribute, degrees, time, authored)) return false;
    matrix = rotation(axisOf(type[6]), degrees);
    return true;
  }
  if (startsWith(type, "rotate") && type.size() == 9 && isAxis(type[6]) && isAxis(type[7]) &&
      isAxis(type[8])) {
    // The angles are always stored as x, y, z; the letters give the order in which a point is
    // turned.
    Vector degrees;
    if (!read(attribute, degrees, time, authored)) return false;
    for (std::size_t i = 9; i-- > 6;)
      matrix *= rotation(axisOf(type[i]), degrees[indexOf(type[i])]);
    return true;
  }
  if (type.size() > 1 && isAxis(type.back()) &&
      (startsWith(type, "translate") || startsWith(type, "scale")) &&
      type.size() == (type[0] == 't' ? 10u : 6u)) {
    double amount = 0.0;
    if (!read(attribute, amount, time, authored)) return false;
    Vector v = type[0] == 't' ? Vector() : Vector(1, 1, 1);
    v[indexOf(type.back())] = amount;
    type[0] == 't' ? matrix.translate(v) : matrix.scale(v);
    return true;
  }
  return false;
}

std::vector<std::string> operationOrder(const Prim& prim, bool& resets) {
  resets = false;
  Array<Token> order;
  std::vector<std::string> names;
  if (!prim.getAttr(tokens().xformOpOrder).get(order)) return names;
  for (const Token& token : std::as_const(order)) {
    if (token == tokens().resetXformStack) {
      resets = true;
      names.clear();
    } else {
      names.push_back(token.asString());
    }
  }
  return names;
}

Matrix localXform(const Prim& prim, double time, bool authored, bool& resets) {
  const std::vector<std::string> order = operationOrder(prim, resets);
  Matrix local;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const bool inverted = startsWith(order[i], kInvert);
    const std::string name = inverted ? order[i].substr(kInvert.size()) : order[i];
    // Two neighbours that undo each other are passed over, which is exact also where there is no
    // inverse.
    if (i + 1 < order.size() &&
        (inverted ? order[i + 1] == name : order[i + 1] == kInvert + name)) {
      ++i;
      continue;
    }
    Matrix matrix;
    if (!startsWith(name, kOp) || !operation(prim, name, time, authored, matrix)) continue;
    local *= inverted ? matrix.inverse() : matrix;
  }
  return local;
}

}  // namespace

XformablePrim::XformablePrim() noexcept = default;
XformablePrim::XformablePrim(const Prim& prim) : Prim(prim) {}

bool XformablePrim::isValid() const noexcept { return Prim::isValid() && node_->type->xformable; }

Matrix XformablePrim::getLocalXform(double time) const {
  bool resets = false;
  return isValid() ? localXform(*this, time, false, resets) : Matrix();
}

bool XformablePrim::setLocalXform(const Matrix& local, double time) const {
  if (!isValid()) return false;
  const Attribute matrix = createAttr(tokens().xformOpTransform, Token("matrix4d"));
  if (!matrix.isValid() || !matrix.set(local, time)) return false;
  bool resets = false;
  operationOrder(*this, resets);
  Array<Token> order{tokens().xformOpTransform};
  if (resets) order = {tokens().resetXformStack, tokens().xformOpTransform};
  return createAttr(tokens().xformOpOrder, Token("token[]")).set(order);
}

bool XformablePrim::resetsXformStack() const {
  bool resets = false;
  if (isValid()) operationOrder(*this, resets);
  return resets;
}

bool XformablePrim::mightBeTimeVarying() const {
  if (!isValid()) return false;
  bool resets = false;
  for (const std::string& name : operationOrder(*this, resets))
    if (getAttr(Token(startsWith(name, kInvert) ? name.substr(kInvert.size()) : name))
            .mightBeTimeVarying())
      return true;
  return false;
}

struct XformCache::Entries {
  std::unordered_map<Prim, Matrix> localToWorld;
};

XformCache::XformCache(double time, Reading reading)
    : entries_(std::make_unique<Entries>()), time_(time), reading_(reading) {}
XformCache::XformCache(XformCache&&) noexcept = default;
XformCache& XformCache::operator=(XformCache&&) noexcept = default;
XformCache::~XformCache() = default;

Matrix XformCache::getLocalToWorld(const Prim& prim) {
  // Up to the nearest prim that is known, then down again.
  std::vector<Prim> chain;
  Matrix world;
  for (Prim at = prim; at.isValid(); at = at.parent()) {
    const auto known = entries_->localToWorld.find(at);
    if (known != entries_->localToWorld.end()) {
      world = known->second;
      break;
    }
    chain.push_back(at);
  }
  for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
    if (XformablePrim(*at).isValid()) {
      bool resets = false;
      const Matrix local = localXform(*at, time_, reading_ == authored, resets);
      world = resets ? local : world * local;
    }
    entries_->localToWorld.emplace(*at, world);
  }
  return world;
}

}  // namespace ovo
