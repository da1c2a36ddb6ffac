// A small file system over a directory, to write to when it is full or read-only.
#pragma once

#include <cstddef>
#include <string>

class small_disk {
public:
    // Mounts an empty file system of that many bytes over the directory, with the files that were there
    // copied into it. Throws std::runtime_error when that fails.
    explicit small_disk(std::string directory, size_t bytes = 256 * 1024);
    // Takes it away again; the directory is what it was before.
    ~small_disk();
    small_disk(const small_disk &) = delete;
    small_disk &operator=(const small_disk &) = delete;

    // Leaves no room for a new file's content but for that many pages of 4096 bytes; an empty file can still
    // be made.
    void fill(size_t pages_left = 0);
    // Gives back what fill() took.
    void empty_again();
    void make_read_only();
    void make_writable();

private:
    void remount(unsigned long flags);
    std::string directory_;
    std::string ballast_;
};
