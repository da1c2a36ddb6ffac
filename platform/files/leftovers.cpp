#include "leftovers.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::string_view random_part = "XXXXXX";
constexpr time_t youngest_age = 60; // seconds

bool is_letter_or_digit(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Takes a text off the front of another; false: it does not begin so.
bool take(std::string_view &text, std::string_view beginning)
{
    if (text.size() < beginning.size() || memcmp(text.data(), beginning.data(), beginning.size()) != 0)
        return false;
    text.remove_prefix(beginning.size());
    return true;
}

bool is_temporary_of(std::string_view entry, std::string_view name)
{
    std::string_view separator = temporary_suffix;
    separator.remove_suffix(random_part.size());
    if (!take(entry, ".") || !take(entry, name) || !take(entry, separator) ||
        entry.size() != random_part.size())
        return false;
    for (const char c : entry)
        if (!is_letter_or_digit(c))
            return false;
    return true;
}

bool is_old_file(int directory, const char *entry)
{
    struct stat status;
    return fstatat(directory, entry, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
           time(nullptr) - status.st_mtim.tv_sec > youngest_age;
}

} // namespace

void remove_leftovers(const char *path)
{
    const char *const name = strrchr(path, '/') + 1;
    char *const directory_path = strndup(path, static_cast<size_t>(name - path));
    DIR *const directory = directory_path ? opendir(directory_path) : nullptr;
    free(directory_path);
    if (!directory)
        return;
    while (const dirent *const entry = readdir(directory)) {
        if (is_temporary_of(entry->d_name, name) && is_old_file(dirfd(directory), entry->d_name))
            (void)unlinkat(dirfd(directory), entry->d_name, 0);
    }
    closedir(directory);
}
