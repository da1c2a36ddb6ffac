// A configuration file taken apart, for comparing what is stored with what should be.
#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

struct config_option {
    std::string name;
    bool is_list = false;
    std::vector<std::string> values;
    bool operator==(const config_option &) const = default;
};

struct config_section {
    std::string type;
    std::string name; // empty: anonymous
    std::vector<config_option> options;
    bool operator==(const config_section &) const = default;

    config_option *find(std::string_view option);
    const config_option *find(std::string_view option) const;
    // The value of a plain option; empty when there is none.
    std::string value(std::string_view option) const;
    // As the configuration calls do: an empty value deletes; an option keeps its place.
    void set(const std::string &option, const std::string &value);
    void add_list(const std::string &option, const std::string &value);
    // Removes every entry equal to the value, and the option with its last entry.
    void del_list(std::string_view option, const std::string &value);
    void remove(std::string_view option);
};
void PrintTo(const config_section &section, std::ostream *out);

using config_sections = std::vector<config_section>;

// Parses a file as the configuration library writes it: one line for each section, option and list entry,
// values in single quotes. Throws std::runtime_error at a line that is none of these.
config_sections parse_config(const std::string &text);

// The first section for which the type and, unless it is null, the name fit; null when there is none.
config_section *find_section(config_sections &sections, std::string_view type, const char *name = nullptr);
