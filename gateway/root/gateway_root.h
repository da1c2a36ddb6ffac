// The private root of a virtual gateway: this build's programs and the gateway's files on their places.
#pragma once

#include "root/private_root.h"

// Options for a gateway of this build: its files and the package's over the machine's, busybox ash as
// /bin/sh, the build directory passed through writable (so that coverage data and test reports survive) and
// the source directory read-only.
private_root_options gateway_root_options();

// As enter_private_root; before the body runs, /gateway/bin is filled and put in front of PATH, an empty
// journal and log exist, and HOME is /root.
int enter_gateway(const private_root_options &options, const std::function<int()> &body);
