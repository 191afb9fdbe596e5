#include "vela/Version.h"

namespace vela {

const char* version() { return VELA_VERSION_TEXT; }

}  // namespace vela
