#include "faults/file_tree.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

constexpr const char *kept_directories[] = {"/etc/config", "/etc/korvel", "/etc/hotplug.d/iface", "/tmp"};
constexpr char pending_directory[] = "/tmp/.uci/";

std::string content_of(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned mode_of(const fs::path &path)
{
    struct stat status {};
    (void)stat(path.c_str(), &status);
    return status.st_mode & 07777;
}

bool is_mounted(const fs::path &path)
{
    struct statx state {};
    return statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, 0, &state) == 0 &&
           state.stx_attributes & STATX_ATTR_MOUNT_ROOT;
}

// Not what is mounted there: the build directory may lie below /tmp.
std::vector<fs::path> kept_paths()
{
    std::vector<fs::path> paths;
    for (const char *const directory : kept_directories) {
        std::error_code absent;
        for (auto at = fs::recursive_directory_iterator(directory, absent); at != fs::end(at); at++) {
            if (at->is_directory() && is_mounted(at->path()))
                at.disable_recursion_pending();
            else if (!at->is_directory())
                paths.push_back(at->path());
        }
    }
    return paths;
}

} // namespace

file_tree take_files()
{
    file_tree files;
    for (const fs::path &path : kept_paths()) {
        kept_file file{mode_of(path), content_of(path)};
        if (!file.content.empty() || !path.string().starts_with(pending_directory))
            files[path] = file;
    }
    return files;
}

void put_files(const file_tree &files)
{
    for (const fs::path &path : kept_paths())
        fs::remove(path);
    for (const char *const directory : kept_directories)
        fs::create_directories(directory);
    for (const auto &[path, file] : files) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << file.content;
        (void)chmod(path.c_str(), file.mode);
    }
}

std::vector<std::string> differences(const file_tree &present, const file_tree &wanted)
{
    std::vector<std::string> found;
    for (const auto &[path, file] : present) {
        const auto other = wanted.find(path);
        if (other == wanted.end())
            found.push_back("extra " + path);
        else if (file.content != other->second.content)
            found.push_back("other " + path);
        else if (file.mode != other->second.mode)
            found.push_back("mode " + path);
    }
    for (const auto &[path, file] : wanted)
        if (!present.contains(path))
            found.push_back("no " + path);
    return found;
}

std::vector<std::string> readable_with(const file_tree &files, const std::string &word)
{
    std::vector<std::string> found;
    for (const auto &[path, file] : files)
        if (file.mode & 077 && file.content.find(word) != std::string::npos)
            found.push_back(path);
    return found;
}

bool is_kept(const std::string &path)
{
    for (const char *const directory : kept_directories)
        if (path == directory || path.starts_with(std::string(directory) + "/"))
            return true;
    return false;
}
