// Writing configuration text.
#pragma once

#include <cstdio>

#include "memory.h"
#include "model.h"

namespace uci {

// A value in single quotes, as files, delta lines and the tool's output have it.
void write_quoted(FILE *stream, const char *value);

enum class heading { none, package_line };

void write_package(FILE *stream, const uci_package *p, heading head);

// What a configuration file holds for the package. UCI_ERR_MEM: memory is short.
int export_text(const uci_package *p, bytes *out);

} // namespace uci
