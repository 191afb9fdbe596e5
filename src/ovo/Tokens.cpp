#include "ovo/Tokens.h"

namespace ovo {

const Tokens& tokens() {
  static const Tokens* const table = new Tokens;
  return *table;
}

}  // namespace ovo
