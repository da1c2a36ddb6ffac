// The test's own view of the configuration, by a context of its own for each look, so that it sees what any
// other program would see.
#include "support/gateway.h"

#include <uci.h>

#include <memory>
#include <stdexcept>

namespace {

using context_ptr = std::unique_ptr<uci_context, decltype(&uci_free_context)>;

context_ptr new_context()
{
    context_ptr context(uci_alloc_context(), uci_free_context);
    if (!context)
        throw std::runtime_error("uci: out of memory");
    return context;
}

[[noreturn]] void fail(uci_context *context, const std::string &place)
{
    char *text = nullptr;
    uci_get_errorstr(context, &text, place.c_str());
    const std::string message = text ? text : place;
    free(text);
    throw std::runtime_error(message);
}

// A place and what is there. The parsed names point into its copy of the text.
class found_place {
public:
    explicit found_place(const std::string &place) : context_(new_context()), text_(place)
    {
        const int result = uci_lookup_ptr(context_.get(), &ptr_, text_.data(), true);
        if (result != UCI_OK && result != UCI_ERR_NOTFOUND)
            fail(context_.get(), place);
        complete_ = result == UCI_OK && (ptr_.flags & uci_ptr::UCI_LOOKUP_COMPLETE);
    }

    bool complete() const { return complete_; }
    uci_ptr *ptr() { return &ptr_; }
    uci_context *context() { return context_.get(); }

    // Applies one of the library's changes and commits it.
    void change(int (*operation)(uci_context *, uci_ptr *), const char *value, const std::string &place)
    {
        ptr_.value = value;
        if (operation(context_.get(), &ptr_) || uci_commit(context_.get(), &ptr_.p, false))
            fail(context_.get(), place);
    }

private:
    context_ptr context_;
    std::string text_;
    uci_ptr ptr_{};
    bool complete_ = false;
};

text_lines values_of(uci_option *option)
{
    if (option->type == UCI_TYPE_STRING)
        return {option->v.string};
    text_lines values;
    uci_element *element;
    uci_foreach_element(&option->v.list, element) values.emplace_back(element->name);
    return values;
}

std::string joined(const text_lines &values)
{
    std::string text;
    for (const std::string &value : values)
        text += (text.empty() ? "" : " ") + value;
    return text;
}

} // namespace

std::optional<std::string> gateway::uci_get(const std::string &place) const
{
    found_place found(place);
    if (!found.complete() || !found.ptr()->s)
        return std::nullopt;
    return found.ptr()->o ? joined(values_of(found.ptr()->o)) : std::string(found.ptr()->s->type);
}

std::optional<text_lines> gateway::uci_list(const std::string &place) const
{
    found_place found(place);
    if (!found.complete() || !found.ptr()->o)
        return std::nullopt;
    return values_of(found.ptr()->o);
}

text_lines gateway::uci_options(const std::string &section) const
{
    found_place found(section);
    text_lines names;
    if (!found.complete() || !found.ptr()->s)
        return names;
    uci_element *element;
    uci_foreach_element(&found.ptr()->s->options, element) names.emplace_back(element->name);
    return names;
}

void gateway::uci_set(const std::string &place, const std::string &value)
{
    found_place(place).change(::uci_set, value.c_str(), place);
}

void gateway::uci_add_list(const std::string &place, const std::string &value)
{
    found_place(place).change(::uci_add_list, value.c_str(), place);
}

void gateway::uci_delete(const std::string &place)
{
    found_place(place).change(::uci_delete, nullptr, place);
}

std::optional<std::string> gateway::device_section(unsigned id) const
{
    const context_ptr context = new_context();
    uci_package *network = nullptr;
    if (uci_load(context.get(), "network", &network))
        fail(context.get(), "network");
    const std::string prefix = std::to_string(id) + "_";
    uci_element *element;
    uci_foreach_element(&network->sections, element)
    {
        uci_section *const section = uci_to_section(element);
        const char *const link_name = uci_lookup_option_string(context.get(), section, "lkname");
        if (std::string_view(section->type) == "device" && link_name &&
            std::string_view(link_name).starts_with(prefix))
            return section->e.name;
    }
    return std::nullopt;
}

std::optional<std::string> gateway::device_option(unsigned id, const std::string &option) const
{
    const std::optional<std::string> section = device_section(id);
    return section ? uci_get("network." + *section + "." + option) : std::nullopt;
}
