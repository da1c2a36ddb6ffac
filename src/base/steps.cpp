#include "base/steps.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// As FNV-1a, but by words, with the high bits brought down after each, since a product carries upwards only:
// a configuration is hashed several times for each change. What it tells apart is what programs write by
// accident or by right, not what they forge.
constexpr uint64_t hash_start = 0xcbf29ce484222325;

uint64_t hash_word(uint64_t hash, uint64_t word)
{
    hash = (hash ^ word) * 0x9e3779b97f4a7c15;
    return hash ^ (hash >> 32);
}

// What comes before, in an earlier call, must fill whole words.
uint64_t hash_on(uint64_t hash, const char *data, size_t size)
{
    uint64_t word = 0;
    for (; size >= sizeof(word); data += sizeof(word), size -= sizeof(word)) {
        memcpy(&word, data, sizeof(word));
        hash = hash_word(hash, word);
    }
    word = 0;
    memcpy(&word, data, size);
    return hash_word(hash, word + (uint64_t{size} << 56));
}

// Fills a block, which is less only at the file's end. False: the file cannot be read.
bool read_block(int file, std::span<char> block, size_t *length_out)
{
    *length_out = 0;
    ssize_t count = 0;
    do {
        count = read(file, block.data() + *length_out, block.size() - *length_out);
        *length_out += static_cast<size_t>(count > 0 ? count : 0);
    } while (count > 0 && *length_out < block.size());
    return count >= 0;
}

// Otherwise there are files that lstat() fails on and readdir() stops at.
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8, "build with _FILE_OFFSET_BITS=64");

content_mark mark_of_file(int file)
{
    content_mark mark = {content_mark::file, 0, hash_start};
    alignas(uint64_t) char block[16384];
    size_t length = 0;
    do {
        if (!read_block(file, block, &length))
            return {content_mark::unreadable, 0, 0};
        mark.size += length;
        if (length > 0)
            mark.hash = hash_on(mark.hash, block, length);
    } while (length == sizeof(block));
    return mark;
}

} // namespace

content_mark mark_of(const char *path)
{
    struct stat info;
    if (lstat(path, &info) != 0) {
        const bool is_missing = errno == ENOENT || errno == ENOTDIR;
        return {is_missing ? content_mark::nothing : content_mark::unreadable, 0, 0};
    }
    if (!S_ISREG(info.st_mode))
        return {content_mark::other, 0, 0};
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return {content_mark::unreadable, 0, 0};
    const content_mark mark = mark_of_file(file);
    (void)close(file);
    return mark;
}

content_mark mark_of_empty_file()
{
    return {content_mark::file, 0, hash_start};
}

step_list::~step_list()
{
    free(steps_);
}

bool step_list::insert(size_t index, const step &added)
{
    if (size_ == capacity_) {
        const size_t wanted = capacity_ == 0 ? 16 : capacity_ * 2;
        step *const grown = static_cast<step *>(realloc(steps_, wanted * sizeof(step)));
        if (!grown)
            return false;
        steps_ = grown;
        capacity_ = wanted;
    }
    memmove(steps_ + index + 1, steps_ + index, (size_ - index) * sizeof(step));
    steps_[index] = added;
    size_++;
    return true;
}

void step_list::erase(size_t index)
{
    size_--;
    memmove(steps_ + index, steps_ + index + 1, (size_ - index) * sizeof(step));
}

void step_list::swap(step_list &other)
{
    std::swap(steps_, other.steps_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
}

void drop_temporaries(const step_list &steps)
{
    for (const step &each : steps)
        if (!text_empty(each.temporary))
            (void)unlink(each.temporary);
}

namespace {

constexpr char heading[] = "korvel record 1\n";
constexpr char step_pattern[] =
    "%c %u %d %" PRIu64 " %016" PRIx64 " %d %" PRIu64 " %016" PRIx64 "\n%s\n%s\n%s\n";
constexpr char end_pattern[] = "end %016" PRIx64 "\n";
constexpr size_t end_size = sizeof("end 0123456789abcdef\n") - 1;
constexpr size_t most_step_size = sizeof(step) + 128;

// Takes a line off the front of a text, without its line feed; false: there is none, or no room for it.
bool take_line(std::string_view &text, text_ref line_out)
{
    const size_t length = text.find('\n');
    if (length == text.npos || length >= line_out.size)
        return false;
    line_out.set({text.data(), length});
    text.remove_prefix(length + 1);
    return true;
}

bool is_kind(char kind)
{
    return kind != '\0' && strchr("=0+-x!", kind);
}

bool take_step(std::string_view &text, step &step_out)
{
    char line[128], kind = '\0';
    int before = 0, after = 0;
    if (!take_line(text, line) ||
        sscanf(line, "%c %u %d %" SCNu64 " %" SCNx64 " %d %" SCNu64 " %" SCNx64, &kind, &step_out.stage,
               &before, &step_out.before.size, &step_out.before.hash, &after, &step_out.after.size,
               &step_out.after.hash) != 8 ||
        !is_kind(kind))
        return false;
    step_out.kind = static_cast<step_kind>(kind);
    step_out.before.kind = static_cast<content_mark::kind_type>(before);
    step_out.after.kind = static_cast<content_mark::kind_type>(after);
    return take_line(text, step_out.path) && take_line(text, step_out.temporary) &&
           take_line(text, step_out.note);
}

} // namespace

char *print_steps(const step_list &steps, size_t *size_out)
{
    const size_t room = sizeof(heading) + steps.size() * most_step_size + end_size + 1;
    char *const text = static_cast<char *>(malloc(room));
    if (!text)
        return nullptr;
    size_t length = static_cast<size_t>(snprintf(text, room, "%s", heading));
    for (const step &each : steps)
        length += static_cast<size_t>(
            snprintf(text + length, room - length, step_pattern, static_cast<char>(each.kind), each.stage,
                     each.before.kind, each.before.size, each.before.hash, each.after.kind, each.after.size,
                     each.after.hash, each.path, each.temporary, each.note));
    const uint64_t hash = hash_on(hash_start, text, length);
    length += static_cast<size_t>(snprintf(text + length, room - length, end_pattern, hash));
    *size_out = length;
    return text;
}

bool parse_steps(const char *text, size_t size, step_list &steps_out)
{
    if (size < end_size)
        return false;
    char end[end_size + 1];
    (void)snprintf(end, sizeof(end), end_pattern, hash_on(hash_start, text, size - end_size));
    if (memcmp(end, text + size - end_size, end_size) != 0)
        return false;
    std::string_view rest(text, size - end_size);
    char line[sizeof(heading)];
    if (!take_line(rest, line) || strncmp(line, heading, sizeof(heading) - 2) != 0)
        return false;
    while (!rest.empty()) {
        step next = {};
        if (!take_step(rest, next) || !steps_out.add(next))
            return false;
    }
    return true;
}
