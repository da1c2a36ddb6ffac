#include "base/json_guard.h"

json_object *json_member(json_object *object, const char *key)
{
    json_object *value = nullptr;
    if (!json_object_is_type(object, json_type_object) || !json_object_object_get_ex(object, key, &value))
        return nullptr;
    return value;
}

size_t json_array_size(json_object *array)
{
    return json_object_is_type(array, json_type_array) ? json_object_array_length(array) : 0;
}
