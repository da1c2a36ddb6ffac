// Holds the sources to the table of docs/architecture.md: who may include whom.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Own includes of each file of src/, as "folder/name".
using include_map = std::map<std::string, std::set<std::string>>;

std::set<std::string> own_includes(const fs::path &file)
{
    std::set<std::string> includes;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        constexpr std::string_view directive = "#include \"";
        if (line.compare(0, directive.size(), directive) == 0)
            includes.insert(
                line.substr(directive.size(), line.find('"', directive.size()) - directive.size()));
    }
    return includes;
}

include_map read_sources()
{
    const fs::path root = fs::path(KORVEL_SOURCE_DIR) / "src";
    include_map sources;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        const std::string extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp")
            sources[fs::relative(entry.path(), root)] = own_includes(entry.path());
    }
    return sources;
}

std::string folder_of(const std::string &file)
{
    return file.substr(0, file.find('/'));
}

std::string stem_of(const std::string &file)
{
    return file.substr(0, file.rfind('.'));
}

bool is_header(const std::string &file)
{
    return file.ends_with(".h");
}

int level_of(const std::string &file)
{
    static const std::set<std::string> leaves = {"store/wan_config", "store/wan_fields", "store/wan_names",
                                                 "rules/rule_ctx",   "service/settings", "service/board",
                                                 "service/policies", "service/reply",    "service/reload"};
    static const std::map<std::string, int> levels = {{"base", 0},   {"status", 1}, {"store", 2},
                                                      {"rules", 2},  {"create", 3}, {"remove", 3},
                                                      {"modify", 4}, {"service", 5}};
    return leaves.contains(stem_of(file)) ? 0 : levels.at(folder_of(file));
}

TEST(include_rules, every_source_is_read)
{
    const include_map sources = read_sources();

    EXPECT_TRUE(sources.contains("service/main.cpp"));
    EXPECT_TRUE(sources.at("service/main.cpp").contains("service/settings.h"));
}

TEST(include_rules, a_header_includes_leaves_only)
{
    for (const auto &[file, includes] : read_sources())
        for (const std::string &included : includes)
            if (is_header(file)) {
                EXPECT_EQ(0, level_of(included)) << file << " includes " << included;
            }
}

TEST(include_rules, no_source_reaches_above_its_level)
{
    for (const auto &[file, includes] : read_sources())
        for (const std::string &included : includes)
            EXPECT_LE(level_of(included), level_of(file)) << file << " includes " << included;
}

TEST(include_rules, base_knows_nothing_of_wans)
{
    for (const auto &[file, includes] : read_sources())
        for (const std::string &included : includes)
            if (folder_of(file) == "base") {
                EXPECT_EQ("base", folder_of(included)) << file << " includes " << included;
            }
}

TEST(include_rules, no_two_files_need_each_other)
{
    std::map<std::string, std::set<std::string>> needs;
    for (const auto &[file, includes] : read_sources())
        for (const std::string &included : includes)
            if (stem_of(included) != stem_of(file))
                needs[stem_of(file)].insert(stem_of(included));

    for (const auto &[file, needed] : needs)
        for (const std::string &other : needed)
            EXPECT_FALSE(needs[other].contains(file)) << file << " and " << other;
}

} // namespace
