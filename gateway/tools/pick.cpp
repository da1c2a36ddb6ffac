// Picking values out of JSON for shell scripts.
#include "tools/pick.h"

#include <json-c/json.h>
#include <memory>
#include <sstream>

namespace {

struct json_release {
    void operator()(json_object *object) const { (void)json_object_put(object); }
};

json_object *follow(json_object *object, const std::string &path)
{
    std::istringstream names(path);
    for (std::string name; object && std::getline(names, name, '.');) {
        json_object *member = nullptr;
        (void)json_object_object_get_ex(object, name.c_str(), &member);
        object = member;
    }
    return object;
}

std::string line_of(json_object *element, const std::vector<std::string> &keys)
{
    if (keys.empty())
        return json_object_get_string(element);
    std::string line;
    for (const std::string &key : keys) {
        json_object *member = nullptr;
        const bool present = json_object_object_get_ex(element, key.c_str(), &member) && member;
        line += line.empty() ? "" : " ";
        line += present ? json_object_get_string(member) : "-";
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
