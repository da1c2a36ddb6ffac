#include "support/small_disk.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + strerror(errno));
}

} // namespace

small_disk::small_disk(std::string directory, size_t bytes)
    : directory_(std::move(directory)), ballast_(directory_ + "/.ballast")
{
    const fs::path staged = directory_ + ".staged";
    fs::create_directories(directory_);
    fs::remove_all(staged);
    fs::copy(directory_, staged, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const std::string options = "mode=0755,size=" + std::to_string(bytes);
    if (mount("tmpfs", directory_.c_str(), "tmpfs", 0, options.c_str()) != 0)
        fail("cannot mount over " + directory_);
    fs::copy(staged, directory_, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::remove_all(staged);
}

small_disk::~small_disk()
{
    (void)umount2(directory_.c_str(), MNT_DETACH);
}

void small_disk::fill(size_t pages_left)
{
    const int file = open(ballast_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0)
        fail("cannot make " + ballast_);
    char page[4096] = {};
    size_t size = sizeof(page);
    while (size > 0)
        if (write(file, page, size) != static_cast<ssize_t>(size))
            size /= 2;
    (void)close(file);
    if (pages_left > 0)
        fs::resize_file(ballast_, fs::file_size(ballast_) - pages_left * sizeof(page));
}

void small_disk::empty_again()
{
    (void)unlink(ballast_.c_str());
}

void small_disk::remount(unsigned long flags)
{
    if (mount("tmpfs", directory_.c_str(), "tmpfs", MS_REMOUNT | flags, nullptr) != 0)
        fail("cannot mount again " + directory_);
}

void small_disk::make_read_only()
{
    remount(MS_RDONLY);
}

void small_disk::make_writable()
{
    remount(0);
}
