// Picking values out of JSON for shell scripts.
#include "tools/pick.h"

#include <json-c/json.h>
#include <memory>
#include <sstream>

namespace {

struct json_release {
    void operator()(json_object *object) const { (void)json_object_put(object); }
};

json_object *member_of(json_object *object, const std::string &name)
{
    json_object *member = nullptr;
    (void)json_object_object_get_ex(object, name.c_str(), &member);
    return member;
}

// The member of that name; "key=value" is the first element of an array in which the member `key` has that
// value.
json_object *step(json_object *object, const std::string &name)
{
    const size_t equals = name.find('=');
    if (equals == std::string::npos || !json_object_is_type(object, json_type_array))
        return member_of(object, name);
    for (size_t i = 0; i < json_object_array_length(object); i++) {
        json_object *const element = json_object_array_get_idx(object, i);
        json_object *const value = member_of(element, name.substr(0, equals));
        if (value && name.substr(equals + 1) == json_object_get_string(value))
            return element;
    }
    return nullptr;
}

json_object *follow(json_object *object, const std::string &path)
{
    std::istringstream names(path);
    for (std::string name; object && std::getline(names, name, '.');)
        object = step(object, name);
    return object;
}

std::string line_of(json_object *element, const std::vector<std::string> &keys)
{
    if (keys.empty())
        return json_object_get_string(element);
    std::string line;
    for (const std::string &key : keys) {
        json_object *const member = member_of(element, key);
        line += line.empty() ? "" : " ";
        line += member ? json_object_get_string(member) : "-";
    }
    return line;
}

} // namespace

std::string pick_lines(const std::string &json, const std::string &path, const std::vector<std::string> &keys)
{
    const std::unique_ptr<json_object, json_release> root(json_tokener_parse(json.c_str()));
    json_object *const value = follow(root.get(), path);
    if (!value)
        return {};
    if (!json_object_is_type(value, json_type_array))
        return line_of(value, keys) + "\n";
    std::string lines;
    for (size_t i = 0; i < json_object_array_length(value); i++)
        lines += line_of(json_object_array_get_idx(value, i), keys) + "\n";
    return lines;
}
