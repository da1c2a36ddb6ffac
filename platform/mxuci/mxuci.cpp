// The mxuci calls over libuci. libuci parses, looks up and changes in memory; the result is written by
// ourselves, because libuci's own commit reports success on a full disk and leaves an empty file behind.
#include "mxuci.h"

#include "gathering.h"
#include "mxuci_gather.h"
#include "locked_file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
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

// Where a change is made, and with what. `option` is null for a section.
struct place {
    const char *config, *section, *option;
};

bool is_plain(const char *part)
{
    return part && part[0] != '\0' && !strpbrk(part, ".=/");
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

// The gathering of a thread that has begun one.
constinit thread_local gathering *gathered_calls = nullptr;

enum class outcome { done, failed, again };

// Brings a single call's change into its file.
outcome store(gathering &calls, int *result_out)
{
    mxuci_staged staged;
    int count = 0;
    *result_out = calls.stage(temporary_suffix, &staged, 1, &count);
    if (*result_out != UCI_OK || count == 0)
        return *result_out == UCI_OK ? outcome::done : outcome::failed;

    bool unchanged = false;
    const bool replaces = staged.temporary[0] != '\0';
    *result_out = !replaces || sync_file(staged.temporary) ? calls.lock(staged.config, &unchanged)
                                                           : static_cast<int>(UCI_ERR_IO);
    if (*result_out == UCI_OK && unchanged) {
        if (replaces && (rename(staged.temporary, staged.target) != 0 || !sync_directory_of(staged.target)))
            *result_out = UCI_ERR_IO;
        // Only now: had the write failed, the pending changes would still be there.
        else if (staged.delta[0] != '\0' && !calls.empty_delta(staged.config))
            *result_out = UCI_ERR_IO;
        else
            return outcome::done;
    }
    if (replaces)
        (void)unlink(staged.temporary);
    if (*result_out != UCI_OK)
        return outcome::failed;
    *result_out = UCI_ERR_IO;
    return outcome::again;
}

// Makes a change in memory. It gets the context and the loaded package.
template <typename change_type>
int make(gathering &calls, const char *config, const change_type &change, gathered **target_out)
{
    int result = calls.open(config, target_out);
    if (result == UCI_OK)
        result = calls.prepare_change(**target_out);
    if (result != UCI_OK)
        return result;
    result = change(calls.context(), (*target_out)->package);
    if (result == UCI_OK)
        (*target_out)->changed = true;
    return calls.note(config, result);
}

// More attempts than any neighbour's writes should spoil.
constexpr int most_attempts = 100;

void learn_nothing(const gathered &) {}

// Makes a change: in the thread's gathering, or in one of its own that is stored at once, again and again
// while neighbours write meanwhile. `learn` gets what was stored.
template <typename change_type, typename learner_type = decltype(&learn_nothing)>
int apply(const char *config, const change_type &change, const learner_type &learn = &learn_nothing)
{
    gathered *target = nullptr;
    if (gathered_calls)
        return make(*gathered_calls, config, change, &target);
    int result = UCI_ERR_IO;
    for (int i = 0; i < most_attempts; i++) {
        gathering single;
        result = make(single, config, change, &target);
        if (result != UCI_OK)
            return result;
        const outcome stored = store(single, &result);
        if (stored == outcome::done)
            learn(*target);
        if (stored != outcome::again)
            return result;
    }
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

// Files have no lists without values, so memory keeps none either.
int remove_value(uci_context *context, uci_ptr *place)
{
    const int result = uci_del_list(context, place);
    const bool emptied =
        result == UCI_OK && place->o && place->o->type == UCI_TYPE_LIST && uci_list_empty(&place->o->v.list);
    if (!emptied)
        return result;
    place->value = nullptr;
    return uci_delete(context, place);
}

// The same for an option that gets a value or loses one.
int apply_value(const place &where, const char *value, uci_change change)
{
    return where.option && value ? apply_at(where, must_exist::section, value, change)
                                 : static_cast<int>(UCI_ERR_INVAL);
}

template <typename reader_type> int read_from(gathering &calls, const place &where, const reader_type &read)
{
    gathered *source = nullptr;
    const int opened = calls.open(where.config, &source);
    if (opened != UCI_OK)
        return opened;
    tuple_text tuple(where);
    uci_ptr found = {};
    const int result = look_up(calls.context(), where, tuple, &found);
    return result == UCI_OK ? read(found.o) : calls.note(where.config, result);
}

// Reads an option. The reader gets it, or null when section or option are missing.
template <typename reader_type> int read_at(const place &where, const reader_type &read)
{
    const call_lock lock;
    if (gathered_calls)
        return read_from(*gathered_calls, where, read);
    gathering single;
    return read_from(single, where, read);
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

int add_anonymous(const char *config, const char *type, char *name_out)
{
    section_name name = "";
    const int result = apply(
        config,
        [&](uci_context *context, uci_package *package) {
            uci_section *section = nullptr;
            const int added = uci_add_section(context, package, type, &section);
            if (added == UCI_OK)
                (void)snprintf(name, sizeof(name), "%s", section->e.name);
            return added;
        },
        // Stored, it has the name that every later load gives it. What such a load finds last may be a
        // neighbour's.
        [&](const gathered &stored) { memcpy(name, stored.last_added, sizeof(name)); });
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
    return apply_value({config, section, option}, value, remove_value);
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

bool mxuci_gathers(void)
{
    return true;
}

int mxuci_gather_begin(void)
{
    if (gathered_calls)
        return UCI_ERR_DUPLICATE;
    void *const memory = malloc(sizeof(gathering));
    if (!memory)
        return UCI_ERR_MEM;
    gathered_calls = new (memory) gathering;
    return UCI_OK;
}

void mxuci_gather_end(void)
{
    if (!gathered_calls)
        return;
    const call_lock lock;
    gathered_calls->~gathering();
    free(gathered_calls);
    gathered_calls = nullptr;
}

int mxuci_gather_view(const char *config, uci_context **context_out, uci_package **package_out)
{
    *context_out = nullptr;
    *package_out = nullptr;
    if (!gathered_calls)
        return UCI_ERR_INVAL;
    const call_lock lock;
    gathered *found = nullptr;
    const int result = gathered_calls->open(config, &found);
    if (result == UCI_OK) {
        *context_out = gathered_calls->context();
        *package_out = found->package;
    }
    return result;
}

mxuci_failure mxuci_gather_failure(void)
{
    return gathered_calls ? gathered_calls->failure() : mxuci_failure{};
}

int mxuci_gather_stage(const char *suffix, mxuci_staged *staged_out, int room, int *count_out)
{
    *count_out = 0;
    if (!gathered_calls)
        return UCI_ERR_INVAL;
    const call_lock lock;
    return gathered_calls->stage(suffix, staged_out, room, count_out);
}

int mxuci_gather_lock(const char *config, bool *unchanged_out)
{
    *unchanged_out = false;
    return gathered_calls ? gathered_calls->lock(config, unchanged_out) : static_cast<int>(UCI_ERR_INVAL);
}

void mxuci_gather_placed(const char *config)
{
    if (gathered_calls)
        gathered_calls->placed(config);
}
