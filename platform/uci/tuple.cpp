// Parses tuples and finds what they name, references to the n-th section of a type included.
#include "tuple.h"

#include <cstdlib>
#include <cstring>

#include "names.h"

namespace uci {
namespace {

using ptr_flags = decltype(uci_ptr::flags);

void set_flag(uci_ptr *ptr, ptr_flags flag)
{
    ptr->flags = static_cast<ptr_flags>(ptr->flags | flag);
}

void clear_flag(uci_ptr *ptr, ptr_flags flag)
{
    ptr->flags = static_cast<ptr_flags>(ptr->flags & ~flag);
}

// Cuts a string at the first occurrence of a byte; returns what is behind it, or null.
char *cut_at(char *text, char separator)
{
    char *const found = strchr(text, separator);
    if (!found)
        return nullptr;
    *found = '\0';
    return found + 1;
}

struct reference {
    const char *type; // null: any
    size_t type_length;
    long index;
};

// Reads "@TYPE[INDEX]" or "@[INDEX]".
bool parse_reference(const char *text, reference *out)
{
    if (*text != '@')
        return false;
    const char *const type = text + 1;
    const char *const open = strchr(type, '[');
    if (!open)
        return false;
    char *end;
    const long index = strtol(open + 1, &end, 10);
    if (strcmp(end, "]") != 0)
        return false;
    *out = {open == type ? nullptr : type, static_cast<size_t>(open - type), index};
    return true;
}

bool has_type(const uci_section *s, const reference &what)
{
    return !what.type || (strncmp(s->type, what.type, what.type_length) == 0 && !s->type[what.type_length]);
}

uci_section *find_referenced(const uci_package *p, const reference &what)
{
    const bool backwards = what.index < 0;
    unsigned long skip =
        backwards ? -static_cast<unsigned long>(what.index) - 1 : static_cast<unsigned long>(what.index);
    const uci_list *link = &p->sections;
    for (;;) {
        link = backwards ? link->prev : link->next;
        if (link == &p->sections)
            return nullptr;
        uci_section *const s = uci_to_section(list_to_element(link));
        if (has_type(s, what) && skip-- == 0)
            return s;
    }
}

int resolve_section(uci_ptr *ptr)
{
    if (!(ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED)) {
        ptr->s = find_section(full(ptr->p), ptr->section);
        return UCI_OK;
    }
    reference what;
    if (!parse_reference(ptr->section, &what)) {
        *ptr = {};
        return UCI_ERR_INVAL;
    }
    ptr->s = find_referenced(ptr->p, what);
    if (ptr->s)
        ptr->section = ptr->s->e.name;
    return UCI_OK;
}

// Whether everything that ptr names is there.
bool is_complete(const uci_ptr *ptr)
{
    return (ptr->s || !ptr->section) && (ptr->o || !ptr->option);
}

} // namespace

int parse_tuple(uci_ptr *ptr, char *tuple)
{
    *ptr = {};
    if (!tuple)
        return UCI_ERR_INVAL;
    char *const value = cut_at(tuple, '=');
    char *const section = cut_at(tuple, '.');
    char *const option = section ? cut_at(section, '.') : nullptr;
    if (!valid_package(tuple) || (option && !valid_name(option)) || (value && !uci_validate_text(value)))
        return UCI_ERR_PARSE;
    ptr->package = tuple;
    ptr->section = section;
    ptr->option = option;
    ptr->value = value;
    ptr->target = option ? UCI_TYPE_OPTION : section ? UCI_TYPE_SECTION : UCI_TYPE_PACKAGE;
    if (section && !valid_name(section))
        set_flag(ptr, uci_ptr::UCI_LOOKUP_EXTENDED);
    return UCI_OK;
}

bool was_found(const uci_ptr *ptr)
{
    return (ptr->flags & uci_ptr::UCI_LOOKUP_COMPLETE) && is_complete(ptr);
}

int resolve_in_package(uci_ptr *ptr)
{
    ptr->last = &ptr->p->e;
    if (!ptr->s && ptr->section) {
        const int code = resolve_section(ptr);
        if (code != UCI_OK)
            return code;
    }
    if (ptr->s) {
        ptr->last = &ptr->s->e;
        if (ptr->option)
            ptr->o = find_option(ptr->s, ptr->option);
    }
    if (ptr->o)
        ptr->last = &ptr->o->e;
    set_flag(ptr, uci_ptr::UCI_LOOKUP_DONE);
    if (is_complete(ptr))
        set_flag(ptr, uci_ptr::UCI_LOOKUP_COMPLETE);
    else
        clear_flag(ptr, uci_ptr::UCI_LOOKUP_COMPLETE);
    return UCI_OK;
}

} // namespace uci
