#include "platform/uci/c_caller.h"

#include <string.h>

size_t count_values_in_c(struct uci_context *ctx, struct uci_package *p, const char *section,
                         const char *option)
{
    struct uci_section *const s = uci_lookup_section(ctx, p, section);
    struct uci_option *const o = s ? uci_lookup_option(ctx, s, option) : NULL;
    struct uci_element *e;
    size_t count = 0;

    if (uci_lookup_package(ctx, p->e.name) != p || !o)
        return 0;
    if (o->type == UCI_TYPE_STRING)
        return uci_lookup_option_string(ctx, s, option) == o->v.string;
    uci_foreach_element(&o->v.list, e) count++;
    return count;
}

bool is_found_in_c(struct uci_context *ctx, const char *package, const char *reference)
{
    struct uci_ptr ptr;

    memset(&ptr, 0, sizeof(ptr));
    ptr.package = package;
    ptr.section = reference;
    ptr.flags |= UCI_LOOKUP_EXTENDED;
    return uci_lookup_ptr(ctx, &ptr, NULL, false) == UCI_OK && (ptr.flags & UCI_LOOKUP_COMPLETE) != 0;
}

size_t delete_sections_in_c(struct uci_context *ctx, struct uci_package *p, const char *type)
{
    struct uci_element *e, *following;
    size_t count = 0;

    uci_foreach_element_safe(&p->sections, following, e)
    {
        struct uci_section *const s = uci_to_section(e);
        struct uci_ptr ptr;

        if (strcmp(s->type, type) != 0)
            continue;
        memset(&ptr, 0, sizeof(ptr));
        ptr.p = p;
        ptr.s = s;
        count += uci_delete(ctx, &ptr) == UCI_OK;
    }
    return count;
}
