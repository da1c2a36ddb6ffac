// What an operation does to the machine, step by step, in a form that outlives the process: each step names
// its file, what the file held before, and what it holds afterwards.
#pragma once

#include "base/text.h"

#include <cstdint>

// What a path holds, as far as it takes to recognise it.
struct content_mark {
    // other: a directory, a link, a pipe; unreadable: the system refuses to tell, and errno says why
    enum kind_type : char { nothing, file, other, unreadable };
    kind_type kind;
    uint64_t size, hash; // of a file

    bool operator==(const content_mark &) const = default;
};
content_mark mark_of(const char *path);
content_mark mark_of_empty_file();

enum class step_kind : char {
    replace = '=',   // renames the temporary onto a configuration
    empty = '0',     // empties a file of pending changes
    put = '+',       // renames the temporary onto a script
    take_back = '-', // runs a script with -r and removes it
    remove = 'x',    // removes a file
    run = '!',       // runs a command
};

struct step {
    step_kind kind;
    unsigned stage; // stages begin with 0; one is complete, commands included, before the next begins
    content_mark before, after;
    char path[256];      // the file or the command
    char temporary[256]; // replace and put: the new content, beside the file
    char note[128];      // replace and empty: the configuration's name; take_back and remove: the log text of
                         // a removal that fails
};

// Steps in their order. Adding fails when memory is short.
class step_list {
public:
    step_list() = default;
    ~step_list();
    step_list(const step_list &) = delete;
    step_list &operator=(const step_list &) = delete;

    size_t size() const { return size_; }
    step *begin() { return steps_; }
    step *end() { return steps_ + size_; }
    const step *begin() const { return steps_; }
    const step *end() const { return steps_ + size_; }
    step &operator[](size_t index) { return steps_[index]; }
    const step &operator[](size_t index) const { return steps_[index]; }

    bool add(const step &added) { return insert(size_, added); }
    bool insert(size_t index, const step &added);
    void erase(size_t index);
    void swap(step_list &other);

private:
    step *steps_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// Removes the temporaries that have not been renamed.
void drop_temporaries(const step_list &steps);

// The steps as text, each field on a line of its own, with a checksum as the last line. Null when memory is
// short; the caller frees it. No field may have a line feed.
char *print_steps(const step_list &steps, size_t *size_out);

// Reads that text. False: it is not whole, or memory is short.
bool parse_steps(const char *text, size_t size, step_list &steps_out);
