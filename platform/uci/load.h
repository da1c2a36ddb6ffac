// Configuration files and their delta files, read into packages.
#pragma once

#include "file.h"
#include "model.h"

namespace uci {

// What uci_load does. *out may be null and is left alone on failure.
int load(context *ctx, const char *name, uci_package **out);

// Parses an open configuration file into a new package that is in no list yet; nothing is made on failure.
int read_package(context *ctx, const char *name, const char *path, int fd, package **out);

// Applies the delta files of every directory in the path, the save directory's last. With `keep`, that one is
// locked exclusively and stays open there, if it exists. *applied counts the lines that could be applied.
int apply_deltas(package *p, locked_file *keep, size_t *applied);

// Adds a package to its context. Its changes are recorded from now on if it has a delta.
void publish(package *p);

} // namespace uci
