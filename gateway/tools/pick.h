// Picking values out of JSON for shell scripts.
#pragma once

#include <string>
#include <vector>

// The value at `path` of the JSON text, as lines. The path is member names joined by points; behind an array,
// "key=value" is its first element whose member `key` has that value. Lines: one for each element of an
// array, else one. With keys, a line has those members of the element, joined by blanks, "-" for one that is
// missing; without, it has the element itself. Empty when the text is no JSON or there is nothing at the
// path.
std::string pick_lines(const std::string &json, const std::string &path,
                       const std::vector<std::string> &keys);
