// Pending changes into delta files.
#pragma once

#include "model.h"

namespace uci {

// What uci_save does.
int save(package *p);

} // namespace uci
