/// \file
/// OpenAssetIO, as far as the asset layer uses it: by its own headers where a full install was
/// found, else by declarations of ours. Never both in one program.
#pragma once

#ifdef VELA_OPENASSETIO_HEADERS

#include <openassetio/Context.hpp>
#include <openassetio/EntityReference.hpp>
#include <openassetio/access.hpp>
#include <openassetio/errors/exceptions.hpp>
#include <openassetio/hostApi/HostInterface.hpp>
#include <openassetio/hostApi/Manager.hpp>
#include <openassetio/hostApi/ManagerFactory.hpp>
#include <openassetio/hostApi/ManagerImplementationFactoryInterface.hpp>
#include <openassetio/log/ConsoleLogger.hpp>
#include <openassetio/log/SeverityFilter.hpp>
#include <openassetio/pluginSystem/CppPluginSystemManagerImplementationFactory.hpp>
#include <openassetio/pluginSystem/HybridPluginSystemManagerImplementationFactory.hpp>
#include <openassetio/trait/TraitsData.hpp>
#include <openassetio/utils/path.hpp>

#else

#include "vela/asset/detail/OpenAssetIODeclarations.h"

#endif
