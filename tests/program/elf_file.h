// What a program file of this machine's own format says about itself.
#pragma once

#include <link.h>

#include <string>
#include <vector>

class elf_file {
public:
    // Throws std::runtime_error for what cannot be read or is no such file.
    explicit elf_file(const std::string &path);

    // Names of the libraries that are loaded with it.
    std::vector<std::string> libraries() const;
    // Names that these libraries have to provide.
    std::vector<std::string> undefined_names() const;
    // Whether it may be loaded anywhere and is a program, no library.
    bool is_position_independent_program() const;
    // Whether every name is looked up before it runs.
    bool binds_at_start() const;
    // Whether there is a segment of this type, and its flags.
    const ElfW(Phdr) * segment(unsigned type) const;

private:
    template <typename entry> const entry *at(size_t offset, size_t count = 1) const;
    const ElfW(Shdr) * section(unsigned type) const;
    // The value of a dynamic entry; 0 when there is none.
    size_t dynamic_value(long tag) const;
    std::string text_of(const ElfW(Shdr) * names, size_t offset) const;

    std::string content_;
    const ElfW(Ehdr) * header_;
};
