#include "same_package.h"

#include <cstring>

namespace {

bool is_written(const uci_element *element)
{
    if (element->type != UCI_TYPE_OPTION)
        return true;
    const uci_option *const option = uci_to_option(element);
    return option->type == UCI_TYPE_STRING || !uci_list_empty(&option->v.list);
}

// Whether two lists have as many written elements, each the same as its counterpart.
template <typename comparison>
bool same_list(const uci_list *one, const uci_list *other, const comparison &same_element)
{
    const uci_list *at = one->next, *beside = other->next;
    for (;;) {
        while (at != one && !is_written(list_to_element(at)))
            at = at->next;
        while (beside != other && !is_written(list_to_element(beside)))
            beside = beside->next;
        if (at == one || beside == other)
            return at == one && beside == other;
        if (!same_element(list_to_element(at), list_to_element(beside)))
            return false;
        at = at->next;
        beside = beside->next;
    }
}

bool same_name(const uci_element *one, const uci_element *other)
{
    return strcmp(one->name, other->name) == 0;
}

bool same_option(const uci_element *one, const uci_element *other)
{
    const uci_option *const option = uci_to_option(one), *const counterpart = uci_to_option(other);
    if (!same_name(one, other) || option->type != counterpart->type)
        return false;
    if (option->type == UCI_TYPE_STRING)
        return strcmp(option->v.string, counterpart->v.string) == 0;
    return same_list(&option->v.list, &counterpart->v.list, same_name); // values are bare elements
}

bool same_section(const uci_element *one, const uci_element *other)
{
    const uci_section *const section = uci_to_section(one), *const counterpart = uci_to_section(other);
    if (section->anonymous != counterpart->anonymous || strcmp(section->type, counterpart->type) != 0 ||
        (!section->anonymous && !same_name(one, other)))
        return false;
    return same_list(&section->options, &counterpart->options, same_option);
}

} // namespace

bool same_package(const uci_package *one, const uci_package *other)
{
    return same_list(&one->sections, &other->sections, same_section);
}
