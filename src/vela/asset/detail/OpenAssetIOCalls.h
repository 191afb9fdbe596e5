/// \file
/// What the asset layer asks of OpenAssetIO, as a table of functions.
///
/// Whatever touches OpenAssetIO is compiled into a module of its own, which lies in
/// vela/openassetio beside the library and is loaded when a manager is first asked for: programs
/// that resolve no reference neither load OpenAssetIO nor need it. No type of OpenAssetIO is known
/// here by more than its name.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "vela/asset/AssetManager.h"

namespace vela::asset::detail {

using ManagerPtr = std::shared_ptr<openassetio::v1::hostApi::Manager>;
using ContextPtr = std::shared_ptr<openassetio::v1::Context>;
using TraitsDataPtr = std::shared_ptr<openassetio::v1::trait::TraitsData>;

/// What a location of resolved data is.
enum class LocationKind { kPath, kNone, kBadUrl };

/// All of them may throw what OpenAssetIO and its plug-ins throw. References to managers and data
/// are never null.
struct OpenAssetIOCalls {
  using Manager = openassetio::v1::hostApi::Manager;
  using Note = std::function<void(std::string_view)>;

  /// The project's version that the module was built with, OpenAssetIO's, and that of the Python
  /// whose managers can be loaded, such as "3.11"; empty when there is none.
  const char* version;
  const char* openAssetIOVersion;
  const char* pythonVersion;
  /// An address within OpenAssetIO's library: it tells which file that is.
  const void* (*libraryAddress)();

  /// The manager of a configuration, or of the environment when the path is empty; null when it
  /// names none. `leftOut` is told why Python managers are left out.
  ManagerPtr (*makeManager)(const std::string& configPath, const Note& leftOut);
  std::string (*displayName)(const Manager& manager);
  bool (*canResolve)(Manager& manager);
  bool (*isReference)(Manager& manager, const std::string& text);
  ContextPtr (*createContext)(Manager& manager);
  /// A context of no manager.
  ContextPtr (*emptyContext)();

  /// A reference for resolve(); null when the manager does not take the text for one.
  std::shared_ptr<const void> (*makeReference)(Manager& manager, const std::string& text);
  TraitsDataPtr (*resolve)(Manager& manager, const void* reference,
                           const std::set<std::string>& traitSet, const ContextPtr& context);

  /// The location of resolved data: its path, or the URL that gives none. Throws for a location
  /// that is no text.
  LocationKind (*locationOf)(const openassetio::v1::trait::TraitsData& data, std::string& text);
};

/// The table. Throws std::runtime_error, saying in one line what is missing, when the module or
/// OpenAssetIO itself cannot be loaded; tries again at the next call then.
[[nodiscard]] const OpenAssetIOCalls& openAssetIO();

/// The one function that the module exports.
inline constexpr const char* kOpenAssetIOCallsEntry = "velaOpenAssetIOCalls";
using OpenAssetIOCallsEntry = const OpenAssetIOCalls* (*)();

}  // namespace vela::asset::detail
