// A parsed JSON document and safe access to its members.
#pragma once

#include "base/json_text.h"

// Owns what a text holds.
class json_document {
public:
    explicit json_document(const char *text) : root_(json_read(text)) {}
    ~json_document()
    {
        if (root_)
            json_object_put(root_);
    }
    json_document(const json_document &) = delete;
    json_document &operator=(const json_document &) = delete;

    // Whether the text was JSON other than null.
    explicit operator bool() const { return root_ != nullptr; }
    json_object *root() const { return root_; }

private:
    json_object *root_;
};

// A member of an object. Null when `object` is null or no object, or when the member is missing or null.
json_object *json_member(json_object *object, const char *key);

// The number of entries of an array; 0 when `array` is null or no array.
size_t json_array_size(json_object *array);
