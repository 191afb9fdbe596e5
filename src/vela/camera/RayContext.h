/// \file
/// The ray record: what a lens writes and what intersection reads.
///
/// Holds for the whole file: a plain value of 88 bytes with a fixed layout, all floats 32 bits but
/// the time. Directions need not have unit length and are never normalised here. The cached
/// reciprocal follows the direction only through the member functions: who writes `direction` by
/// hand calls updateSlopes afterwards. Nothing throws.
#pragma once

#include <cstdint>
#include <type_traits>

#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// A ray with its range, its neighbours in the image, what kind of ray it is and what it asks for.
///
/// \code
///   vela::RayContext ray;
///   ray.set({0.0f, 0.0f, 5.0f}, {0.0f, 0.0f, -2.0f}, vela::RayContext::cameraRay, 0.0,
///           vela::RayContext::outsideOrigin, 0.0f, 100.0f);
///   assert(ray.isCameraPath() && !ray.isShadowPath());
///   assert(ray.isZSlopePositive());  // the direction's z is below 0
///
///   tarn::Mat4d worldFromCamera;
///   worldFromCamera.translate({0.0, 10.0, 0.0});
///   ray.transform(worldFromCamera);
///   assert(ray.origin == tarn::Vec3f(0.0f, 10.0f, 5.0f));
///   assert(ray.maxDistance == 100.0f);  // still in multiples of the direction
/// \endcode
class VELA_API RayContext {
 public:
  /// A 16-bit word with a name. Converts to its value, and gives it when called: `cameraRay` and
  /// `cameraRay()` are the same.
  struct Constant {
    std::uint16_t bits;  ///< the word itself
    /// The word. @{
    constexpr operator std::uint16_t() const { return bits; }
    constexpr std::uint16_t operator()() const { return bits; }
    /// @}
  };

  /// \name Ray types: the low byte of the word
  /// \{
  static constexpr Constant undefinedRay{0x0000};         ///< no type: no ray
  static constexpr Constant cameraRay{0x0001};            ///< from a camera
  static constexpr Constant shadowRay{0x0002};            ///< towards a light
  static constexpr Constant reflectionRay{0x0004};        ///< off a surface
  static constexpr Constant refractionRay{0x0008};        ///< bent through a surface
  static constexpr Constant thinTransmissionRay{0x0010};  ///< straight through a surface
  static constexpr Constant allRayTypes{0x00FF};          ///< mask of all ray types
  /// \}
  /// \name Path types, and the two together
  /// \{
  static constexpr Constant diffusePath{0x0100};             ///< adds to what is diffuse
  static constexpr Constant glossyPath{0x0200};              ///< adds to what is glossy
  static constexpr Constant diffuseReflectionPath{0x0104};   ///< diffusePath and reflectionRay
  static constexpr Constant glossyReflectionPath{0x0204};    ///< glossyPath and reflectionRay
  static constexpr Constant shadowTransmissionPath{0x0012};  ///< shadowRay and thinTransmissionRay
  static constexpr Constant allPathTypes{0x0F00};            ///< mask of all path types
  /// \}
  /// \name Test options
  /// \{
  static constexpr Constant frontSideTestOnly{0x1000};  ///< only front sides are hit
  static constexpr Constant backSideTestOnly{0x2000};   ///< only back sides are hit
  static constexpr Constant allSideTypes{0x3000};       ///< mask of both sides
  static constexpr Constant noPresenceTest{0x4000};     ///< presence is not tested
  static constexpr Constant allTests{0xF000};           ///< mask of all test options
  /// \}
  static constexpr Constant allTypes{0xFFFF};  ///< mask of the whole word
  /// \name Kinds of origin
  /// \{
  static constexpr Constant undefinedOrigin{0};  ///< nothing is known
  static constexpr Constant outsideOrigin{1};    ///< outside of any body
  static constexpr Constant insideOrigin{2};     ///< inside a body
  static constexpr Constant allOrigins{0xFFFF};  ///< mask of all kinds
  /// \}

  /// The word with these bits set.
  [[nodiscard]] static constexpr std::uint16_t TurnOn(std::uint16_t flags, std::uint16_t bits) {
    return static_cast<std::uint16_t>(flags | bits);
  }
  /// The word with these bits cleared.
  [[nodiscard]] static constexpr std::uint16_t TurnOff(std::uint16_t flags, std::uint16_t bits) {
    return static_cast<std::uint16_t>(flags & ~bits);
  }

  tarn::Vec3f origin;        ///< where distance 0 is
  tarn::Vec3f direction;     ///< any length
  float minDistance = 0.0f;  ///< in multiples of `direction`
  float maxDistance = 0.0f;  ///< in multiples of `direction`
  tarn::Vec3f xDirection;    ///< direction of the neighbouring ray in x
  tarn::Vec3f yDirection;    ///< and in y
  double time = 0.0;         ///< when it is cast; the library does not read it
  std::uint16_t type = 0;    ///< one word of ray type, path type and test options
  std::uint16_t assigned =
      0;  ///< 1 once the record was filled as a whole; the library does not read it
  std::int16_t originType = 0;  ///< kind of origin

 private:
  tarn::Vec3f invDir_;

 public:
  std::uint8_t slopeBits =
      0;  ///< bit 0, 1, 2: the reciprocal of the direction's x, y, z is below 0

  /// Everything zero: no ray yet.
  RayContext() = default;
  /// Everything zero but the kind of origin: no ray yet.
  RayContext(short originType_) : originType(originType_) {}
  /// As set.
  RayContext(const tarn::Vec3f& origin_, const tarn::Vec3f& direction_, unsigned short type_,
             double time_, short originType_, float minDistance_, float maxDistance_) {
    set(origin_, direction_, type_, time_, originType_, minDistance_, maxDistance_);
  }

  /// Fills the record; the two neighbouring directions become zero.
  void set(const tarn::Vec3f& origin, const tarn::Vec3f& direction, unsigned short type,
           double time, short originType, float minDistance, float maxDistance);
  /// \name Replace part of the ray, and refresh the cached reciprocal
  /// \{

  /// Origin, direction and range.
  void setGeom(const tarn::Vec3f& origin, const tarn::Vec3f& direction, float minDistance,
               float maxDistance);
  /// Origin and direction; the range stays.
  void setOriginAndDirection(const tarn::Vec3f& origin, const tarn::Vec3f& direction);
  /// The direction; origin and range stay.
  void setDirection(const tarn::Vec3f& direction);
  /// Direction and range; the origin stays.
  void setDirAndDistance(const tarn::Vec3f& direction, float minDistance, float maxDistance);
  /// Turns the direction round.
  void invert();
  /// \}

  /// Sets the neighbouring directions to the direction turned by an angle about the x and the y
  /// axis of its frame.
  ///
  /// \param ax, ay  radians; the sign does not count, more than pi counts as pi; up to
  ///                1.1920929e-7, and NaN, the direction is copied as it is. Otherwise the result
  ///                has unit length, in the frame of Vec3::orientAroundNormal
  void setXYDirsFromAngle(float ax, float ay);

  /// Moves origin and direction through a matrix, in double, narrowed once. Distances, neighbouring
  /// directions and flags stay, so distances remain multiples of the direction.
  void transform(const tarn::Mat4d& m);
  /// Moves the ray as a moving frame has it at `t` between m0 (t = 0) and m1 (t = 1): the two
  /// images, blended in single precision. `t` below 1.1920929e-7 takes the first image, above
  /// 0.9999999 the second.
  void transform(const tarn::Mat4d& m0, const tarn::Mat4d& m1, float t);

  /// Refreshes the reciprocal direction and its sign bits. A zero component gives an infinity of
  /// the zero's sign; a NaN leaves its bit clear.
  void updateSlopes() {
    invDir_.x = 1.0f / direction.x;
    invDir_.y = 1.0f / direction.y;
    invDir_.z = 1.0f / direction.z;
    slopeBits = static_cast<std::uint8_t>(static_cast<unsigned>(invDir_.x < 0.0f) |
                                          static_cast<unsigned>(invDir_.y < 0.0f) << 1 |
                                          static_cast<unsigned>(invDir_.z < 0.0f) << 2);
  }
  /// (1/x, 1/y, 1/z) of the direction, as of the last refresh.
  [[nodiscard]] const tarn::Vec3f& invDir() const { return invDir_; }

  /// \name The classification word in parts
  /// \{
  [[nodiscard]] std::uint16_t rayType() const {
    return static_cast<std::uint16_t>(type & allRayTypes);
  }  ///< ray types
  [[nodiscard]] std::uint16_t pathType() const {
    return static_cast<std::uint16_t>(type & allPathTypes);
  }  ///< path types
  [[nodiscard]] std::uint16_t sidesType() const {
    return static_cast<std::uint16_t>(type & allSideTypes);
  }  ///< sides
  [[nodiscard]] std::uint16_t testType() const {
    return static_cast<std::uint16_t>(type & allTests);
  }  ///< all tests
  /// \}
  /// \name Ray types. A ray of two types at once is of none of these
  /// \{
  [[nodiscard]] bool isCameraPath() const { return rayType() == cameraRay; }  ///< cameraRay alone
  [[nodiscard]] bool isShadowPath() const { return rayType() == shadowRay; }  ///< shadowRay alone
  /// True for reflectionRay alone.
  [[nodiscard]] bool isReflectedPath() const { return rayType() == reflectionRay; }
  /// True for refractionRay alone.
  [[nodiscard]] bool isRefractedPath() const { return rayType() == refractionRay; }
  /// True for thinTransmissionRay alone.
  [[nodiscard]] bool isThinTransmittedPath() const { return rayType() == thinTransmissionRay; }
  /// \}
  /// True when the ray has any type.
  [[nodiscard]] bool isValidPath() const { return rayType() != undefinedRay; }
  /// True when diffusePath is among the path types.
  [[nodiscard]] bool isDiffuseContributor() const { return (type & diffusePath) != 0; }
  /// True when glossyPath is among the path types.
  [[nodiscard]] bool isGlossyContributor() const { return (type & glossyPath) != 0; }
  /// True when front sides alone are to be hit.
  [[nodiscard]] bool testFrontSideOnly() const { return (type & frontSideTestOnly) != 0; }
  /// True when back sides alone are to be hit.
  [[nodiscard]] bool testBackSideOnly() const { return (type & backSideTestOnly) != 0; }
  /// True when presence is not to be tested.
  [[nodiscard]] bool testPresenceDisabled() const { return (type & noPresenceTest) != 0; }

  /// \name Slope bits
  /// KEEP(slope-sense): true where the direction is NEGATIVE; box tests pick their near side by
  /// these bits.
  /// \{
  [[nodiscard]] bool isXSlopePositive() const { return (slopeBits & 1u) != 0; }  ///< bit 0
  [[nodiscard]] bool isYSlopePositive() const { return (slopeBits & 2u) != 0; }  ///< bit 1
  [[nodiscard]] bool isZSlopePositive() const { return (slopeBits & 4u) != 0; }  ///< bit 2
  /// \param axis  0 to 2
  [[nodiscard]] bool isSlopePositive(int axis) const {
    return (static_cast<unsigned>(slopeBits) >> (static_cast<unsigned>(axis) & 31u) & 1u) != 0;
  }
  /// \}
};

static_assert(sizeof(RayContext) == 88 && alignof(RayContext) == 8 &&
                  std::is_trivially_copyable_v<RayContext>,
              "hosts fill arrays of these records");

}  // namespace vela
