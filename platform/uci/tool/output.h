// What the tool prints of a configuration.
#pragma once

#include "session.h"

namespace uci_tool {

// `get`: the plain value, or a list's elements with the delimiter between, quoted where they hold white
// space.
void print_value(const session &tool, const uci_option *o);

// `show`: lines that name each element in full and quote every value.
void print_package(const session &tool, const uci_package *p);
void print_section(const session &tool, const uci_section *s);
void print_option(const session &tool, const uci_option *o);

// `changes`: what is in the delta files of a package.
void print_changes(const uci_package *p);

} // namespace uci_tool
