// Judges and makes changes, and records them.
#include "change.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "names.h"
#include "tuple.h"

namespace uci {
namespace {

package *package_of(const uci_section *s)
{
    return full(s->package);
}

int record(package *p, const change &what)
{
    if (!p->recording)
        return UCI_OK;
    return append_change(&p->delta, what) ? UCI_OK : UCI_ERR_MEM;
}

int record(const uci_section *s, uci_command command, const char *option, const char *value)
{
    return record(package_of(s), {command, s->e.name, option, value});
}

bool names_option(const uci_ptr *ptr)
{
    return ptr->option || ptr->o;
}

const char *option_name(const uci_ptr *ptr)
{
    return ptr->o ? ptr->o->e.name : ptr->option;
}

bool is_missing_or_plain(const uci_option *o)
{
    return !o || o->type == UCI_TYPE_STRING;
}

// Names in a ptr may be those of the elements it points to; once these are freed the ptr names nothing.
constexpr char no_name[] = "";

int delete_option(uci_ptr *ptr)
{
    const int code = record(ptr->s, UCI_CMD_REMOVE, ptr->o->e.name, nullptr);
    if (code != UCI_OK)
        return code;
    if (ptr->option == ptr->o->e.name)
        ptr->option = no_name;
    remove_option(ptr->o);
    ptr->o = nullptr;
    ptr->last = &ptr->s->e;
    return UCI_OK;
}

int delete_section(uci_ptr *ptr)
{
    const int code = record(ptr->s, UCI_CMD_REMOVE, nullptr, nullptr);
    if (code != UCI_OK)
        return code;
    if (ptr->section == ptr->s->e.name)
        ptr->section = no_name;
    remove_section(ptr->s);
    ptr->s = nullptr;
    ptr->last = &ptr->p->e;
    return UCI_OK;
}

// Removes the element at the index that the value gives; there being none there is a success.
int delete_list_element(uci_ptr *ptr)
{
    long index;
    if (!parse_index(ptr->value, &index))
        return UCI_ERR_MEM; // Deliberate: no better fitting, but callers know this code for it.
    uci_element *item;
    uci_foreach_element(&ptr->o->v.list, item)
    {
        if (index-- != 0)
            continue;
        const int code = record(ptr->s, UCI_CMD_REMOVE, ptr->o->e.name, ptr->value);
        if (code == UCI_OK)
            remove_value(item);
        return code;
    }
    return UCI_OK;
}

int set_option_value(uci_ptr *ptr)
{
    if (!ptr->s)
        return UCI_ERR_INVAL;
    if (!*ptr->value)
        return was_found(ptr) ? delete_option(ptr) : UCI_OK;
    const char *const name = option_name(ptr);
    const int code = set_option(ptr->s, name, ptr->value);
    if (code != UCI_OK)
        return code;
    ptr->o = find_option(ptr->s, name);
    ptr->last = &ptr->o->e;
    return UCI_OK;
}

int set_type(uci_ptr *ptr)
{
    if (!*ptr->value)
        return was_found(ptr) ? delete_section(ptr) : UCI_OK;
    if (!valid_type(ptr->value))
        return UCI_ERR_INVAL;
    if (ptr->s)
        return change_type(ptr->s, ptr->value);
    const int code = create_section(full(ptr->p), ptr->value, ptr->section, naming::named, &ptr->s);
    if (code == UCI_OK)
        ptr->last = &ptr->s->e;
    return code;
}

} // namespace

bool parse_index(const char *text, long *index)
{
    char *end;
    errno = 0;
    *index = strtol(text, &end, 10);
    return end != text && *end == '\0';
}

int set_option(uci_section *s, const char *name, const char *value)
{
    uci_option *const o = find_option(s, name);
    if (o && o->type == UCI_TYPE_STRING && strcmp(o->v.string, value) == 0)
        return UCI_OK;
    if (!set_string(s, o, name, value))
        return UCI_ERR_MEM;
    return record(s, UCI_CMD_CHANGE, name, value);
}

int add_to_list(uci_section *s, const char *name, const char *value)
{
    if (!append_value(s, name, value))
        return UCI_ERR_MEM;
    return record(s, UCI_CMD_LIST_ADD, name, value);
}

int change_type(uci_section *s, const char *type)
{
    if (strcmp(s->type, type) == 0)
        return UCI_OK;
    if (!set_section_type(s, type))
        return UCI_ERR_MEM;
    return record(s, UCI_CMD_CHANGE, nullptr, type);
}

int create_section(package *p, const char *type, const char *name, naming kind, uci_section **created)
{
    uci_section *const s = append_section(p, type, name, kind);
    if (!s)
        return UCI_ERR_MEM;
    *created = s;
    return record(s, kind == naming::named ? UCI_CMD_CHANGE : UCI_CMD_ADD, nullptr, type);
}

int apply_set(uci_ptr *ptr)
{
    if (!ptr->value || (!ptr->s && !ptr->section))
        return UCI_ERR_INVAL;
    return names_option(ptr) ? set_option_value(ptr) : set_type(ptr);
}

int apply_add_list(uci_ptr *ptr)
{
    if (!ptr->s || !ptr->value || !names_option(ptr))
        return UCI_ERR_INVAL;
    const char *const name = option_name(ptr);
    const int code = add_to_list(ptr->s, name, ptr->value);
    if (code != UCI_OK)
        return code;
    ptr->o = find_option(ptr->s, name);
    ptr->last = &ptr->o->e;
    return UCI_OK;
}

int apply_del_list(uci_ptr *ptr)
{
    if (!ptr->s || !ptr->value)
        return UCI_ERR_INVAL;
    if (is_missing_or_plain(ptr->o))
        return UCI_OK;
    const int code = record(ptr->s, UCI_CMD_LIST_DEL, ptr->o->e.name, ptr->value);
    if (code == UCI_OK)
        remove_equal_values(ptr->o, ptr->value);
    return code;
}

int apply_delete(uci_ptr *ptr)
{
    if (!was_found(ptr))
        return UCI_ERR_NOTFOUND;
    if (!ptr->s)
        return UCI_ERR_INVAL;
    if (!ptr->o)
        return delete_section(ptr);
    if (ptr->o->type == UCI_TYPE_LIST && ptr->value && *ptr->value)
        return delete_list_element(ptr);
    return delete_option(ptr);
}

int apply_rename(uci_ptr *ptr)
{
    if (!was_found(ptr))
        return UCI_ERR_NOTFOUND;
    if (!ptr->s || !ptr->value)
        return UCI_ERR_INVAL;
    const int code = record(ptr->s, UCI_CMD_RENAME, ptr->o ? ptr->o->e.name : nullptr, ptr->value);
    if (code != UCI_OK)
        return code;
    if (ptr->o)
        return rename_option(ptr->o, ptr->value) ? UCI_OK : UCI_ERR_MEM;
    const bool borrowed_name = ptr->section == ptr->s->e.name;
    if (!rename_section(ptr->s, ptr->value))
        return UCI_ERR_MEM;
    if (borrowed_name)
        ptr->section = ptr->s->e.name;
    return UCI_OK;
}

int apply_reorder(uci_section *s, int position)
{
    if (!move_section(s, position))
        return UCI_OK;
    char number[sizeof("-2147483648")];
    snprintf(number, sizeof(number), "%d", position);
    return record(s, UCI_CMD_REORDER, nullptr, number);
}

} // namespace uci
