/// \file
/// What the process that tries a scene says to the one that asked for it: one of these words at the
/// beginning of its standard output, and behind kTrialRefused the reason.
#pragma once

namespace ovo::detail {

inline constexpr const char* kTrialOpens = "opens\n";
inline constexpr const char* kTrialRefused = "refused\n";
inline constexpr const char* kTrialOutOfMemory = "memory\n";

}  // namespace ovo::detail
