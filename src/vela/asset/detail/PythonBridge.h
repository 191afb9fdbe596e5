/// \file
/// Asset managers written in Python, run by whichever interpreter the process has.
#pragma once

#include "vela/asset/detail/OpenAssetIO.h"
#include "vela/asset/detail/OpenAssetIOCalls.h"

namespace vela::asset::detail {

/// The factory of Python plug-ins; null, and `leftOut` told why, when the process runs no
/// interpreter of the version that OpenAssetIO was built for. Throws what Python throws when its
/// side of OpenAssetIO cannot be imported.
[[nodiscard]] openassetio::hostApi::ManagerImplementationFactoryInterfacePtr makePythonFactory(
    const openassetio::log::LoggerInterfacePtr& logger, const OpenAssetIOCalls::Note& leftOut);

}  // namespace vela::asset::detail
