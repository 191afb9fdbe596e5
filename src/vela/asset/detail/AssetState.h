/// \file
/// The process-wide state of the asset layer, and its messages.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "vela/asset/AssetManager.h"
#include "vela/asset/detail/OpenAssetIOCalls.h"

namespace vela::asset::detail {

/// The context to resolve with: the stored one, else a new one.
[[nodiscard]] ContextPtr contextForCalls();

/// What was resolved before, by its key. False, with `data` untouched, when it is not known. A
/// known null is an answer.
[[nodiscard]] bool findResolved(const std::string& key, TraitsDataPtr& data);
void storeResolved(const std::string& key, const TraitsDataPtr& data);

/// Gives an error, or a warning, to the caller that asked for it; logs it where `to` is null.
/// \param head  what failed; not part of the reason
void tellError(AssetMessage* to, std::string_view head, std::string_view reason);
void tellWarning(AssetMessage* to, std::string_view text);
/// A reason that is not logged where nobody asks for it.
void tellQuietly(AssetMessage* to, std::string_view reason);

void logVerbose(std::string_view text);

/// For exceptions that are no std::exception.
inline constexpr const char* kUnknownException = "unknown exception";

/// Runs `work`; when it throws, tells the error, `head` followed by the exception's own text, and
/// gives `otherwise`. Plug-ins may throw anything.
template <typename Result, typename Work>
Result guarded(AssetMessage* error, const char* head, Result otherwise, Work work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    tellError(error, head, exception.what());
  } catch (...) {
    tellError(error, head, kUnknownException);
  }
  return otherwise;
}

}  // namespace vela::asset::detail
