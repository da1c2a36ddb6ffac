// Texts of errors.
#pragma once

#include "memory.h"
#include "model.h"

namespace uci {

// "PREFIX: TEXT (WHY) at line L, byte B", without prefix if that is null and without position if there is
// none. Null without memory.
text error_text(const context *ctx, int code, const char *prefix);

} // namespace uci
