#include "base/config.h"

#include "base/lock.h"

#include <cerrno>
#include <mxuci.h>
#include <mxuci_gather.h>

namespace {

constinit mutex libuci_mutex;
constinit thread_local unsigned hold_depth = 0;

void append(text_ref target, size_t &length, std::string_view piece)
{
    const size_t room = target.size - 1 - length;
    const size_t count = piece.size() < room ? piece.size() : room;
    memcpy(target.data + length, piece.data(), count);
    length += count;
    target.data[length] = '\0';
}

} // namespace

config_hold::config_hold()
{
    if (hold_depth++ == 0)
        pthread_mutex_lock(&libuci_mutex.handle);
}

config_hold::~config_hold()
{
    if (--hold_depth == 0)
        pthread_mutex_unlock(&libuci_mutex.handle);
}

int config_get(const char *config, const char *section, const char *option, text_ref value_out)
{
    const config_hold hold;
    return mxuci_get(config, section, option, value_out.data, value_out.size);
}

int config_set(const char *config, const char *section, const char *option, const char *value)
{
    const config_hold hold;
    return mxuci_set(config, section, option, value);
}

int config_set_number(const char *config, const char *section, const char *option, int value)
{
    char text[12];
    text_ref(text).format("%d", value);
    return config_set(config, section, option, text);
}

int config_add_list(const char *config, const char *section, const char *option, const char *value)
{
    const config_hold hold;
    return mxuci_add_list(config, section, option, value);
}

int config_del_list(const char *config, const char *section, const char *option, const char *value)
{
    const config_hold hold;
    return mxuci_del_list(config, section, option, value);
}

int config_total_list(const char *config, const char *section, const char *option)
{
    const config_hold hold;
    int count = 0;
    return mxuci_total_list(config, section, option, &count) == UCI_OK ? count : -1;
}

int config_add_section(const char *config, const char *type, text_ref name_out)
{
    const config_hold hold;
    return mxuci_add_section(config, type, name_out.data);
}

int config_del_section(const char *config, const char *section)
{
    const config_hold hold;
    return mxuci_del_section(config, section);
}

int config_delete(const char *config, const char *section, const char *option)
{
    const config_hold hold;
    return mxuci_delete(config, section, option);
}

const char *config_reason(int result, int error)
{
    switch (result) {
    case UCI_ERR_MEM:
        return strerror(ENOMEM);
    case UCI_ERR_NOTFOUND:
        return strerror(ENOENT);
    case UCI_ERR_PARSE:
        return "it cannot be parsed";
    case UCI_ERR_UNKNOWN:
        return "it would not read back as what is meant";
    default:
        return strerror(error == 0 ? EIO : error);
    }
}

config_snapshot::config_snapshot()
{
    const config_hold hold;
    begun_ = mxuci_gather_begin() == UCI_OK;
}

config_snapshot::~config_snapshot()
{
    const config_hold hold;
    if (begun_)
        mxuci_gather_end();
    mxuci_give_memory_back();
}

uci_loaded::uci_loaded(const char *config)
    : context_(nullptr), package_(nullptr), result_(UCI_OK), error_(0), owned_(false)
{
    const config_hold hold;
    errno = 0;
    result_ = mxuci_gather_view(config, &context_, &package_);
    if (result_ == UCI_ERR_INVAL) {
        owned_ = true;
        context_ = uci_alloc_context();
        result_ = context_ ? uci_load(context_, config, &package_) : static_cast<int>(UCI_ERR_MEM);
    }
    error_ = errno;
    if (result_ != UCI_OK)
        package_ = nullptr;
}

uci_loaded::~uci_loaded()
{
    if (!owned_)
        return;
    if (package_)
        uci_unload(context_, package_);
    if (context_)
        uci_free_context(context_);
}

uci_section *uci_loaded::section(const char *name) const
{
    uci_element *found = nullptr;
    return uci_lookup_next(context_, &found, sections(), name) == UCI_OK ? uci_to_section(found) : nullptr;
}

uci_option *uci_loaded::option(uci_section *section, const char *name) const
{
    uci_element *found = nullptr;
    if (!section || uci_lookup_next(context_, &found, &section->options, name) != UCI_OK)
        return nullptr;
    return uci_to_option(found);
}

const char *uci_loaded::plain(uci_section *section, const char *name) const
{
    const uci_option *const found = option(section, name);
    return found && found->type == UCI_TYPE_STRING ? found->v.string : nullptr;
}

uci_list *uci_loaded::list(uci_section *section, const char *name) const
{
    uci_option *const found = option(section, name);
    return found && found->type == UCI_TYPE_LIST ? &found->v.list : nullptr;
}

int uci_loaded::get(uci_section *section, const char *name, text_ref value_out) const
{
    uci_option *const found = option(section, name);
    if (!found)
        return UCI_ERR_NOTFOUND;
    size_t length = 0;
    if (found->type == UCI_TYPE_STRING) {
        append(value_out, length, found->v.string);
        return UCI_OK;
    }
    value_out.data[0] = '\0';
    uci_element *entry = nullptr;
    uci_foreach_element(&found->v.list, entry)
    {
        if (length > 0)
            append(value_out, length, " ");
        append(value_out, length, entry->name);
    }
    return UCI_OK;
}
