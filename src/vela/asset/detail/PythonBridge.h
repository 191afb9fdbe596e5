/// \file
/// The way to managers written in Python, through whichever interpreter the process has.
#pragma once

#include "vela/asset/detail/OpenAssetIO.h"

namespace vela::asset::detail {

/// The factory of Python plug-ins; null, with a verbose line in the log, when the process runs no
/// interpreter of the version that OpenAssetIO was built for. Throws what Python throws when its
/// side of OpenAssetIO cannot be imported.
[[nodiscard]] openassetio::hostApi::ManagerImplementationFactoryInterfacePtr makePythonFactory(
    const openassetio::log::LoggerInterfacePtr& logger);

}  // namespace vela::asset::detail
