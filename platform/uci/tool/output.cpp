// Prints values, sections and changes to standard output.
#include "output.h"

#include <cstring>
#include <unordered_map>

#include "export.h"

namespace uci_tool {
namespace {

void print_element(const char *value)
{
    if (strpbrk(value, " \t\r\n"))
        uci::write_quoted(stdout, value);
    else
        fputs(value, stdout);
}

void print_quoted(const char *value)
{
    uci::write_quoted(stdout, value);
}

void print_list(const session &tool, const uci_option *o, void (*print_item)(const char *))
{
    const char *separator = "";
    uci_element *item;
    uci_foreach_element(&o->v.list, item)
    {
        fputs(separator, stdout);
        print_item(item->name);
        separator = tool.delimiter.c_str();
    }
}

void print_named_option(const session &tool, const uci_option *o, const char *section_name)
{
    printf("%s.%s.%s=", o->section->package->e.name, section_name, o->e.name);
    if (o->type == UCI_TYPE_LIST)
        print_list(tool, o, print_quoted);
    else
        print_quoted(o->v.string);
    putchar('\n');
}

void print_named_section(const session &tool, const uci_section *s, const char *name)
{
    printf("%s.%s=%s\n", s->package->e.name, name, s->type);
    uci_element *e;
    uci_foreach_element(&s->options, e) print_named_option(tool, uci_to_option(e), name);
}

const char *sign_of(uci_command command)
{
    switch (command) {
    case UCI_CMD_LIST_ADD:
        return "+";
    case UCI_CMD_LIST_DEL:
        return "-";
    default:
        return "";
    }
}

void print_change(const uci_package *p, const uci_delta *delta)
{
    const bool removal = delta->cmd == UCI_CMD_REMOVE;
    printf("%s%s.%s", removal ? "-" : "", p->e.name, delta->section);
    if (delta->e.name)
        printf(".%s", delta->e.name);
    if (!removal) {
        printf("%s=", sign_of(delta->cmd));
        print_quoted(delta->value);
    }
    putchar('\n');
}

} // namespace

void print_value(const session &tool, const uci_option *o)
{
    if (o->type == UCI_TYPE_LIST)
        print_list(tool, o, print_element);
    else
        fputs(o->v.string, stdout);
    putchar('\n');
}

void print_package(const session &tool, const uci_package *p)
{
    std::unordered_map<std::string, unsigned> seen; // sections so far, by type
    uci_element *e;
    uci_foreach_element(&p->sections, e)
    {
        const uci_section *const s = uci_to_section(e);
        const unsigned index = seen[s->type]++;
        if (s->anonymous && !tool.generated_names) {
            const std::string reference = "@" + std::string(s->type) + "[" + std::to_string(index) + "]";
            print_named_section(tool, s, reference.c_str());
        } else {
            print_section(tool, s);
        }
    }
}

void print_section(const session &tool, const uci_section *s)
{
    print_named_section(tool, s, s->e.name);
}

void print_option(const session &tool, const uci_option *o)
{
    print_named_option(tool, o, o->section->e.name);
}

void print_changes(const uci_package *p)
{
    uci_element *e;
    uci_foreach_element(&p->saved_delta, e) print_change(p, uci_to_delta(e));
}

} // namespace uci_tool
