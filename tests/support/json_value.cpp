#include "support/json_value.h"

#include <json-c/json.h>

#include <stdexcept>

json_value json_value::parse(std::string_view text)
{
    json_value value;
    const std::string terminated(text); // the terminator is passed, too: it ends a number
    json_tokener *const tokener = json_tokener_new();
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    json_object *const object =
        json_tokener_parse_ex(tokener, terminated.c_str(), static_cast<int>(terminated.size() + 1));
    const bool whole =
        json_tokener_get_error(tokener) == json_tokener_success &&
        terminated.find_first_not_of(" \t\n\r", json_tokener_get_parse_end(tokener)) == std::string::npos;
    json_tokener_free(tokener);
    if (whole)
        value.object_.reset(object, json_object_put);
    else
        json_object_put(object);
    return value;
}

bool json_value::is_table() const
{
    return json_object_is_type(object_.get(), json_type_object);
}

bool json_value::is_array() const
{
    return json_object_is_type(object_.get(), json_type_array);
}

bool json_value::has(const char *key) const
{
    return is_table() && json_object_object_get_ex(object_.get(), key, nullptr);
}

json_value json_value::at(const char *key) const
{
    json_object *member = nullptr;
    if (!is_table() || !json_object_object_get_ex(object_.get(), key, &member))
        throw std::out_of_range("no member \"" + std::string(key) + "\" in " + text());
    json_value value;
    value.object_.reset(json_object_get(member), json_object_put);
    return value;
}

json_value json_value::entry(size_t index) const
{
    if (!is_array() || index >= size())
        throw std::out_of_range("no entry " + std::to_string(index) + " in " + text());
    json_value value;
    value.object_.reset(json_object_get(json_object_array_get_idx(object_.get(), index)), json_object_put);
    return value;
}

size_t json_value::size() const
{
    if (is_array())
        return json_object_array_length(object_.get());
    return is_table() ? static_cast<size_t>(json_object_object_length(object_.get())) : 0;
}

std::vector<std::string> json_value::keys() const
{
    std::vector<std::string> names;
    if (!is_table())
        return names;
    json_object_object_foreach(object_.get(), key, member)
    {
        (void)member;
        names.emplace_back(key);
    }
    return names;
}

int64_t json_value::integer() const
{
    if (!json_object_is_type(object_.get(), json_type_int))
        throw std::runtime_error("not an integer: " + text());
    return json_object_get_int64(object_.get());
}

bool json_value::boolean() const
{
    if (!json_object_is_type(object_.get(), json_type_boolean))
        throw std::runtime_error("not a boolean: " + text());
    return json_object_get_boolean(object_.get());
}

std::string json_value::string() const
{
    if (!json_object_is_type(object_.get(), json_type_string))
        throw std::runtime_error("not a string: " + text());
    return {json_object_get_string(object_.get()),
            static_cast<size_t>(json_object_get_string_len(object_.get()))};
}

std::string json_value::text() const
{
    return json_object_to_json_string_ext(object_.get(),
                                          JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

bool json_value::holds(bool expected) const
{
    return json_object_is_type(object_.get(), json_type_boolean) && boolean() == expected;
}

bool json_value::holds(int64_t expected) const
{
    return json_object_is_type(object_.get(), json_type_int) && integer() == expected;
}

bool json_value::holds(std::string_view expected) const
{
    return json_object_is_type(object_.get(), json_type_string) && string() == expected;
}
