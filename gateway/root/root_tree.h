// The file system of a private root. Called once, by process 1 inside.
#pragma once

#include "root/namespaces.h"
#include "root/root_options.h"

// Builds the new tree from the machine's and makes it this process's root. The process must be alone in new
// mount and process namespaces. Throws std::system_error, whose text names the step, when a part cannot be
// made.
void build_root_tree(const private_root_options &options, tree_owner owner);
