/// \file
/// The process's asset manager: an OpenAssetIO manager that tells what asset references stand for.
///
/// Nothing is set up by itself: until setupManager or setManager, nothing is an asset reference.
/// Messages go to the log, as sub-system "Asset System", or to callers that ask for them
/// (AssetMessage). Nothing throws but allocation.
///
/// Threads: every function may be called from any thread. No lock is held while the manager runs,
/// so what resolves during a change sees the manager from before or after it. Python managers: the
/// calling thread may hold the interpreter's lock or not; a program that embeds Python must release
/// it (PyEval_SaveThread) before other threads resolve.
///
/// \code
///   vela::asset::AssetMessage error;
///   if (!vela::asset::setupManager("no-such-file.toml", &error))
///     std::cerr << "only files can be read: " << error.reason << '\n';
///   assert(!error.reason.empty() && vela::asset::getManager() == nullptr);
/// \endcode
#pragma once

#include <memory>
#include <string>

#include "vela/Api.h"

namespace openassetio {
inline namespace v1 {
class Context;
namespace hostApi {
class Manager;
}
namespace trait {
class TraitsData;
}
}  // namespace v1
}  // namespace openassetio

namespace vela::asset {

/// Why a call gave nothing, for callers that report it themselves.
///
/// Every call that can fail has a form with an `AssetMessage* error`. Where that is not null, the
/// message goes there and not to the log, and is empty after a success. Where it is null, the call
/// is the plain one.
struct AssetMessage {
  std::string reason;  ///< one line without a full stop; empty when there is nothing to say
  /// What the plain call logs: what failed, the reason, and behind it the traceback of a manager
  /// written in Python. Empty where the plain call says nothing.
  std::string text;
};

/// Makes the manager that a configuration names, and installs it in place of the present one.
///
/// Plug-ins may be native or written in Python. Python ones are found when an interpreter of the
/// version that OpenAssetIO was built for runs in the process by then; without one they are left
/// out.
///
/// \param configPath  an OpenAssetIO configuration (TOML); empty: the one that
///                    `OPENASSETIO_DEFAULT_CONFIG` names, and when that is not set either, nothing
///                    happens
///
/// A manager that cannot resolve is installed with a warning, and then passed over by every
/// resolution. When no manager can be made, an error says why; one that was there before stays.
/// What was resolved before stays in the cache.
VELA_API void setupManager(const std::string& configPath);
/// The same, saying why.
/// \param error   why no manager was made; see AssetMessage
/// \param warning why the manager that was made will answer nothing
/// \return true when a manager was made and installed
VELA_API bool setupManager(const std::string& configPath, AssetMessage* error,
                           AssetMessage* warning = nullptr);

/// The installed manager; null without one.
[[nodiscard]] VELA_API std::shared_ptr<openassetio::v1::hostApi::Manager> getManager();

/// Installs a manager, or none with null. The context and the cache stay.
VELA_API void setManager(const std::shared_ptr<openassetio::v1::hostApi::Manager>& manager);

/// The context of the calls to the manager; null until the first clearContext that finds a manager.
[[nodiscard]] VELA_API std::shared_ptr<openassetio::v1::Context> getContext();

/// Replaces the context by a new one of the installed manager; does nothing without a manager.
VELA_API void clearContext();

/// Forgets everything resolved, then makes the manager anew from the environment, as setupManager
/// with an empty path.
VELA_API void clearCache();

/// Which OpenAssetIO is in use, or in one line why none is: for people to read. Loads it.
[[nodiscard]] VELA_API std::string openAssetIOInfo();

}  // namespace vela::asset
