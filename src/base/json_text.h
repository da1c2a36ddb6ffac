// JSON from its text, also when memory runs short.
#pragma once

#include <json-c/json.h>

// What json_tokener_parse() makes of a text: the value that it begins with, or null when that is null or no
// JSON. The caller gives it back by json_object_put(). Comments, NaN and infinities are no JSON here.
//
// The library's own reader is not asked, since up to version 0.16 it takes memory for granted: without it, it
// crashes or leaves out a part of the text.
json_object *json_read(const char *text);
