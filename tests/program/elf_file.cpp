#include "program/elf_file.h"

#include <cstring>
#include <fstream>
#include <span>
#include <sstream>
#include <stdexcept>

elf_file::elf_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    content_ = content.str();
    if (!in || content_.size() < sizeof(*header_) || content_.compare(0, SELFMAG, ELFMAG) != 0)
        throw std::runtime_error("no program file: " + path);
    header_ = at<ElfW(Ehdr)>(0);
    if (header_->e_shentsize != sizeof(ElfW(Shdr)) || header_->e_phentsize != sizeof(ElfW(Phdr)))
        throw std::runtime_error("a program file of another machine: " + path);
}

template <typename entry> const entry *elf_file::at(size_t offset, size_t count) const
{
    if (offset > content_.size() || count > (content_.size() - offset) / sizeof(entry))
        throw std::runtime_error("a program file that is cut off");
    return reinterpret_cast<const entry *>(content_.data() + offset);
}

const ElfW(Phdr) * elf_file::segment(unsigned type) const
{
    for (const ElfW(Phdr) & segment :
         std::span(at<ElfW(Phdr)>(header_->e_phoff, header_->e_phnum), header_->e_phnum))
        if (segment.p_type == type)
            return &segment;
    return nullptr;
}

const ElfW(Shdr) * elf_file::section(unsigned type) const
{
    for (const ElfW(Shdr) & section :
         std::span(at<ElfW(Shdr)>(header_->e_shoff, header_->e_shnum), header_->e_shnum))
        if (section.sh_type == type)
            return &section;
    throw std::runtime_error("a program file without a section that every program has");
}

std::string elf_file::text_of(const ElfW(Shdr) * names, size_t offset) const
{
    const char *const text = at<char>(names->sh_offset, names->sh_size);
    if (offset >= names->sh_size)
        throw std::runtime_error("a name outside its section");
    return {text + offset, strnlen(text + offset, names->sh_size - offset)};
}

std::vector<std::string> elf_file::libraries() const
{
    const ElfW(Shdr) *const dynamic = section(SHT_DYNAMIC);
    const ElfW(Shdr) *const names = at<ElfW(Shdr)>(header_->e_shoff, header_->e_shnum) + dynamic->sh_link;
    const size_t count = dynamic->sh_size / sizeof(ElfW(Dyn));
    std::vector<std::string> result;
    for (const ElfW(Dyn) & entry : std::span(at<ElfW(Dyn)>(dynamic->sh_offset, count), count))
        if (entry.d_tag == DT_NEEDED)
            result.push_back(text_of(names, entry.d_un.d_val));
    return result;
}

std::vector<std::string> elf_file::undefined_names() const
{
    const ElfW(Shdr) *const symbols = section(SHT_DYNSYM);
    const ElfW(Shdr) *const names = at<ElfW(Shdr)>(header_->e_shoff, header_->e_shnum) + symbols->sh_link;
    const size_t count = symbols->sh_size / sizeof(ElfW(Sym));
    std::vector<std::string> result;
    for (const ElfW(Sym) & symbol : std::span(at<ElfW(Sym)>(symbols->sh_offset, count), count))
        if (symbol.st_shndx == SHN_UNDEF && symbol.st_name != 0)
            result.push_back(text_of(names, symbol.st_name));
    return result;
}

size_t elf_file::dynamic_value(long tag) const
{
    const ElfW(Shdr) *const dynamic = section(SHT_DYNAMIC);
    const size_t count = dynamic->sh_size / sizeof(ElfW(Dyn));
    for (const ElfW(Dyn) & entry : std::span(at<ElfW(Dyn)>(dynamic->sh_offset, count), count))
        if (entry.d_tag == tag)
            return entry.d_un.d_val;
    return 0;
}

bool elf_file::is_position_independent_program() const
{
    return header_->e_type == ET_DYN && (dynamic_value(DT_FLAGS_1) & DF_1_PIE) != 0;
}

bool elf_file::binds_at_start() const
{
    return (dynamic_value(DT_FLAGS) & DF_BIND_NOW) != 0 || (dynamic_value(DT_FLAGS_1) & DF_1_NOW) != 0;
}
