// Lists of texts.
#pragma once

#include <string>
#include <vector>

inline std::string joined(const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}
