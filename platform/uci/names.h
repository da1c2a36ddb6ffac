// What may be a name, a type, a package or a value. Who checks which is decided by the callers: the change
// functions take more than the parser does.
#pragma once

namespace uci {

// A section or option: one or more letters, digits and underscores.
bool valid_name(const char *text);

// A section type, or a package as a load takes it: one or more bytes from '!' to '~'.
bool valid_type(const char *text);
bool valid_package(const char *text);

// A package as a `package` line may name it: one or more letters, digits, underscores and dashes.
bool valid_package_line(const char *text);

} // namespace uci
