/* Declarations that every release of the device's configuration library has, and no more. */
#ifndef DEVICE_UCI_H
#define DEVICE_UCI_H

#ifdef __cplusplus
extern "C" {
#endif

#include <setjmp.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"

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
    UCI_FLAG_STRICT = 1,
    UCI_FLAG_PERROR = 2,
    UCI_FLAG_EXPORT_NAME = 4,
    UCI_FLAG_SAVED_DELTA = 8
};

struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_context {
    struct uci_list root;
    enum uci_flags flags;
    char *confdir;
    char *savedir;
    struct uci_list delta_path;
    int err;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta;
    char *path;
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list;
        char *string;
    } v;
};

struct uci_ptr {
    enum uci_type target;
    enum { UCI_LOOKUP_DONE = 1, UCI_LOOKUP_COMPLETE = 2, UCI_LOOKUP_EXTENDED = 4 } flags;
    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last;
    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

#ifndef container_of
#define container_of(pointer, type, member)                                                                  \
    ({                                                                                                       \
        const __typeof__(((type *)NULL)->member) *inner = (pointer);                                         \
        (type *)((char *)inner - offsetof(type, member));                                                    \
    })
#endif
#define list_to_element(pointer) container_of(pointer, struct uci_element, list)
#define uci_list_empty(head) ((head)->next == (head))
#define uci_to_section(pointer) container_of(pointer, struct uci_section, e)
#define uci_to_option(pointer) container_of(pointer, struct uci_option, e)
#define uci_foreach_element(head, element)                                                                   \
    for (element = list_to_element((head)->next); &(element)->list != (head);                                \
         element = list_to_element((element)->list.next))

struct uci_context *uci_alloc_context(void);
void uci_free_context(struct uci_context *ctx);
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_unload(struct uci_context *ctx, struct uci_package *p);
int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name);
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);
int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                    struct uci_section **res);
int uci_save(struct uci_context *ctx, struct uci_package *p);
int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);
int uci_import(struct uci_context *ctx, FILE *stream, const char *name, struct uci_package **package,
               bool single);
int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);

#ifdef __cplusplus
}
#endif

#endif
