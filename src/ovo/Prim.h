/// \file
/// An object of a scene.
///
/// Threads: const calls that only read are safe from several threads; changes need the caller to
/// keep all other use of the stage away meanwhile. Handles stay good across changes.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Attribute.h"
#include "ovo/Path.h"
#include "ovo/Primvar.h"
#include "ovo/Token.h"
#include "ovo/Value.h"

namespace ovo {

class Stage;

/// A handle: copies name the same prim and keep the stage alive. A Prim that is not valid answers
/// every question with nothing, false or an empty value.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::Prim chair = stage->definePrim("/World/Chair", "Xform");
///   chair.createAttr("price", "float").set(120.0f);
///   float price = 0.0f;
///   assert(chair.getAttr("price").get(price) && price == 120.0f);
///   std::vector<ovo::Prim> children;
///   chair.parent().getChildren(children);
///   assert(children.size() == 1 && children[0] == chair);
///   assert(!chair.getChild("Leg").isValid());
/// \endcode
class OVO_API Prim {
 public:
  /// A prim of nothing: not valid.
  Prim() noexcept;
  /// Copies name the same prim. One that was moved from is not valid. @{
  Prim(const Prim&);
  Prim(Prim&&) noexcept;
  Prim& operator=(const Prim&);
  Prim& operator=(Prim&&) noexcept;
  ~Prim();
  /// @}

  /// True while the stage has the prim: false for a prim of nothing, and for one that an edit has
  /// taken out of the scene. @{
  [[nodiscard]] bool isValid() const noexcept;
  [[nodiscard]] explicit operator bool() const { return isValid(); }
  /// @}

  /// Null for a prim of nothing.
  [[nodiscard]] const std::shared_ptr<Stage>& getStage() const noexcept { return stage_; }
  /// References live as long as the stage.
  [[nodiscard]] const Path& getPath() const noexcept;
  /// The last name of the path; empty for the stage's root.
  [[nodiscard]] const Token& getName() const noexcept;
  /// `Mesh`, `Xform` ...; empty for a prim without a type and for the stage's root.
  [[nodiscard]] const Token& getTypeName() const noexcept;

  /// False when the scene switches the prim off: it is there, but nothing is composed below it.
  [[nodiscard]] bool isActive() const noexcept;
  /// True for a `class` and all below it.
  [[nodiscard]] bool isAbstract() const noexcept;
  /// True when this prim and all above it are defined, by `def` or `class`; false for what has only
  /// `over`s.
  [[nodiscard]] bool isDefined() const noexcept;
  /// True for an instance: what is below it comes from its arcs alone.
  [[nodiscard]] bool isInstance() const noexcept;
  /// True below an instance.
  [[nodiscard]] bool isInstanceProxy() const noexcept;

  // The tree

  /// The prim above; for a top prim the stage's root, for that an invalid one.
  [[nodiscard]] Prim parent() const;
  /// The defined children in the scene's order; prims with only `over`s never come.
  ///
  /// \param out              emptied first
  /// \param activeOnly       leave inactive ones out
  /// \param includeAbstract  also `class`es and what is below them
  /// \param includeInstanced also what is below an instance
  void getChildren(std::vector<Prim>& out, bool activeOnly = true, bool includeAbstract = false,
                   bool includeInstanced = true) const;
  /// The child of that name, whatever its flags; invalid when there is none.
  [[nodiscard]] Prim getChild(const Token& name) const;

  // Attributes

  /// The attribute of that full name. It is valid when the scene has an opinion about it or the
  /// prim's type a fallback value for it.
  [[nodiscard]] Attribute getAttr(const Token& name) const;
  /// The attribute of that name, declared with that type where the scene has none yet. One that is
  /// there already comes back as it is when its type fits, and not valid when it does not.
  ///
  /// \param type a type word of scene files: `float`, `point3f[]`, `token` ...
  /// \return not valid when the name is not one, the type is unknown, or the prim lies inside an
  ///         instance @{
  Attribute createAttr(const Token& name, const Token& type) const;
  Attribute createAttr(const Token& name, const char* type) const {
    return createAttr(name, Token(type));
  }
  Attribute createAttr(const Token& name, Value::Type type) const;
  /// @}
  /// Names of the attributes that the scene has opinions about, by bytes.
  [[nodiscard]] std::vector<Token> getAttrNames() const;

  /// The primvar `primvars:` + name, else the attribute of the name as given; not valid when
  /// neither is in the scene.
  [[nodiscard]] Primvar getPrimvar(const Token& name) const;
  /// As getPrimvar; where this prim has no value for it, the nearest prim above that has one for
  /// `primvars:` + name, provided that one is constant: any other interpolation is not inherited
  /// and hides what is above it.
  [[nodiscard]] Primvar findInheritedPrimvar(const Token& name) const;
  /// Declares `primvars:` + name (a name that has the prefix is taken as it is) and sets its
  /// interpolation. @{
  Primvar createPrimvar(const Token& name, const Token& type,
                        const Token& interpolation = Token()) const;
  Primvar createPrimvar(const Token& name, const char* type,
                        const Token& interpolation = Token()) const {
    return createPrimvar(name, Token(type), interpolation);
  }
  Primvar createPrimvar(const Token& name, Value::Type type,
                        const Token& interpolation = Token()) const;
  /// @}
  /// Names, without the prefix, of the primvars that the scene has opinions about on this prim, by
  /// bytes; lists of indices are no primvars.
  [[nodiscard]] std::vector<Token> getPrimvarNames() const;

  /// The targets of a relationship, such as an instancer's `prototypes`, in order and in the
  /// stage's namespace.
  /// \return false, with \p targets emptied, when the scene has no such relationship
  bool getRelationshipTargets(const Token& name, std::vector<Path>& targets) const;
  /// Writes the whole list, so that weaker opinions do not count.
  /// \param targets absolute paths of prims or properties, which need not exist
  /// \return false, with nothing changed, when one is no such path, there is an attribute of that
  ///     name, or the prim cannot be changed
  bool setRelationshipTargets(const Token& name, const std::vector<Path>& targets) const;

  // What applies to all below

  /// False when this prim, or one above, is `invisible` at the time.
  [[nodiscard]] bool isVisible(double time = tarn::defaultTimeValue()) const;
  /// `default`, `render`, `proxy` or `guide`: the nearest opinion on this prim or above it.
  [[nodiscard]] Token purpose() const;
  /// `component`, `group` ...; empty where the scene does not say.
  [[nodiscard]] Token kind() const;

  /// Names of the variant sets in the scene's order.
  [[nodiscard]] std::vector<Token> getVariantSets() const;
  /// Names of the variants of a set, by bytes; empty for a set that the prim does not have.
  [[nodiscard]] std::vector<Token> getVariants(const Token& set) const;
  /// What is chosen in a variant set by the strongest opinion; empty when nothing is. The choice
  /// may name a variant that is not there.
  [[nodiscard]] Token getVariantSelection(const Token& set) const;

  // Changes. False when the prim is not valid, is the stage's root or lies inside an instance.

  /// Switches the prim on or off. While it is off there are no prims below it.
  /// \return false when the prim is not valid, is the stage's root or lies inside an instance
  bool setActive(bool active) const;
  /// Gives the prim a type. An empty one takes back what this stage gave, so that weaker opinions
  /// count.
  /// \return false as setActive(), and for a text that is no identifier
  bool setTypeName(const Token& type) const;

  /// The same prim of the same stage. Prims of nothing are equal. @{
  friend bool operator==(const Prim& a, const Prim& b) noexcept { return a.node_ == b.node_; }
  friend bool operator!=(const Prim& a, const Prim& b) noexcept { return a.node_ != b.node_; }
  /// @}
  /// By stage, in the order in which stages were made, then by path; what is not valid comes first.
  OVO_API friend bool operator<(const Prim& a, const Prim& b) noexcept;
  /// Equal prims have equal hashes; 0 for a prim of nothing.
  [[nodiscard]] std::size_t hash() const noexcept;

 protected:
  friend class Attribute;
  friend class Stage;
  /// For the classes that derive from it here: where the prim's data lies. @{
  Prim(std::shared_ptr<Stage> stage, const detail::PrimNode* node);

  std::shared_ptr<Stage> stage_;
  const detail::PrimNode* node_ = nullptr;
  /// @}
};

/// Writes the path.
OVO_API std::ostream& operator<<(std::ostream& out, const Prim& prim);

}  // namespace ovo

/// Hashes as Prim::hash().
template <>
struct std::hash<ovo::Prim> {
  /// The hash of the prim.
  std::size_t operator()(const ovo::Prim& prim) const noexcept { return prim.hash(); }
};
