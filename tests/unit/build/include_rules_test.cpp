// Holds the sources to docs/architecture.md: the daemon's rooms are an order, and no files need each other in
// a circle.
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

// Files of a tree, each with those of its own tree that it includes; all by their path from the tree's root.
using include_map = std::map<std::string, std::set<std::string>>;

// The rooms of src/ from the ground up. Rooms of one floor do not know each other. The roof is src/ itself.
const std::vector<std::set<std::string>> floors = {
    {"base"}, {"wan"}, {"service"}, {"status"}, {"store"}, {"rules"}, {"create", "remove"}, {"modify"}, {""},
};

// What stands between the quotes or brackets of a file's includes.
std::set<std::string> included_names(const fs::path &file)
{
    std::set<std::string> names;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        constexpr std::string_view directive = "#include ";
        if (!line.starts_with(directive))
            continue;
        const size_t begin = directive.size() + 1;
        names.insert(line.substr(begin, line.find_first_of("\">", begin) - begin));
    }
    return names;
}

// The files of a tree that an included name may mean: one beside the file, or at that path from the root, or
// from the folders that a library offers its headers from. None: a header of the system or of another tree.
std::set<std::string> meant_by(const std::string &name, const std::string &file, const include_map &tree)
{
    const std::string beside = (fs::path(file).parent_path() / name).lexically_normal();
    for (const std::string &path : {beside, name})
        if (tree.contains(path))
            return {path};
    std::set<std::string> offered;
    for (const auto &[path, includes] : tree)
        if (path.ends_with("/" + name))
            offered.insert(path);
    return offered;
}

include_map read_tree(const std::string &folder)
{
    const fs::path root = fs::path(KORVEL_SOURCE_DIR) / folder;
    include_map tree;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        const std::string extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp")
            tree[fs::relative(entry.path(), root)] = {};
    }
    for (auto &[file, includes] : tree)
        for (const std::string &name : included_names(root / file))
            includes.merge(meant_by(name, file, tree));
    return tree;
}

include_map read_daemon()
{
    return read_tree("src");
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
    for (const char *folder : {"src", "ctl", "platform", "gateway"}) {
        SCOPED_TRACE(folder);
        const include_map tree = read_tree(folder);
        EXPECT_FALSE(tree.empty());
        EXPECT_EQ("", names_of(circles(tree)));
    }
}

TEST(include_rules, korvelctl_stands_beside_the_roof)
{
    const include_map daemon = read_daemon();
    for (const auto &[file, includes] : daemon)
        for (const std::string &included : included_names(fs::path(KORVEL_SOURCE_DIR) / "src" / file))
            EXPECT_FALSE(included.starts_with("ctl/")) << file << " includes " << included;
    size_t below = 0;
    for (const auto &[file, own] : read_tree("ctl"))
        for (const std::string &included : included_names(fs::path(KORVEL_SOURCE_DIR) / "ctl" / file)) {
            below += daemon.contains(included);
            EXPECT_FALSE(daemon.contains(included) && room_of(included).empty())
                << file << " includes " << included;
        }
    EXPECT_LT(0U, below);
}

TEST(include_rules, includes_are_found_wherever_a_header_is_offered_from)
{
    const include_map tree = {{"uci/tool/batch.h", {}}, {"uci/words.h", {}}, {"include/libubox/list.h", {}}};

    EXPECT_TRUE(meant_by("batch.h", "uci/tool/main.cpp", tree).contains("uci/tool/batch.h"));
    EXPECT_TRUE(meant_by("words.h", "uci/tool/main.cpp", tree).contains("uci/words.h"));
    EXPECT_TRUE(meant_by("../words.h", "uci/tool/main.cpp", tree).contains("uci/words.h"));
    EXPECT_TRUE(meant_by("libubox/list.h", "ubox/blob.cpp", tree).contains("include/libubox/list.h"));
    EXPECT_TRUE(meant_by("string", "uci/tool/main.cpp", tree).empty());
    EXPECT_TRUE(read_tree("platform").at("uci/tool/batch.cpp").contains("uci/words.h"));
}

TEST(include_rules, a_circle_is_found)
{
    const include_map ring = {{"a.cpp", {"b.h"}}, {"b.h", {"c.h"}},       {"c.cpp", {"a.h"}}, {"a.h", {}},
                              {"c.h", {}},        {"on_it.cpp", {"a.h"}}, {"free.cpp", {}}};

    EXPECT_EQ("a b c on_it ", names_of(circles(ring)));
}

} // namespace
