// Packages into configuration files.
#pragma once

#include "file.h"
#include "model.h"

namespace uci {

// Opens and locks a configuration file for its writer, and creates it if it is missing.
int lock_config(const char *path, locked_file *out);

// Replaces a file, whose exclusive lock is held, by what it is to hold for the package.
int write_config(const package *p, const char *path);

// Writes a package as it is in memory, whatever its file holds: to the file it was loaded from or, with
// `overwrite`, to the one of its name. UCI_ERR_INVAL: it was loaded from none.
int write_plain(const package *p, bool overwrite);

} // namespace uci
