/// \file
/// What leads from the properties of a prim elsewhere: targets, connections, files; and the words
/// about properties and prims that say how.
///
/// Threads: as Prim.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Path.h"
#include "ovo/Prim.h"
#include "ovo/Token.h"
#include "tarn/Time.h"

namespace ovo {

/// A file that an attribute names.
struct FileReference {
  std::string written;  ///< as the scene has it, expressions evaluated
  std::string layer;    ///< identifier of the layer that wrote it
  /// Where it is looked for: an absolute path, a path within a package (`/a/b.usdz[c.png]`), or a
  /// name without a folder, which is looked for on the search path alone.
  std::string anchored;
  std::string resolved;  ///< what is there; empty when nothing is
};

/// The bytes of a file, mapped into memory where the system does so.
class OVO_API FileBytes {
 public:
  FileBytes() noexcept = default;
  /// \p size bytes from \p bytes on, held as long as this or a copy of it lives.
  FileBytes(std::shared_ptr<const char> bytes, std::size_t size) noexcept;

  /// All bytes; the view holds as long as this, or a copy of it, does.
  [[nodiscard]] std::string_view view() const noexcept { return {bytes_.get(), size_}; }

 private:
  std::shared_ptr<const char> bytes_;
  std::size_t size_ = 0;
};

/// A prim, seen as a part of a network: materials, shaders, lights and what is bound to them.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::openText(
///       "#usda 1.0\n"
///       "def Material \"Red\"\n{\n"
///       "  token outputs:surface.connect = </Red/Surface.outputs:surface>\n"
///       "  def Shader \"Surface\"\n  {\n    asset inputs:file = @./missing.png@\n  }\n}\n"
///       "def Mesh \"Ball\" (prepend apiSchemas = [\"MaterialBindingAPI\"])\n{\n"
///       "  rel material:binding = </Red> (bindMaterialAs = \"strongerThanDescendants\")\n}\n");
///   const ovo::PropertyLinks ball(stage->getPrimAtPath("/Ball"));
///   assert(ball.propertyNames("material:").size() == 1);
///   assert(ball.propertyWord("material:binding", "bindMaterialAs") == "strongerThanDescendants");
///   assert(ball.appliedSchemas() == std::vector<ovo::Token>{"MaterialBindingAPI"});
///
///   const ovo::PropertyLinks red(stage->getPrimAtPath("/Red"));
///   std::vector<ovo::Path> sources;
///   assert(red.connections("outputs:surface", sources));
///   assert(sources == std::vector<ovo::Path>{"/Red/Surface.outputs:surface"});
///
///   ovo::FileReference file;
///   assert(ovo::PropertyLinks(red.getChild("Surface")).file("inputs:file", file));
///   assert(file.written == "./missing.png" && file.resolved.empty());
///
///   ovo::FileBytes bytes;
///   std::string why;
///   assert(ovo::readFileBytes("examples/demo/demo.usda", bytes, &why));
///   assert(bytes.view().substr(0, 5) == "#usda");
/// \endcode
class OVO_API PropertyLinks : public Prim {
 public:
  /// Looks at any prim; \p prim may be one that is not valid.
  explicit PropertyLinks(const Prim& prim) : Prim(prim) {}

  /// Names of the attributes and relationships that the scene has opinions about and that begin
  /// with \p prefix. They come as OpenUSD orders them: without regard to case, numbers in names by
  /// their value, then as a `reorder properties` of the scene says.
  [[nodiscard]] std::vector<Token> propertyNames(std::string_view prefix = {}) const;

  /// The prim and the property of a path such as `/Red.outputs:surface`; the property is empty for
  /// the path of a prim.
  static void split(const Path& path, Path& prim, Token& property);

  /// The strongest word that the scene has in a metadata field of a property, such as
  /// `bindMaterialAs`; empty without one.
  [[nodiscard]] Token propertyWord(const Token& property, const Token& field) const;

  /// The schemas that the scene applies to the prim, such as `CollectionAPI:lit`, in order.
  [[nodiscard]] std::vector<Token> appliedSchemas() const;

  /// What an attribute is connected to: properties, in order and in the stage's namespace. What
  /// leads out of the scene that an arc brings in is left out.
  /// \return false, with \p sources emptied, when the scene has no such attribute
  bool connections(const Token& attribute, std::vector<Path>& sources) const;
  /// The targets of a relationship. Where a target is a relationship, those of that one stand in
  /// its place, and so on; one that leads back to itself gives nothing.
  /// \return false, with \p targets emptied, when the scene has no such relationship
  bool forwardedTargets(const Token& relationship, std::vector<Path>& targets) const;

  /// The file that an attribute names at a time. Relative names are anchored to the layer that
  /// wrote the value; files of the current folder are never found, so that no result depends on it.
  /// \return false, with \p file untouched, when there is no value or it is no text
  bool file(const Token& attribute, FileReference& file,
            double time = tarn::defaultTimeValue()) const;
  /// What is there under a name that FileReference::anchored has, or one made from it; empty when
  /// nothing is.
  [[nodiscard]] std::string resolveFile(const std::string& anchored) const;

  /// Which prims a path expression, such as that of a collection, matches. Weaker opinions take the
  /// place of `%_`. Of predicates there are `isa` (types of geometry and what they derive from, all
  /// others by their own name), `hasAPI`, `kind`, `defined` and `abstract`.
  /// \return empty when there is no such expression, or when it cannot be evaluated: it names
  ///         other collections or predicates, or is none by its grammar
  [[nodiscard]] std::function<bool(const Path& prim)> pathExpression(const Token& attribute) const;

  /// A text that is equal for two prims whose subtrees come from the same opinions of the same
  /// files and are connected alike: what they hold is then the same as well.
  [[nodiscard]] std::string sourceKey() const;
};

/// Reads a file by the name that FileReference::resolved has, out of packages too.
/// \param error when not null: why nothing came; else untouched
/// \return false, with \p bytes untouched, when it cannot be read or is no regular file
OVO_API bool readFileBytes(const std::string& resolved, FileBytes& bytes,
                           std::string* error = nullptr);

}  // namespace ovo
