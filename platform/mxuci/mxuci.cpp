// The mxuci calls over libuci. libuci parses, looks up and changes in memory; the result is exported into
// memory and written by ourselves, because libuci's own commit reports success on a full disk and leaves an
// empty file behind.
#include "mxuci.h"

#include "locked_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <replace_file.h>
#include <string_view>
#include <unistd.h>

extern "C" {
#include <uci.h>
}

namespace {

// libuci's parser keeps static state in some of its versions.
constinit pthread_mutex_t calls_mutex = PTHREAD_MUTEX_INITIALIZER;

class call_lock {
public:
    call_lock() { pthread_mutex_lock(&calls_mutex); }
    ~call_lock() { pthread_mutex_unlock(&calls_mutex); }
    call_lock(const call_lock &) = delete;
    call_lock &operator=(const call_lock &) = delete;
};

// A context for one load.
class context_owner {
public:
    context_owner() : context_(uci_alloc_context()) {}
    ~context_owner()
    {
        if (context_)
            uci_free_context(context_);
    }
    context_owner(const context_owner &) = delete;
    context_owner &operator=(const context_owner &) = delete;
    explicit operator bool() const { return context_ != nullptr; }
    uci_context *get() const { return context_; }

private:
    uci_context *context_;
};

// A configuration's file and the file of its pending changes.
struct config_paths {
    char file[128];
    char delta[128];
};

// Where a change is made, and with what. `option` is null for a section.
struct place {
    const char *config, *section, *option;
};

bool is_plain(const char *part)
{
    return part && part[0] != '\0' && !strpbrk(part, ".=/");
}

bool make_paths(const char *config, config_paths *paths_out)
{
    if (!is_plain(config))
        return false;
    const int file = snprintf(paths_out->file, sizeof(paths_out->file), UCI_CONFDIR "/%s", config);
    const int delta = snprintf(paths_out->delta, sizeof(paths_out->delta), UCI_SAVEDIR "/%s", config);
    return file < static_cast<int>(sizeof(paths_out->file)) &&
           delta < static_cast<int>(sizeof(paths_out->delta));
}

// A place as the text that libuci resolves: in this form only it understands "@type[i]".
struct tuple_text {
    char data[512];
    bool fits;
    explicit tuple_text(const place &where)
    {
        const int length = snprintf(data, sizeof(data), "%s.%s%s%s", where.config, where.section,
                                    where.option ? "." : "", where.option ? where.option : "");
        fits = length > 0 && length < static_cast<int>(sizeof(data));
    }
};

// Resolves a place; `tuple` must outlive the result. Missing elements are left null.
int look_up(uci_context *context, const place &where, tuple_text &tuple, uci_ptr *found_out)
{
    if (!is_plain(where.config) || !is_plain(where.section) || (where.option && !is_plain(where.option)) ||
        !tuple.fits)
        return UCI_ERR_INVAL;
    return uci_lookup_ptr(context, found_out, tuple.data, true);
}

// The export of a package, in memory.
class exported_text {
public:
    exported_text(uci_context *context, uci_package *package) : data_(nullptr), size_(0), valid_(false)
    {
        FILE *const stream = open_memstream(&data_, &size_);
        if (!stream)
            return;
        const bool exported = uci_export(context, stream, package, false) == UCI_OK && !ferror(stream);
        const bool closed = fclose(stream) == 0;
        valid_ = exported && closed;
    }
    ~exported_text() { free(data_); }
    exported_text(const exported_text &) = delete;
    exported_text &operator=(const exported_text &) = delete;
    explicit operator bool() const { return valid_; }
    char *data() const { return data_; }
    size_t size() const { return size_; }

private:
    char *data_;
    size_t size_;
    bool valid_;
};

// Whether two exports differ, as far as can be told.
bool differ(const exported_text &one, const exported_text &other)
{
    return !one || !other || one.size() != other.size() || memcmp(one.data(), other.data(), one.size()) != 0;
}

// Whether pending changes make a configuration another than its file says.
bool delta_applies(const char *path, const exported_text &with_delta)
{
    const context_owner plain;
    uci_package *without = nullptr;
    if (!plain || uci_load(plain.get(), path, &without) != UCI_OK)
        return true;
    return differ(exported_text(plain.get(), without), with_delta);
}

enum class outcome { done, failed, again };

// The configuration as it was loaded, with the state of its files before that.
struct snapshot {
    config_paths paths;
    file_state file, delta;
    bool delta_counts;
};

// Of a file that is there; should it vanish meanwhile, the new one is its writer's alone.
bool replace_content(const char *path, const exported_text &content)
{
    file_replacement next(path);
    return next && next.write(content.data(), content.size(), look_of(path, 0600)) && next.put_into_place();
}

// Writes a changed package, unless a file has changed since it was loaded: then the change must be made again
// on what is there now.
outcome store(const snapshot &before, const exported_text &content)
{
    const locked_file file(before.paths.file, O_RDWR);
    if (!file)
        return outcome::failed;
    const locked_file delta(before.paths.delta, O_RDWR);
    if (!same_state(file.state(), before.file) || !same_state(delta.state(), before.delta))
        return outcome::again;
    if (!has_content(file, content.data(), content.size()) && !replace_content(before.paths.file, content))
        return outcome::failed;
    // Only now: had the write failed, the pending changes would still be there.
    if (delta && before.delta_counts && ftruncate(delta.descriptor(), 0) != 0)
        return outcome::failed;
    return outcome::done;
}

// One attempt at a change: load, change in memory, store. The change gets the context and the loaded package.
template <typename change_type>
outcome attempt(const char *config, const change_type &change, int *result_out)
{
    snapshot before = {};
    *result_out = UCI_ERR_INVAL;
    if (!make_paths(config, &before.paths))
        return outcome::failed;
    before.file = state_of(before.paths.file);
    before.delta = state_of(before.paths.delta);

    const context_owner context;
    uci_package *package = nullptr;
    *result_out = context ? uci_load(context.get(), config, &package) : UCI_ERR_MEM;
    if (*result_out != UCI_OK)
        return outcome::failed;
    const exported_text loaded(context.get(), package);
    *result_out = change(context.get(), package);
    if (*result_out != UCI_OK)
        return outcome::failed;

    const exported_text content(context.get(), package);
    *result_out = content ? UCI_OK : UCI_ERR_MEM;
    if (!content)
        return outcome::failed;
    // Also when the pending changes cancel each other out: left behind, they would undo this one.
    before.delta_counts =
        before.delta.size > 0 && (differ(loaded, content) || delta_applies(before.paths.file, loaded));
    const outcome stored = store(before, content);
    *result_out = stored == outcome::done ? UCI_OK : UCI_ERR_IO;
    return stored;
}

// More attempts than any neighbour's writes should spoil.
constexpr int most_attempts = 100;

template <typename change_type> int apply(const char *config, const change_type &change)
{
    int result = UCI_ERR_IO;
    for (int i = 0; i < most_attempts; i++)
        if (attempt(config, change, &result) != outcome::again)
            return result;
    return result;
}

// Resolves a place and makes one of libuci's changes there, with `value` (which may be null).
using uci_change = int (*)(uci_context *, uci_ptr *);
enum class must_exist { section, everything };

int apply_at(const place &where, must_exist required, const char *value, uci_change change)
{
    const call_lock lock;
    return apply(where.config, [&](uci_context *context, uci_package *) {
        tuple_text tuple(where);
        uci_ptr found = {};
        const int result = look_up(context, where, tuple, &found);
        if (result != UCI_OK)
            return result;
        const bool complete = found.flags & uci_ptr::UCI_LOOKUP_COMPLETE;
        if (!found.s || (required == must_exist::everything && !complete))
            return static_cast<int>(UCI_ERR_NOTFOUND);
        found.value = value;
        return change(context, &found);
    });
}

// The same for an option that gets a value or loses one.
int apply_value(const place &where, const char *value, uci_change change)
{
    return where.option && value ? apply_at(where, must_exist::section, value, change)
                                 : static_cast<int>(UCI_ERR_INVAL);
}

// Reads an option. The reader gets it, or null when section or option are missing.
template <typename reader_type> int read_at(const place &where, const reader_type &read)
{
    const call_lock lock;
    const context_owner context;
    if (!context)
        return UCI_ERR_MEM;
    tuple_text tuple(where);
    uci_ptr found = {};
    const int result = look_up(context.get(), where, tuple, &found);
    return result == UCI_OK ? read(found.o) : result;
}

// Appends to a text that is cut at its buffer's size.
struct bounded_text {
    char *data;
    size_t size;
    size_t length;

    void append(std::string_view piece)
    {
        const size_t room = size - 1 - length;
        const size_t count = piece.size() < room ? piece.size() : room;
        memcpy(data + length, piece.data(), count);
        length += count;
        data[length] = '\0';
    }
};

void print_option(const uci_option *option, bounded_text text)
{
    text.append("");
    if (option->type == UCI_TYPE_STRING)
        return text.append(option->v.string);
    bool first = true;
    for (const uci_list *at = option->v.list.next; at != &option->v.list; at = at->next) {
        if (!first)
            text.append(" ");
        first = false;
        text.append(list_to_element(at)->name);
    }
}

// A type is written without quotes, so what would not read back as itself is none.
bool is_type(const char *type)
{
    if (!type || type[0] == '\0' || strpbrk(type, "'\"#;\\"))
        return false;
    for (const char *at = type; *at; at++)
        if (*at < 33 || *at > 126)
            return false;
    return true;
}

using section_name = char[16];

// The name that the last section of a package has for every later load. Read from what is about to be
// written: what a later load finds may end in a neighbour's section.
int name_last_section(const char *config, const exported_text &content, section_name &name_out)
{
    const context_owner context;
    FILE *const stream = context && content ? fmemopen(content.data(), content.size(), "r") : nullptr;
    if (!stream)
        return UCI_ERR_MEM;
    uci_package *package = nullptr;
    const int result = uci_import(context.get(), stream, config, &package, true);
    (void)fclose(stream);
    if (result != UCI_OK)
        return result;
    if (uci_list_empty(&package->sections))
        return UCI_ERR_NOTFOUND;
    (void)snprintf(name_out, sizeof(name_out), "%s", list_to_element(package->sections.prev)->name);
    return UCI_OK;
}

int add_anonymous(const char *config, const char *type, char *name_out)
{
    section_name name = "";
    const int result = apply(config, [&](uci_context *context, uci_package *package) {
        uci_section *section = nullptr;
        const int added = uci_add_section(context, package, type, &section);
        return added == UCI_OK ? name_last_section(config, exported_text(context, package), name) : added;
    });
    if (result == UCI_OK)
        memcpy(name_out, name, strlen(name) + 1);
    return result;
}

int add_named(const place &where, const char *type)
{
    return apply(where.config, [&](uci_context *context, uci_package *) {
        tuple_text tuple(where);
        uci_ptr found = {};
        const int result = look_up(context, where, tuple, &found);
        if (result != UCI_OK)
            return result;
        found.value = type;
        return uci_set(context, &found);
    });
}

} // namespace

int mxuci_get(const char *config, const char *section, const char *option, char *buffer, size_t size)
{
    if (!option || !buffer || size == 0)
        return UCI_ERR_INVAL;
    return read_at({config, section, option}, [&](const uci_option *found) {
        if (!found)
            return static_cast<int>(UCI_ERR_NOTFOUND);
        print_option(found, {buffer, size, 0});
        return static_cast<int>(UCI_OK);
    });
}

int mxuci_total_list(const char *config, const char *section, const char *option, int *count)
{
    if (!option || !count)
        return UCI_ERR_INVAL;
    return read_at({config, section, option}, [&](const uci_option *found) {
        *count = found && found->type == UCI_TYPE_STRING ? 1 : 0;
        if (found && found->type == UCI_TYPE_LIST)
            for (const uci_list *at = found->v.list.next; at != &found->v.list; at = at->next)
                (*count)++;
        return static_cast<int>(UCI_OK);
    });
}

int mxuci_set(const char *config, const char *section, const char *option, const char *value)
{
    return apply_value({config, section, option}, value, uci_set);
}

int mxuci_add_list(const char *config, const char *section, const char *option, const char *value)
{
    return apply_value({config, section, option}, value, uci_add_list);
}

int mxuci_del_list(const char *config, const char *section, const char *option, const char *value)
{
    return apply_value({config, section, option}, value, uci_del_list);
}

int mxuci_add_section(const char *config, const char *type, char *name_buffer)
{
    if (!is_type(type) || !name_buffer)
        return UCI_ERR_INVAL;
    const call_lock lock;
    if (name_buffer[0] == '\0')
        return add_anonymous(config, type, name_buffer);
    return add_named({config, name_buffer, nullptr}, type);
}

int mxuci_del_section(const char *config, const char *section)
{
    return apply_at({config, section, nullptr}, must_exist::everything, nullptr, uci_delete);
}

int mxuci_delete(const char *config, const char *section, const char *option)
{
    return option ? apply_at({config, section, option}, must_exist::everything, nullptr, uci_delete)
                  : static_cast<int>(UCI_ERR_INVAL);
}
