// Putting changes on disk: delta files and configuration files.
#pragma once

#include "model.h"

namespace uci {

// What uci_save and uci_commit do.
int save(package *p);
int commit(context *ctx, uci_package **p, bool overwrite);

} // namespace uci
