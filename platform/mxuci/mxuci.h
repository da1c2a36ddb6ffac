#ifndef MXUCI_H
#define MXUCI_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Configuration calls by (configuration, section, option) over libuci.
 *
 * Every call is complete when it returns: a change is in /etc/config/<config>, written to a temporary file,
 * synced and renamed into place, so that a crash or a full disk at any moment leaves the old file or the new
 * one, whole. Changes that other programs left pending in /tmp/.uci are read as part of the configuration and
 * are written along with ours, as a commit does.
 *
 * `section` is a section's name or a reference "@type[i]" (negative i counts from the end). Every call
 * returns 0 on success and a non-zero libuci code (UCI_ERR_*) on failure; no call prints, aborts or keeps
 * anything between calls. All calls may be made from several threads at once; they take one lock inside.
 */

/*
 * Reads an option as text into buffer of `size` bytes, at most size - 1 of them, always terminated. A list is
 * read as its values joined by one blank. On failure (no such configuration, section or option; size 0)
 * buffer is unchanged.
 */
int mxuci_get(const char *config, const char *section, const char *option, char *buffer, size_t size);

/*
 * Sets an option of an existing section; a list becomes a plain option. An empty value deletes the option,
 * and succeeds when there was none.
 */
int mxuci_set(const char *config, const char *section, const char *option, const char *value);

/* Appends a value to a list; a missing option becomes a list, a plain option becomes the list's first value.
 */
int mxuci_add_list(const char *config, const char *section, const char *option, const char *value);

/* Removes every entry equal to value from a list. Nothing to remove is a success; a missing section is a
 * failure. */
int mxuci_del_list(const char *config, const char *section, const char *option, const char *value);

/* Stores the number of values of an option: a list's length, 1 for a plain option, 0 for a missing one
 * (success). */
int mxuci_total_list(const char *config, const char *section, const char *option, int *count);

/*
 * Adds a section of a type, which is made of visible characters but no quote, '#', ';' or backslash. With an
 * empty name_buffer it is anonymous and its generated name is written to name_buffer, which must hold 16
 * bytes or more; otherwise name_buffer names it.
 */
int mxuci_add_section(const char *config, const char *type, char *name_buffer);

/* Deletes a section; one that does not exist is a failure. */
int mxuci_del_section(const char *config, const char *section);

/* Deletes an option; one that does not exist is a failure. */
int mxuci_delete(const char *config, const char *section, const char *option);

#ifdef __cplusplus
}
#endif

#endif
