/// \file
/// A named value of a prim, at the default time or over time.
///
/// Value types. `get`, `getAuthored` and `set` exist for these types and no others (another type
/// does not link):
/// - bool, int, std::int64_t, float, double, std::string, Token;
/// - Vec2, Vec3, Vec4 of int, float and double; Mat4d;
/// - Array of bool, int, std::int64_t, float, double, std::string, Token,
///   Vec2 to Vec4 of int, float and double, and
///   Mat4d.
///
/// Which stored type reads as which: half, float and double read as float or double, alone, in
/// vectors and in arrays (narrowed to nearest); roles do not matter (point3f, normal3f, vector3f,
/// color3f and float3 are Vec3f); bool and the integer types read as any integer type that
/// holds the value; text, tokens and asset paths read as std::string and as Token (an asset path
/// gives the authored text, without its @ signs); quaternions read as Vec4 with x, y, z the
/// imaginary part and w the real one. A time code reads as double, in the time of the stage. Any
/// other pair is a failed read.
///
/// Times. A read at a numeric time takes, of the opinions from strong to weak, the first that has
/// time samples or a default value; within one opinion the samples win. Between two samples
/// floating-point numbers, vectors, matrices and arrays of equal size are interpolated linearly and
/// quaternions spherically; everything else holds the lower sample. Outside the samples the nearest
/// holds. At the very time of a sample, as timeSamples() tells it, that sample counts, whatever an
/// offset between layers has rounded. The default time is tarn::defaultTimeValue(), a NaN.
///
/// Threads: const calls but `set`, `block` and `clear` are safe from several threads. Those three,
/// like everything that changes a stage, need the caller to keep all other use of the stage away
/// meanwhile.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Array.h"
#include "ovo/Path.h"
#include "ovo/Token.h"
#include "ovo/Value.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"

namespace ovo {

class Prim;
class Stage;
namespace detail {
struct PrimNode;
}

/// A handle: copies name the same attribute and keep the stage alive.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::Attribute radius = stage->definePrim("/Ball", "Sphere").getAttr("radius");
///   double value = 0.0;
///   assert(radius.get(value) && value == 1.0);  // the fallback of a Sphere
///   radius.set(2.0, 10.0);
///   radius.set(4.0, 20.0);
///   assert(radius.get(value, 15.0) && value == 3.0);  // between two samples
///   std::string text;
///   assert(!radius.get(text));  // a number does not read as text
/// \endcode
class OVO_API Attribute {
 public:
  /// An attribute of nothing: not valid, every read and write fails.
  Attribute() noexcept;
  /// Copies name the same attribute. One that was moved from names none. @{
  Attribute(const Attribute&);
  Attribute(Attribute&&) noexcept;
  Attribute& operator=(const Attribute&);
  Attribute& operator=(Attribute&&) noexcept;
  ~Attribute();
  /// @}

  /// True when the scene has an opinion about the attribute, or the prim's type has a fallback
  /// value for it.
  [[nodiscard]] bool isValid() const;
  /// As isValid().
  [[nodiscard]] explicit operator bool() const { return isValid(); }

  /// The name with all its prefixes, such as `primvars:st`.
  [[nodiscard]] const Token& name() const noexcept { return name_; }
  /// The prim that has the attribute; not valid for an attribute of nothing.
  [[nodiscard]] Prim prim() const;

  /// The declared type as scene files write it, such as `point3f[]`; empty when not valid.
  [[nodiscard]] Token typeName() const;
  /// The code of a single value of the declared type, or of an element when it is an array;
  /// Value::none for types without a code.
  [[nodiscard]] Value::Type valueType() const;
  /// Whether the declared type is an array; false when not valid.
  [[nodiscard]] bool isArray() const;

  /// True when the scene itself has a value for the attribute (a fallback of the type does not
  /// count, nor does a block).
  [[nodiscard]] bool hasAuthoredValue() const;

  /// Reads the value at a time. At the default time: the authored default value; without one (or
  /// when that is blocked) the first time sample, so that an animated scene can be looked at
  /// without naming a time; then the fallback of the prim's type.
  /// \return false, with \p value untouched, when there is no value or it does not read as T
  template <class T>
  bool get(T& value, double time = tarn::defaultTimeValue()) const;

  /// As `get`, but as OpenUSD reads: time samples play no part at the default time.
  template <class T>
  bool getAuthored(T& value, double time = tarn::defaultTimeValue()) const;

  /// Writes the value at a time, at the default time as the default value. Reads of this stage see
  /// it at once and no file changes; see Stage on where edits live.
  /// \return false, with nothing changed, when the attribute is not valid, its declared type is not
  ///         T's (float types convert), or the stage cannot be edited
  template <class T>
  bool set(const T& value, double time = tarn::defaultTimeValue()) const;

  /// Hides all weaker values: reads fall to the type's fallback or fail. At a numeric time: there
  /// is no value from that time up to the next sample.
  bool block(double time = tarn::defaultTimeValue()) const;
  /// Removes the values, samples and blocks that this stage's own edits gave; weaker opinions show
  /// again.
  bool clear() const;

  /// True when reads at numeric times are answered from time samples.
  [[nodiscard]] bool hasTimeSamples() const;
  /// True when the value may differ between two times: more than one sample.
  [[nodiscard]] bool mightBeTimeVarying() const;
  /// The times of those samples in stage time, ascending.
  [[nodiscard]] std::vector<double> timeSamples() const;

  /// Same stage, prim and name. @{
  friend bool operator==(const Attribute& a, const Attribute& b) noexcept {
    return a.node_ == b.node_ && a.name_ == b.name_;
  }
  friend bool operator!=(const Attribute& a, const Attribute& b) noexcept { return !(a == b); }
  /// @}

 protected:
  friend class Prim;
  /// For the classes that derive from it here: where the attribute lies. @{
  Attribute(std::shared_ptr<Stage> stage, const detail::PrimNode* node, Token name);

  std::shared_ptr<Stage> stage_;
  const detail::PrimNode* node_ = nullptr;
  Token name_;
  /// @}
};

}  // namespace ovo
