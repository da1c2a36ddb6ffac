// The configuration in memory: contexts, packages, sections, options and recorded changes, and the steps that
// change them. Nothing here touches a file or decides whether a change is allowed.
#pragma once

#include <cstddef>

#include <uci.h>

#include "arena.h"
#include "element_index.h"

namespace uci {

// Where and why parsing a file stopped.
struct parse_failure {
    const char *reason; // null: the latest call met no such failure
    size_t line;        // newlines read so far
    size_t byte;        // offset in the logical line
};

// What every uci_context and uci_package really is: callers see the first part only.
struct context : uci_context {
    parse_failure failure;
};

struct package : uci_package {
    arena memory; // of sections, options and values: what is removed or replaced stays until the package goes
    size_t created;      // sections ever created in it; the number in the next generated name
    element_index index; // of sections and of the options behind a section's first ones, unless unindexed
    bool unindexed;      // two elements of one list share a name, or memory ran short: look through the lists
    bool recording;      // changes go to the delta list
};

struct section : uci_section {
    size_t created; // options ever created in it
    uint64_t names; // bits of all names that its options ever had: most names that it lacks are known by it
};

inline context *full(uci_context *ctx)
{
    return static_cast<context *>(ctx);
}

inline package *full(uci_package *p)
{
    return static_cast<package *>(p);
}

inline section *full(uci_section *s)
{
    return static_cast<section *>(s);
}

inline bool has_flag(const uci_context *ctx, uci_flags flag)
{
    return (ctx->flags & flag) != 0;
}

// Runs the body of an interface function: it returns a code, which becomes the state of the context.
template <typename Body> int run_call(uci_context *ctx, Body body)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    full(ctx)->failure = {};
    ctx->err = body(full(ctx));
    return ctx->err;
}

// ---- lists and elements ----

void list_init(uci_list *head);
void list_append(uci_list *head, uci_list *link);
void list_remove(uci_list *link);

// A bare element of a context with a copy of name, at the end of a list; null without memory.
uci_element *append_element(uci_list *head, uci_type type, const char *name);
// Frees a context's bare elements and leaves the list empty.
void free_elements(uci_list *head);

// The first element of exactly this name, or null.
uci_element *find_element(const uci_list *head, const char *name);

// ---- packages ----

// An empty package that is in no context's list yet; null without memory. It records no changes.
package *new_package(context *ctx, const char *name);
// Takes a package out of its context, if it is in, and frees it with all it holds.
void free_package(package *p);

uci_section *find_section(package *p, const char *name);
uci_option *find_option(uci_section *s, const char *name);

// ---- sections ----

enum class naming { named, anonymous };

// Appends a section; null without memory. A null name is generated from the type and the number of the
// section.
uci_section *append_section(package *p, const char *type, const char *name, naming kind);
void remove_section(uci_section *s);
// Moves a section to a position among the others, counted from 0; false: it was there already.
bool move_section(uci_section *s, long position);

// The remaining functions return false when memory is short, and then nothing changed.
bool set_section_type(uci_section *s, const char *type);
// A renamed section is a named one.
bool rename_section(uci_section *s, const char *name);

// ---- options ----

// Makes an option a plain one with this value, in place if it exists; `existing` is what find_option() finds.
bool set_string(uci_section *s, uci_option *existing, const char *name, const char *value);
// Appends to a list; a plain option becomes the list's first value, in place.
bool append_value(uci_section *s, const char *name, const char *value);
bool rename_option(uci_option *o, const char *name);

void remove_option(uci_option *o);
void remove_equal_values(uci_option *o, const char *value);
void remove_value(uci_element *item);

// ---- recorded changes ----

struct change {
    uci_command command;
    const char *section;
    const char *option; // null: the section itself
    const char *value;  // may be null
};

[[nodiscard]] bool append_change(uci_list *head, const change &what);
// Frees the changes of a list and leaves it empty.
void free_changes(uci_list *head);

} // namespace uci
