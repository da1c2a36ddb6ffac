/*
 * UCI configuration files: parsing, lookup, changes kept pending in delta files, and commit. This is the
 * interface that programs on a gateway use, for hosts that have no such library.
 *
 * Strings handed in are copied unless a comment says otherwise. Every function returning int returns 0
 * (UCI_OK) or a UCI_ERR_* code, which it also leaves in ctx->err; a null context yields UCI_ERR_INVAL. A
 * context and what was loaded into it must be used by one thread at a time; different contexts are
 * independent of each other.
 */
#ifndef UCI_H
#define UCI_H

#include <setjmp.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_CONF2DIR "/var/run/uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

enum uci_flags {
    UCI_FLAG_STRICT = 1,      /* the first parse error ends a load; on in a new context */
    UCI_FLAG_PERROR = 2,      /* print the parse errors that a non-strict load skips */
    UCI_FLAG_EXPORT_NAME = 4, /* export and commit write the generated names of anonymous sections */
    UCI_FLAG_SAVED_DELTA = 8  /* keep the delta lines read by a load in saved_delta; on in a new context */
};

enum uci_command {
    UCI_CMD_ADD = 0,
    UCI_CMD_REMOVE,
    UCI_CMD_CHANGE,
    UCI_CMD_RENAME,
    UCI_CMD_REORDER,
    UCI_CMD_LIST_ADD,
    UCI_CMD_LIST_DEL
};

/* A link of a circular list; the head is a link of its own. */
struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

/* What every node of the model starts with. The value of a list option is a bare element: its name is the
 * value. */
struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_context {
    struct uci_list root; /* the loaded packages */
    enum uci_flags flags;
    char *confdir;
    char *savedir;
    char *conf2dir;             /* null when overrides are off */
    struct uci_list delta_path; /* elements named after the delta directories, in the order of reading */
    int err;                    /* result of the latest call */
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta;        /* changes are kept in a delta file until they are committed */
    char *path;            /* of the file; null for an imported package */
    struct uci_list delta; /* changes not saved yet */
    struct uci_list
        saved_delta; /* changes found in the delta files by the load, whether or not they applied */
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous; /* the name was generated and is not written */
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list; /* of elements whose names are the values */
        char *string;
    } v;
};

/* One change; the element's name is the option, null when the change concerns the section itself. */
struct uci_delta {
    struct uci_element e;
    enum uci_command cmd;
    char *section;
    char *value; /* may be null */
};

/*
 * What a call is about: given by name, and resolved by a lookup. Nothing in it is owned: after uci_parse_ptr
 * the names point into the parsed string, after a lookup p, s, o and last point into the loaded package.
 */
struct uci_ptr {
    enum uci_type target;
    enum {
        UCI_LOOKUP_DONE = 1,     /* p, s and o are resolved; do not look up again */
        UCI_LOOKUP_COMPLETE = 2, /* everything named was found */
        UCI_LOOKUP_EXTENDED = 4  /* the section is a reference, @type[index] */
    } flags;

    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last; /* the deepest element found */

    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

/* ---- Contexts ---- */

/* A context with the default directories; null only when memory is short. To be freed with uci_free_context.
 */
extern struct uci_context *uci_alloc_context(void);

/* Frees a context and all that was loaded into it; unsaved changes are dropped. Null is ignored. */
extern void uci_free_context(struct uci_context *ctx);

/* Sets the directory of the configuration files for later loads. It need not exist. */
extern int uci_set_confdir(struct uci_context *ctx, const char *dir);

/*
 * Sets the directory that changes are saved to. It becomes the last directory of the delta path; the
 * directories that were in the path, the initial UCI_SAVEDIR included, stay in it.
 */
extern int uci_set_savedir(struct uci_context *ctx, const char *dir);

/* Adds a directory that changes are read from, before the save directory. UCI_ERR_DUPLICATE: it is in the
 * path. */
extern int uci_add_delta_path(struct uci_context *ctx, const char *dir);

/* Sets the directory whose files take precedence over those of the configuration directory; "" or null: none.
 */
extern int uci_set_conf2dir(struct uci_context *ctx, const char *dir);

/*
 * Stores a null-terminated array with the names of the files in the configuration directory, in byte order;
 * hidden files, directories, and names with a dot are left out. The caller releases the whole with one
 * free(). UCI_ERR_NOTFOUND: no directory, or nothing in it.
 */
extern int uci_list_configs(struct uci_context *ctx, char ***list);

/* Prints the latest error of ctx to stderr as "PREFIX: TEXT", or "TEXT" when prefix is null. */
extern void uci_perror(struct uci_context *ctx, const char *prefix);

/* Stores the text that uci_perror would print, without newline; the caller frees it. Null when memory is
 * short. */
extern void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *prefix);

/* ---- Packages ---- */

/*
 * Loads a configuration and applies the pending changes of every directory in the delta path. A name that
 * begins with
 * "/" or "./" is the path of a file, whose package has no delta. package may be null and is left alone on
 * failure. UCI_ERR_INVAL: bad name; UCI_ERR_NOTFOUND: no such regular file; UCI_ERR_IO: unreadable;
 * UCI_ERR_PARSE: see uci_get_errorstr; UCI_ERR_DUPLICATE: loaded already, and that package stays valid.
 */
extern int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);

/* Frees a package and all its elements; unsaved changes are dropped. */
extern int uci_unload(struct uci_context *ctx, struct uci_package *package);

/*
 * Parses a stream into packages without delta. With a name, that is the package; without, "package" lines in
 * the stream name them. single: `package` lines are ignored, and *package may be a loaded package, into which
 * the stream is merged as changes (after an error, those before the bad line stay). Otherwise *package must
 * be null. It becomes the last package of the stream; on failure it stays as it was and no new package is
 * kept.
 */
extern int uci_import(struct uci_context *ctx, FILE *stream, const char *name, struct uci_package **package,
                      bool single);

/* Writes a package, or all loaded ones when it is null; header: precede each by a `package` line. */
extern int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);

/*
 * Appends the unsaved changes to the package's delta file. A package without delta is committed instead.
 * Element pointers stay valid. UCI_ERR_IO: the changes stay recorded in memory and the delta file is as it
 * was.
 */
extern int uci_save(struct uci_context *ctx, struct uci_package *p);

/*
 * Writes all pending changes of the package, whoever saved them, to the configuration file: saves, reads the
 * file anew, applies the delta files, and puts the result in place by a rename. Afterwards *p is a new
 * package and every element of the old one is gone, even if nothing was pending. Nothing is written when no
 * delta line applies. overwrite is for imported packages, which are written to the configuration directory as
 * they are in memory; on a package with delta it leaves *p and its unsaved changes alone and commits what is
 * in the delta files. UCI_ERR_PARSE: the file does not parse any more; it is kept, the changes are in the
 * delta file, and *p is null. UCI_ERR_IO: the old file is whole and the changes are in the delta file (or, if
 * saving failed, in memory).
 */
extern int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);

/* ---- Lookup ---- */

/* Stores the first element of a list that has exactly this name; UCI_ERR_NOTFOUND: none, and *e is null. */
extern int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list,
                           const char *name);

/*
 * Splits "PACKAGE[.SECTION[.OPTION]][=VALUE]" in place into ptr, which then points into str. A section that
 * is not a valid name sets UCI_LOOKUP_EXTENDED. UCI_ERR_PARSE: malformed, and ptr is all zero.
 */
extern int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str);

/*
 * Resolves ptr, after uci_parse_ptr of str unless that is null, and loads the package if it is not loaded. 0:
 * resolved as far as found, and UCI_LOOKUP_COMPLETE says whether that is all. With str, a reference in place
 * of a section name needs extended, without, the flag UCI_LOOKUP_EXTENDED; ptr->section becomes the section's
 * name. UCI_ERR_INVAL: malformed or refused reference; otherwise the code of the failed load.
 */
extern int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

/* ---- Changes, in memory and recorded for uci_save. A ptr that was not looked up is looked up first. ---- */

/* Sets an option, creates a named section or changes its type; an empty value deletes. */
extern int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);

/* Appends to a list; a missing option becomes a list, a plain one the list's first value. */
extern int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);

/* Removes every equal value from a list; a missing or plain option is left alone. */
extern int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);

/* Deletes a section, an option, or with a value the list element at that index. UCI_ERR_MEM: not an index. */
extern int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);

/* Renames a section or option to the value, which is not checked for validity or for a clash. */
extern int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr);

/* Moves a section to an index among the others; one below 0 is the front, one too big the end. */
extern int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos);

/* Appends an anonymous section of a type, which is not checked. */
extern int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                           struct uci_section **res);

/*
 * Drops the pending changes of a package, section or option, by name, from the save directory and loads the
 * package anew: ptr->p is the new package, ptr->s and ptr->o are null.
 */
extern int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr);

/* Whether a text may be a value in a delta file: no byte below 32 but tab, newline and carriage return. */
extern bool uci_validate_text(const char *str);

/* ---- Walking the model ---- */

#ifndef container_of
#define container_of(pointer, structure, member)                                                             \
    ((structure *)((char *)(pointer)-offsetof(structure, member)))
#endif

#define list_to_element(link) container_of(link, struct uci_element, list)

#define uci_to_package(element) container_of(element, struct uci_package, e)
#define uci_to_section(element) container_of(element, struct uci_section, e)
#define uci_to_option(element) container_of(element, struct uci_option, e)
#define uci_to_delta(element) container_of(element, struct uci_delta, e)

#define uci_list_empty(head) ((head)->next == (head))

#define uci_foreach_element(head, element)                                                                   \
    for ((element) = list_to_element((head)->next); &(element)->list != (head);                              \
         (element) = list_to_element((element)->list.next))

/* The body may delete element. */
#define uci_foreach_element_safe(head, following, element)                                                   \
    for ((element) = list_to_element((head)->next), (following) = list_to_element((element)->list.next);     \
         &(element)->list != (head);                                                                         \
         (element) = (following), (following) = list_to_element((element)->list.next))

/* The loaded package of this name, or null. */
static inline struct uci_package *uci_lookup_package(struct uci_context *ctx, const char *name)
{
    struct uci_element *e;
    return uci_lookup_next(ctx, &e, &ctx->root, name) == UCI_OK ? uci_to_package(e) : NULL;
}

/* The section of exactly this name, or null; references are not understood. */
static inline struct uci_section *uci_lookup_section(struct uci_context *ctx, struct uci_package *p,
                                                     const char *name)
{
    struct uci_element *e;
    return uci_lookup_next(ctx, &e, &p->sections, name) == UCI_OK ? uci_to_section(e) : NULL;
}

/* The option of this name, or null. */
static inline struct uci_option *uci_lookup_option(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name)
{
    struct uci_element *e;
    return uci_lookup_next(ctx, &e, &s->options, name) == UCI_OK ? uci_to_option(e) : NULL;
}

/* The value of an option, or null if it is missing or a list. */
static inline const char *uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name)
{
    struct uci_option *o = uci_lookup_option(ctx, s, name);
    return o != NULL && o->type == UCI_TYPE_STRING ? o->v.string : NULL;
}

#ifdef __cplusplus
}
#endif

#endif
