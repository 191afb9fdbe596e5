/// \file
/// What `vela --help` and `vela VERB --help` print: at most 100 columns, examples last.
#pragma once

#include <string>

namespace command {

[[nodiscard]] const char* overallHelp();
/// Its layers are those of the table in vela/picture/LayerTable.h.
[[nodiscard]] std::string renderHelp();
[[nodiscard]] const char* pickHelp();
[[nodiscard]] const char* selectHelp();
[[nodiscard]] const char* infoHelp();
[[nodiscard]] const char* channelsHelp();
[[nodiscard]] const char* resolveHelp();
[[nodiscard]] const char* meshHelp();
[[nodiscard]] const char* makeHelp();

}  // namespace command
