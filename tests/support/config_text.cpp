#include "support/config_text.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

// Takes the next word of a line off its front: bare, or in single quotes with a quote written as '\''.
std::string take_word(std::string &line)
{
    line.erase(0, std::min(line.find_first_not_of(" \t"), line.size()));
    std::string word;
    bool quoted = false;
    size_t at = 0;
    for (; at < line.size() && (quoted || (line[at] != ' ' && line[at] != '\t')); at++) {
        if (line[at] == '\'')
            quoted = !quoted;
        else if (line[at] == '\\' && !quoted && at + 1 < line.size())
            word += line[++at];
        else
            word += line[at];
    }
    line.erase(0, at);
    return word;
}

} // namespace

config_option *config_section::find(std::string_view option)
{
    const auto found = std::find_if(options.begin(), options.end(),
                                    [&](const config_option &other) { return other.name == option; });
    return found == options.end() ? nullptr : &*found;
}

const config_option *config_section::find(std::string_view option) const
{
    return const_cast<config_section *>(this)->find(option);
}

std::string config_section::value(std::string_view option) const
{
    const config_option *const found = find(option);
    return found && !found->is_list ? found->values.at(0) : "";
}

void config_section::set(const std::string &option, const std::string &value)
{
    if (value.empty())
        return remove(option);
    if (config_option *const found = find(option))
        *found = {option, false, {value}};
    else
        options.push_back({option, false, {value}});
}

void config_section::add_list(const std::string &option, const std::string &value)
{
    if (config_option *const found = find(option))
        found->values.push_back(value);
    else
        options.push_back({option, true, {value}});
}

void config_section::del_list(std::string_view option, const std::string &value)
{
    config_option *const found = find(option);
    if (!found)
        return;
    std::erase(found->values, value);
    if (found->values.empty())
        remove(option);
}

void config_section::remove(std::string_view option)
{
    std::erase_if(options, [&](const config_option &other) { return other.name == option; });
}

void PrintTo(const config_section &section, std::ostream *out)
{
    *out << section.type << " '" << section.name << "' {";
    for (const config_option &option : section.options) {
        *out << ' ' << option.name << (option.is_list ? "[]" : "") << '=';
        for (const std::string &value : option.values)
            *out << '\'' << value << '\'';
    }
    *out << " }";
}

config_sections parse_config(const std::string &text)
{
    config_sections sections;
    std::istringstream in(text);
    for (std::string rest; std::getline(in, rest);) {
        const std::string line = rest;
        const std::string keyword = take_word(rest);
        if (keyword.empty())
            continue;
        const std::string name = take_word(rest);
        const std::string value = take_word(rest);
        if (keyword == "config")
            sections.push_back({name, value, {}});
        else if ((keyword != "option" && keyword != "list") || sections.empty())
            throw std::runtime_error("no configuration line: " + line);
        else if (keyword == "list")
            sections.back().add_list(name, value);
        else
            sections.back().options.push_back({name, false, {value}});
    }
    return sections;
}

config_section *find_section(config_sections &sections, std::string_view type, const char *name)
{
    const auto found = std::find_if(sections.begin(), sections.end(), [&](const config_section &section) {
        return section.type == type && (!name || section.name == name);
    });
    return found == sections.end() ? nullptr : &*found;
}
