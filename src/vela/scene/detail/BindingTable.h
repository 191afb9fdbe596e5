/// \file
/// What the prims of a stage say about materials, and collections, each read once.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ovo/Path.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "vela/scene/MaterialBinding.h"

namespace vela::scene::detail {

/// Which paths a collection has: each path that it names, with what it says of it.
class Collection {
 public:
  enum class Rule { exclude, explicitOnly, expandPrims };

  void set(const ovo::Path& path, Rule rule) { rules_[path] = rule; }
  /// Takes all rules of another one over its own.
  void merge(const Collection& other);
  /// The nearest path of the prim's own and those above it that has a rule says whether the prim is
  /// a member.
  [[nodiscard]] bool has(const ovo::Path& prim) const;

  bool isReadable = true;  ///< false when something of it cannot be read
  /// Of a collection that is given by an expression; all rules are then empty.
  std::function<bool(const ovo::Path& prim)> expression;

 private:
  std::unordered_map<ovo::Path, Rule> rules_;
};

class BindingTable {
 public:
  BindingTable(const ovo::Stage& stage, MaterialPurpose purpose);

  [[nodiscard]] MaterialBinding find(const ovo::Prim& prim);
  /// The collection that a property such as `/Sun.collection:lightLink` stands for, whether its
  /// schema is applied or not. The two of a light have everything where the scene does not say.
  std::shared_ptr<const Collection> collectionAt(const ovo::Path& property);
  [[nodiscard]] const std::vector<std::string>& unreadable() const { return unreadable_; }

 private:
  struct Binding {
    ovo::Path material;
    ovo::Path collection;  // a property; empty for a direct binding
    ovo::Path relationship;
    bool isStrong = false;
  };
  // Of one prim: for the purpose asked for, then for all purposes.
  struct OfPrim {
    std::vector<Binding> direct[2];  // one or none
    std::vector<Binding> collections[2];
  };

  const OfPrim& read(const ovo::Prim& prim);
  Collection readCollection(const ovo::Prim& prim, const std::string& name);
  [[nodiscard]] const Binding* findFor(const ovo::Prim& prim, int which);

  const ovo::Stage& stage_;
  std::string purpose_;  // empty: bindings for all purposes alone
  std::unordered_map<ovo::Path, OfPrim> prims_;
  std::unordered_map<ovo::Path, std::shared_ptr<const Collection>> collections_;
  std::vector<ovo::Path> open_;      // collections being read, the outermost first
  bool isCut_ = false;               // something of those was left out
  std::size_t collectionsRead_ = 0;  // since the outermost began
  std::vector<std::string> unreadable_;
};

}  // namespace vela::scene::detail
