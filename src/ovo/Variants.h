/// \file
/// Scenes opened with variants other than their own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Path.h"
#include "ovo/Token.h"

namespace ovo {

class Stage;

/// What is chosen in one variant set of one prim.
struct VariantChoice {
  Path prim;   ///< the prim that has the set
  Token set;   ///< the name of the set
  Token name;  ///< the variant that is chosen in it; empty: none
};

/// Reads `/World/Chair:colour=red`. \return false for anything else
OVO_API bool readVariantChoice(const std::string& text, VariantChoice& choice);

/// As Stage::open, with choices that are stronger than those of the files.
///
/// A choice may name a prim, a set or a variant that only comes with another choice. Whether each
/// of them is there is asked of the stage: Prim::getVariantSets() and Prim::getVariants().
///
/// \param choices those whose path is no absolute prim path, or whose set or name is no name, are
///                reasons to fail
/// \return null, with \p error set when not null, as Stage::open, and for choices of no form
///
/// \code
///   std::string why;
///   const auto stage = ovo::openWithVariants("examples/demo/demo.usda", {}, &why);
///   if (!stage) throw std::runtime_error(why);
///   ovo::VariantChoice choice;
///   assert(ovo::readVariantChoice("/Demo:look=night", choice));
///   assert(choice.prim == ovo::Path("/Demo") && choice.set == ovo::Token("look"));
///   assert(!ovo::readVariantChoice("/Demo", choice));
/// \endcode
[[nodiscard]] OVO_API std::shared_ptr<Stage> openWithVariants(
    const std::string& file, const std::vector<VariantChoice>& choices,
    std::string* error = nullptr);

}  // namespace ovo
