/// \file
/// The process-wide state of the asset layer, and its messages.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "vela/asset/detail/OpenAssetIO.h"

namespace vela::asset::detail {

/// The context to resolve with: the stored one, else a new one.
[[nodiscard]] std::shared_ptr<openassetio::Context> contextForCalls();

/// What was resolved before, by its key. False, with `data` untouched, when it is not known. A
/// known null is an answer.
[[nodiscard]] bool findResolved(const std::string& key, openassetio::trait::TraitsDataPtr& data);
void storeResolved(const std::string& key, const openassetio::trait::TraitsDataPtr& data);

void logError(std::string_view text);
void logWarning(std::string_view text);
void logVerbose(std::string_view text);

/// For exceptions that are no std::exception.
inline constexpr const char* kUnknownException = "unknown exception";

/// Runs `work`; when it throws, logs `message` followed by the exception's own text, and gives
/// `otherwise`. Plug-ins may throw anything.
template <typename Result, typename Work>
Result guarded(const char* message, Result otherwise, Work work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    logError(std::string(message) + exception.what());
  } catch (...) {
    logError(std::string(message) + kUnknownException);
  }
  return otherwise;
}

}  // namespace vela::asset::detail
