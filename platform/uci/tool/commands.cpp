// Looks up what a command names, acts on it, and saves what was changed.
#include "commands.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "batch.h"
#include "output.h"

namespace uci_tool {
namespace {

struct request {
    session &tool;
    std::span<char *> arguments; // behind the command

    uci_context *ctx() const { return tool.ctx.get(); }
    char *argument() const { return arguments.empty() ? nullptr : arguments[0]; }
};

// Resolves a tuple; false: an error, which has been reported.
bool look_up(const session &tool, char *tuple, uci_ptr *ptr)
{
    if (uci_lookup_ptr(tool.ctx.get(), ptr, tuple, true) == UCI_OK)
        return true;
    report(tool);
    return false;
}

bool is_complete(const uci_ptr &ptr)
{
    return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
}

// ---- commands on one element ----

int get(const request &rq)
{
    uci_ptr ptr;
    if (!look_up(rq.tool, rq.argument(), &ptr))
        return exit_failed;
    if (ptr.value)
        return exit_failed;
    if (!is_complete(ptr))
        return report(rq.tool, UCI_ERR_NOTFOUND);
    if (ptr.o)
        print_value(rq.tool, ptr.o);
    else if (ptr.s)
        puts(ptr.s->type);
    return exit_done;
}

using element_action = int (*)(uci_context *, uci_ptr *);

int apply(const request &rq, uci_ptr &ptr, element_action action)
{
    if (action(rq.ctx(), &ptr) != UCI_OK || uci_save(rq.ctx(), ptr.p) != UCI_OK)
        return report(rq.tool);
    return exit_done;
}

template <element_action action> int change(const request &rq)
{
    uci_ptr ptr;
    return look_up(rq.tool, rq.argument(), &ptr) ? apply(rq, ptr, action) : exit_failed;
}

bool starts_with_number(const char *text)
{
    char *end;
    (void)strtol(text, &end, 10);
    return end != text;
}

// A value is the index of a list's element. One that is no number names nothing that could be deleted, least
// of all what it stands behind.
int remove(const request &rq)
{
    uci_ptr ptr;
    if (!look_up(rq.tool, rq.argument(), &ptr))
        return exit_failed;
    if (ptr.value && *ptr.value && !starts_with_number(ptr.value))
        return exit_failed;
    return apply(rq, ptr, uci_delete);
}

// The position is the number that the value begins with, 0 if it begins with none.
int reorder_to_value(uci_context *ctx, uci_ptr *ptr)
{
    if (!ptr->s || !is_complete(*ptr) || !ptr->value)
        return ctx->err = UCI_ERR_NOTFOUND;
    if (ptr->o)
        return ctx->err = UCI_ERR_INVAL;
    const long position = strtol(ptr->value, nullptr, 10);
    return uci_reorder_section(ctx, ptr->s, static_cast<int>(std::clamp<long>(position, INT_MIN, INT_MAX)));
}

// Exits with the library's code: scripts tell a missing package by it.
int add(const request &rq)
{
    uci_package *p;
    uci_section *s;
    int code = uci_load(rq.ctx(), rq.arguments[0], &p);
    if (code == UCI_OK)
        code = uci_add_section(rq.ctx(), p, rq.arguments[1], &s);
    if (code == UCI_OK)
        code = uci_save(rq.ctx(), p);
    if (code == UCI_OK)
        puts(s->e.name);
    else
        report(rq.tool);
    return code;
}

int revert(const request &rq)
{
    uci_ptr ptr;
    if (!look_up(rq.tool, rq.argument(), &ptr))
        return exit_failed;
    return uci_revert(rq.ctx(), &ptr) == UCI_OK ? exit_done : report(rq.tool);
}

// ---- commands on packages ----

int show(session &tool, uci_ptr *ptr)
{
    if (!is_complete(*ptr))
        return report(tool, UCI_ERR_NOTFOUND);
    if (ptr->o)
        print_option(tool, ptr->o);
    else if (ptr->s)
        print_section(tool, ptr->s);
    else
        print_package(tool, ptr->p);
    return exit_done;
}

int export_package(session &tool, uci_ptr *ptr)
{
    return uci_export(tool.ctx.get(), stdout, ptr->p, true) == UCI_OK ? exit_done : report(tool);
}

int changes(session &, uci_ptr *ptr)
{
    print_changes(ptr->p);
    return exit_done;
}

int commit(session &tool, uci_ptr *ptr)
{
    if (tool.never_commit)
        return exit_done;
    return uci_commit(tool.ctx.get(), &ptr->p, false) == UCI_OK ? exit_done : report(tool);
}

void unload_all(uci_context *ctx)
{
    while (!uci_list_empty(&ctx->root))
        uci_unload(ctx, uci_to_package(list_to_element(ctx->root.next)));
}

using package_action = int (*)(session &, uci_ptr *);

int on_tuple(session &tool, char *tuple, package_action action)
{
    uci_ptr ptr;
    return look_up(tool, tuple, &ptr) ? action(tool, &ptr) : exit_failed;
}

// One tuple, or every configuration there is. Among these one that fails is reported and does not count.
template <package_action action> int on_packages(const request &rq)
{
    if (rq.argument())
        return on_tuple(rq.tool, rq.argument(), action);
    char **names;
    if (uci_list_configs(rq.ctx(), &names) != UCI_OK)
        return report(rq.tool);
    for (char **name = names; *name; name++) {
        on_tuple(rq.tool, *name, action);
        unload_all(rq.ctx());
    }
    free(names);
    return exit_done;
}

// Every package of the stream is parsed before the first one is written.
int replace_packages(const request &rq)
{
    uci_context *const ctx = rq.ctx();
    uci_package *latest = nullptr;
    if (uci_import(ctx, rq.tool.input(), rq.argument(), &latest, rq.argument() != nullptr) != UCI_OK)
        return report(rq.tool);
    uci_element *e;
    uci_foreach_element(&ctx->root, e)
    {
        uci_package *p = uci_to_package(e);
        if (uci_commit(ctx, &p, true) != UCI_OK)
            return report(rq.tool);
    }
    return exit_done;
}

int merge_into(const request &rq, uci_package *p)
{
    uci_context *const ctx = rq.ctx();
    if (uci_import(ctx, rq.tool.input(), rq.argument(), &p, true) != UCI_OK || uci_save(ctx, p) != UCI_OK)
        return report(rq.tool);
    return exit_done;
}

// A configuration that cannot be loaded holds nothing to merge into: the imported one takes its place.
int import(const request &rq)
{
    if (!rq.tool.merge)
        return replace_packages(rq);
    if (!rq.argument())
        return exit_misused;
    uci_package *present = nullptr;
    const bool loaded = uci_load(rq.ctx(), rq.argument(), &present) == UCI_OK;
    return loaded ? merge_into(rq, present) : replace_packages(rq);
}

int batch(const request &rq)
{
    return run_batch(rq.tool, run_command);
}

struct command {
    const char *name, *alias;
    size_t min_arguments, max_arguments;
    int (*run)(const request &);
};

constexpr command commands[] = {
    {"get", nullptr, 1, 1, get},
    {"set", nullptr, 1, 1, change<uci_set>},
    {"add", nullptr, 2, 2, add},
    {"add_list", nullptr, 1, 1, change<uci_add_list>},
    {"del_list", nullptr, 1, 1, change<uci_del_list>},
    {"delete", "del", 1, 1, remove},
    {"rename", "ren", 1, 1, change<uci_rename>},
    {"reorder", nullptr, 1, 1, change<reorder_to_value>},
    {"revert", nullptr, 1, 1, revert},
    {"show", nullptr, 0, 1, on_packages<show>},
    {"export", nullptr, 0, 1, on_packages<export_package>},
    {"changes", nullptr, 0, 1, on_packages<changes>},
    {"commit", nullptr, 0, 1, on_packages<commit>},
    {"import", nullptr, 0, 1, import},
    {"batch", nullptr, 0, 0, batch},
};

const command *find_command(const char *name)
{
    for (const command &row : commands)
        if (strcasecmp(name, row.name) == 0 || (row.alias && strcasecmp(name, row.alias) == 0))
            return &row;
    return nullptr;
}

} // namespace

int run_command(session &tool, std::span<char *> words)
{
    const command *const row = find_command(words[0]);
    const std::span<char *> arguments = words.subspan(1);
    if (!row || arguments.size() < row->min_arguments || arguments.size() > row->max_arguments)
        return exit_misused;
    const int result = row->run({tool, arguments});
    unload_all(tool.ctx.get());
    return result;
}

} // namespace uci_tool
