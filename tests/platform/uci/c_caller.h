// What a program in C does with the library.
#pragma once

#include <uci.h>

#ifdef __cplusplus
extern "C" {
#endif

// The values of an option: 1 for a plain one, 0 for a missing one.
size_t count_values_in_c(struct uci_context *ctx, struct uci_package *p, const char *section,
                         const char *option);

// Whether a reference leads to a section.
bool is_found_in_c(struct uci_context *ctx, const char *package, const char *reference);

// Deletes all sections of a type, in memory, and returns how many there were.
size_t delete_sections_in_c(struct uci_context *ctx, struct uci_package *p, const char *type);

#ifdef __cplusplus
}
#endif
