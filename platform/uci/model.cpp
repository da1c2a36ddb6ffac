// Builds, changes and frees the configuration in memory, and keeps the index of names in step with it.
#include "model.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "memory.h"

namespace uci {
namespace {

size_t size_of(const char *text)
{
    return text ? strlen(text) + 1 : 0;
}

// Zeroed memory for one node with its lists' links in order, and behind it a copy of its name and of
// `second`, both of which may be null; null without memory. So a configuration takes one piece of memory for
// each of its lines.
template <typename Node, typename Allocate>
Node *new_node(Allocate allocate, uci_type type, const char *name, const char *second = nullptr,
               char **second_out = nullptr)
{
    static_assert(alignof(Node) <= arena::alignment);
    const size_t name_size = size_of(name), second_size = size_of(second);
    auto *const node = static_cast<Node *>(allocate(sizeof(Node) + name_size + second_size));
    if (!node)
        return nullptr;
    memset(static_cast<void *>(node), 0, sizeof(*node));
    uci_element &e = node->e;
    list_init(&e.list);
    e.type = type;
    char *const texts = reinterpret_cast<char *>(node + 1);
    if (name)
        e.name = static_cast<char *>(memcpy(texts, name, name_size));
    if (second)
        *second_out = static_cast<char *>(memcpy(texts + name_size, second, second_size));
    return node;
}

auto memory_of(package *p)
{
    return [p](size_t size) { return p->memory.take(size); };
}

struct bare_node {
    uci_element e;
};

package *package_of(const uci_section *s)
{
    return full(s->package);
}

void stop_indexing(package *p)
{
    p->unindexed = true;
    p->index.clear();
}

// Names an element of a list to the index. A second element of one name ends the indexing of the package:
// which one comes first would have to be tracked through moves and renames, and it does not occur in
// practice.
void index_element(package *p, const uci_list *list, uci_element *element)
{
    if (!p->unindexed && p->index.insert(list, element) != element_index::outcome::added)
        stop_indexing(p);
}

void unindex_element(package *p, const uci_list *list, const uci_element *element)
{
    if (!p->unindexed)
        p->index.erase(list, element);
}

uci_element *find_child(const package *p, const uci_list *list, const char *name)
{
    return p->unindexed ? find_element(list, name) : p->index.find(list, name);
}

// Most sections have few options, and looking at them one after the other takes no longer than the index
// would, which for all of a package's options is larger than they are. So the index has only those behind the
// first ones of a section; none of them ever moves backwards in its list.
constexpr int first_options = 32;

bool is_named(const uci_element *e, const char *name)
{
    return e->name[0] == name[0] && strcmp(e->name, name) == 0; // most differ in their first byte
}

bool is_behind_first(const uci_list *options, const uci_option *option)
{
    const uci_list *at = options->next;
    for (int i = 0; i < first_options; i++, at = at->next)
        if (at == &option->e.list)
            return false;
    return true;
}

uci_element *find_among_options(const package *p, const uci_list *options, const char *name)
{
    const uci_list *at = options->next;
    for (int i = 0; i < first_options; i++, at = at->next) {
        if (at == options)
            return nullptr;
        uci_element *const e = list_to_element(at);
        if (is_named(e, name))
            return e;
    }
    return find_child(p, options, name);
}

// The bit that stands for a name among those of a section, by its first two bytes.
uint64_t bit_of(const char *name)
{
    const uint32_t first = static_cast<unsigned char>(name[0]);
    const uint32_t second = static_cast<unsigned char>(first != 0 ? name[1] : '\0');
    return uint64_t{1} << ((first << 8 | second) * 0x9e3779b9u >> 26);
}

// Low 16 bits of a hash of the type, the second half of a generated name.
unsigned type_hash(const char *type)
{
    uint32_t hash = 5381;
    for (; *type; type++)
        hash = hash * 33 + static_cast<unsigned char>(*type);
    return hash & 0xffff;
}

bool rename_element(package *p, const uci_list *list, uci_element *element, const char *name)
{
    char *const copy = p->memory.copy(name);
    if (!copy)
        return false;
    unindex_element(p, list, element);
    element->name = copy;
    return true;
}

// A new option of the section; without a value (null) it is an empty list.
uci_option *append_option(uci_section *s, const char *name, const char *value)
{
    package *const p = package_of(s);
    char *own_value = nullptr;
    auto *const o = new_node<uci_option>(memory_of(p), UCI_TYPE_OPTION, name, value, &own_value);
    if (!o)
        return nullptr;
    o->section = s;
    if (value) {
        o->type = UCI_TYPE_STRING;
        o->v.string = own_value;
    } else {
        o->type = UCI_TYPE_LIST;
        list_init(&o->v.list);
    }
    list_append(&s->options, &o->e.list);
    full(s)->names |= bit_of(name);
    if (full(s)->created++ >= first_options)
        index_element(p, &s->options, &o->e);
    return o;
}

uci_element *append_item(package *p, uci_list *values, const char *value)
{
    auto *const item = new_node<bare_node>(memory_of(p), UCI_TYPE_ITEM, value);
    if (!item)
        return nullptr;
    list_append(values, &item->e.list);
    return &item->e;
}

bool make_list(uci_option *o)
{
    if (o->type == UCI_TYPE_LIST)
        return true;
    uci_list values;
    list_init(&values);
    uci_element *const first = append_item(package_of(o->section), &values, o->v.string);
    if (!first)
        return false;
    list_remove(&first->list);
    o->type = UCI_TYPE_LIST;
    list_init(&o->v.list);
    list_append(&o->v.list, &first->list);
    return true;
}

} // namespace

void list_init(uci_list *head)
{
    head->next = head->prev = head;
}

void list_append(uci_list *head, uci_list *link)
{
    link->prev = head->prev;
    link->next = head;
    head->prev->next = link;
    head->prev = link;
}

void list_remove(uci_list *link)
{
    link->prev->next = link->next;
    link->next->prev = link->prev;
    list_init(link);
}

uci_element *append_element(uci_list *head, uci_type type, const char *name)
{
    auto *const node = new_node<bare_node>(malloc, type, name);
    if (!node)
        return nullptr;
    list_append(head, &node->e.list);
    return &node->e;
}

void free_elements(uci_list *head)
{
    while (!uci_list_empty(head)) {
        uci_element *const e = list_to_element(head->next);
        list_remove(&e->list);
        free(e); // a bare node's first member
    }
}

uci_element *find_element(const uci_list *head, const char *name)
{
    for (uci_list *link = head->next; link != head; link = link->next) {
        uci_element *const e = list_to_element(link);
        if (is_named(e, name))
            return e;
    }
    return nullptr;
}

package *new_package(context *ctx, const char *name)
{
    auto *const p = new_node<package>(malloc, UCI_TYPE_PACKAGE, name);
    if (!p)
        return nullptr;
    p->ctx = ctx;
    list_init(&p->sections);
    list_init(&p->delta);
    list_init(&p->saved_delta);
    return p;
}

void free_package(package *p)
{
    list_remove(&p->e.list);
    p->index.clear();
    p->memory.clear();
    free_changes(&p->delta);
    free_changes(&p->saved_delta);
    free(p->path);
    free(p);
}

uci_section *find_section(package *p, const char *name)
{
    uci_element *const e = find_child(p, &p->sections, name);
    return e ? uci_to_section(e) : nullptr;
}

uci_option *find_option(uci_section *s, const char *name)
{
    if ((full(s)->names & bit_of(name)) == 0)
        return nullptr;
    uci_element *const e = find_among_options(package_of(s), &s->options, name);
    return e ? uci_to_option(e) : nullptr;
}

uci_section *append_section(package *p, const char *type, const char *name, naming kind)
{
    char generated[sizeof("cfg") + 16 + 4]; // 16: the greatest count in hexadecimal; 4: the type's hash
    if (!name) {
        snprintf(generated, sizeof(generated), "cfg%02zx%04x", p->created + 1, type_hash(type));
        name = generated;
    }
    char *own_type = nullptr;
    auto *const s = new_node<section>(memory_of(p), UCI_TYPE_SECTION, name, type, &own_type);
    if (!s)
        return nullptr;
    s->package = p;
    s->anonymous = kind == naming::anonymous;
    s->type = own_type;
    list_init(&s->options);
    p->created++;
    list_append(&p->sections, &s->e.list);
    index_element(p, &p->sections, &s->e);
    return s;
}

void remove_section(uci_section *s)
{
    while (!uci_list_empty(&s->options))
        remove_option(uci_to_option(list_to_element(s->options.next)));
    unindex_element(package_of(s), &s->package->sections, &s->e);
    list_remove(&s->e.list);
}

bool move_section(uci_section *s, long position)
{
    uci_list *const head = &s->package->sections;
    uci_list *const old_next = s->e.list.next;
    list_remove(&s->e.list);
    uci_list *next = head->next;
    for (; position > 0 && next != head; position--)
        next = next->next;
    list_append(next, &s->e.list); // "at the end" of the circle that begins at next is right before next
    return next != old_next;
}

bool set_section_type(uci_section *s, const char *type)
{
    char *const copy = package_of(s)->memory.copy(type);
    if (!copy)
        return false;
    s->type = copy;
    return true;
}

bool rename_section(uci_section *s, const char *name)
{
    package *const p = package_of(s);
    if (!rename_element(p, &p->sections, &s->e, name))
        return false;
    index_element(p, &p->sections, &s->e);
    s->anonymous = false;
    return true;
}

bool set_string(uci_section *s, uci_option *existing, const char *name, const char *value)
{
    if (!existing)
        return append_option(s, name, value) != nullptr;
    char *const copy = package_of(s)->memory.copy(value);
    if (!copy)
        return false;
    existing->type = UCI_TYPE_STRING;
    existing->v.string = copy;
    return true;
}

bool append_value(uci_section *s, const char *name, const char *value)
{
    uci_option *const existing = find_option(s, name);
    uci_option *const o = existing ? existing : append_option(s, name, nullptr);
    if (!o || !make_list(o))
        return false;
    if (append_item(package_of(s), &o->v.list, value))
        return true;
    if (!existing)
        remove_option(o);
    return false;
}

bool rename_option(uci_option *o, const char *name)
{
    package *const p = package_of(o->section);
    uci_list *const options = &o->section->options;
    if (!rename_element(p, options, &o->e, name))
        return false;
    full(o->section)->names |= bit_of(name);
    if (is_behind_first(options, o))
        index_element(p, options, &o->e);
    return true;
}

void remove_option(uci_option *o)
{
    unindex_element(package_of(o->section), &o->section->options, &o->e);
    list_remove(&o->e.list);
}

void remove_equal_values(uci_option *o, const char *value)
{
    uci_element *item, *following;
    uci_foreach_element_safe(&o->v.list, following, item)
    {
        if (strcmp(item->name, value) == 0)
            remove_value(item);
    }
}

void remove_value(uci_element *item)
{
    list_remove(&item->list);
}

bool append_change(uci_list *head, const change &what)
{
    text section = copy_text(what.section);
    text value = what.value ? copy_text(what.value) : nullptr;
    if (!section || (what.value && !value))
        return false;
    auto *const delta = new_node<uci_delta>(malloc, UCI_TYPE_DELTA, what.option);
    if (!delta)
        return false;
    delta->cmd = what.command;
    delta->section = section.release();
    delta->value = value.release();
    list_append(head, &delta->e.list);
    return true;
}

void free_changes(uci_list *head)
{
    while (!uci_list_empty(head)) {
        uci_delta *const delta = uci_to_delta(list_to_element(head->next));
        list_remove(&delta->e.list);
        free(delta->section);
        free(delta->value);
        free(delta);
    }
}

} // namespace uci
