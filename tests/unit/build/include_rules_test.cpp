// Holds the sources to docs/architecture.md: the rooms are an order, and no files need each other in a
// circle.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Own includes of each file of a tree, as "folder/name".
using include_map = std::map<std::string, std::set<std::string>>;

// The rooms of src/ from the ground up. Rooms of one floor do not know each other. The roof is src/ itself.
const std::vector<std::set<std::string>> floors = {
    {"base"}, {"wan"}, {"service"}, {"status"}, {"store"}, {"rules"}, {"create", "remove"}, {"modify"}, {""},
};

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

include_map read_sources(const fs::path &root)
{
    include_map sources;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        const std::string extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp")
            sources[fs::relative(entry.path(), root)] = own_includes(entry.path());
    }
    return sources;
}

include_map read_daemon()
{
    return read_sources(fs::path(KORVEL_SOURCE_DIR) / "src");
}

std::string room_of(const std::string &file)
{
    const size_t end = file.find('/');
    return end == std::string::npos ? "" : file.substr(0, end);
}

std::string stem_of(const std::string &file)
{
    return file.substr(0, file.rfind('.'));
}

// The number of a room's floor; of none, the number of floors.
size_t floor_of(const std::string &room)
{
    const auto found = std::ranges::find_if(floors, [&](const auto &rooms) { return rooms.contains(room); });
    return static_cast<size_t>(found - floors.begin());
}

bool may_include(const std::string &room, const std::string &included)
{
    return room == included || floor_of(included) < floor_of(room);
}

// Takes away what needs nothing that is left, over and over. What remains stands in a circle or on one.
include_map circles(const include_map &sources)
{
    include_map needs;
    for (const auto &[file, includes] : sources) {
        std::set<std::string> &own = needs[stem_of(file)];
        for (const std::string &included : includes)
            if (stem_of(included) != stem_of(file) && sources.contains(included))
                own.insert(stem_of(included));
    }
    const auto is_free = [&](const auto &row) {
        return std::ranges::none_of(row.second, [&](const auto &other) { return needs.contains(other); });
    };
    while (std::erase_if(needs, is_free) > 0)
        ;
    return needs;
}

std::string names_of(const include_map &sources)
{
    std::string names;
    for (const auto &[file, includes] : sources)
        names += file + " ";
    return names;
}

TEST(include_rules, every_room_has_its_floor)
{
    const include_map sources = read_daemon();

    EXPECT_TRUE(sources.at("main.cpp").contains("service/settings.h"));
    std::set<std::string> rooms;
    for (const auto &[file, includes] : sources)
        rooms.insert(room_of(file));
    std::set<std::string> known;
    for (const auto &floor : floors)
        known.insert(floor.begin(), floor.end());
    EXPECT_EQ(known, rooms);
}

TEST(include_rules, a_room_knows_only_the_floors_below_it)
{
    for (const auto &[file, includes] : read_daemon())
        for (const std::string &included : includes)
            EXPECT_TRUE(may_include(room_of(file), room_of(included))) << file << " includes " << included;
}

TEST(include_rules, a_header_brings_the_ground_and_its_own_room_only)
{
    const std::set<std::string> ground = {"base", "wan"};
    for (const auto &[file, includes] : read_daemon())
        for (const std::string &included : includes)
            if (file.ends_with(".h")) {
                EXPECT_TRUE(ground.contains(room_of(included)) || room_of(included) == room_of(file))
                    << file << " includes " << included;
            }
}

TEST(include_rules, no_files_need_each_other_in_a_circle)
{
    EXPECT_EQ("", names_of(circles(read_daemon())));
}

TEST(include_rules, nor_do_files_of_the_virtual_gateway)
{
    const include_map sources = read_sources(fs::path(KORVEL_SOURCE_DIR) / "gateway");

    EXPECT_TRUE(sources.contains("root/private_root.cpp"));
    EXPECT_EQ("", names_of(circles(sources)));
}

TEST(include_rules, a_circle_is_found)
{
    const include_map ring = {{"a.cpp", {"b.h"}}, {"b.h", {"c.h"}},       {"c.cpp", {"a.h"}}, {"a.h", {}},
                              {"c.h", {}},        {"on_it.cpp", {"a.h"}}, {"free.cpp", {}}};

    EXPECT_EQ("a b c on_it ", names_of(circles(ring)));
}

} // namespace
