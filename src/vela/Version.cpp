#include "vela/Version.h"

#include <dlfcn.h>

#include <string>

#include "tarn/Lanes.h"
#include "vela/asset/AssetManager.h"

namespace vela {
namespace {

// The file that holds an address; empty when nothing tells.
std::string fileOf(const void* address) {
  Dl_info info{};
  return dladdr(address, &info) != 0 && info.dli_fname ? info.dli_fname : "";
}

std::string compilerName() {
#ifdef __clang__
  return "Clang " __clang_version__;
#else
  return "GCC " __VERSION__;
#endif
}

std::string instructionSets() {
#if TARN_LANES_HAVE_SSE2
  return tarn::runsAvx2() ? "SSE2, AVX2 (this processor has both)"
                          : "SSE2 (this processor has no AVX2)";
#else
  return "none; plain code";
#endif
}

}  // namespace

const char* version() { return VELA_VERSION_TEXT; }

std::vector<BuildFact> buildInfo() {
  return {{"Vela", std::string(version()) + ", " + VELA_BUILD_TYPE + ", " +
                       fileOf(reinterpret_cast<const void*>(&version))},
          {"compiler", compilerName() + ", C++" + std::to_string(__cplusplus / 100 % 100)},
          {"instruction sets", instructionSets()},
          {"OpenUSD", VELA_BUILD_OPENUSD},
          {"TBB", VELA_BUILD_TBB},
          {"OpenSubdiv", VELA_BUILD_OPENSUBDIV},
          {"OpenAssetIO", asset::openAssetIOInfo()}};
}

}  // namespace vela
