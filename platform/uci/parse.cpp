// The grammar of configuration files, over the words of words.h.
#include "parse.h"

#include <cstdio>
#include <string_view>

#include "change.h"
#include "errors.h"
#include "names.h"
#include "words.h"

namespace uci {
namespace {

class file_parser {
public:
    // A null package: `package` lines make packages.
    file_parser(context *ctx, package *p, bytes &source)
        : ctx_(ctx), words_(source.data.get(), source.size), package_(p), switching_(!p)
    {}

    int run();
    package *current() const { return package_; }

private:
    struct command;
    static const command commands[];

    int parse_line();
    int parse_command();
    int parse_package_command(size_t start);
    int parse_config(size_t start);
    int parse_option(size_t start);
    int parse_list(size_t start);

    int open_section(const char *type, const char *name);
    int switch_package(const char *name);
    int read_assignment(size_t start, char **name, const char **value);
    int read_required(char **word);
    int read_optional(char **word);
    int read_end();
    int fail(const char *reason, size_t byte);
    bool is_strict() const { return has_flag(ctx_, UCI_FLAG_STRICT); }

    context *ctx_;
    word_reader words_;
    package *package_;
    uci_section *section_ = nullptr;
    bool switching_;
};

struct file_parser::command {
    std::string_view name, short_name;
    const char *nothing_behind; // the error of a text that ends with the keyword
    int (file_parser::*parse)(size_t start);
};

constexpr file_parser::command file_parser::commands[] = {
    // Those of which files have most come first.
    {"option", "o", "option without name", &file_parser::parse_option},
    {"list", "l", "option without name", &file_parser::parse_list},
    {"config", "c", "config without name", &file_parser::parse_config},
    {"package", "p", "package without name", &file_parser::parse_package_command},
};

int file_parser::run()
{
    while (words_.next_line()) {
        const int code = parse_line();
        if (code == UCI_OK)
            continue;
        if (code != UCI_ERR_PARSE || is_strict())
            return code;
        if (has_flag(ctx_, UCI_FLAG_PERROR)) {
            const text message = error_text(ctx_, code, nullptr);
            fprintf(stderr, "%s\n", message ? message.get() : "Parse error");
        }
        ctx_->failure = {};
    }
    return UCI_OK;
}

int file_parser::parse_line()
{
    int code = parse_command();
    while (code == UCI_OK && words_.end() == word_end::command) {
        words_.skip_blanks();
        code = parse_command();
    }
    return code;
}

int file_parser::parse_command()
{
    const size_t start = words_.offset();
    const std::string_view keyword = words_.keyword();
    for (const command &row : commands) {
        if (keyword != row.name && keyword != row.short_name)
            continue;
        if (words_.at_data_end())
            return fail(row.nothing_behind, start);
        return (this->*row.parse)(start);
    }
    return fail("invalid command", start);
}

int file_parser::parse_package_command(size_t)
{
    char *name;
    int code = read_required(&name);
    if (code != UCI_OK)
        return code;
    if (!valid_package_line(name))
        return fail("invalid character in name field", words_.offset());
    code = read_end();
    if (code != UCI_OK)
        return code;
    return switching_ ? switch_package(name) : UCI_OK;
}

int file_parser::switch_package(const char *name)
{
    if (find_element(&ctx_->root, name))
        return UCI_ERR_DUPLICATE;
    package_ = new_package(ctx_, name);
    if (!package_)
        return UCI_ERR_MEM;
    list_append(&ctx_->root, &package_->e.list);
    section_ = nullptr;
    return UCI_OK;
}

int file_parser::parse_config(size_t start)
{
    if (!package_)
        return fail("attempting to import a file without a package name", start);
    char *type, *name;
    int code = read_required(&type);
    if (code != UCI_OK)
        return code;
    if (!valid_type(type))
        return fail("invalid character in type field", words_.offset());
    code = read_optional(&name);
    if (code != UCI_OK)
        return code;
    if (name && !valid_name(name))
        return fail("invalid character in name field", words_.offset());
    code = read_end();
    return code == UCI_OK ? open_section(type, name) : code;
}

// A null name: anonymous, and never merged into a section that is there.
int file_parser::open_section(const char *type, const char *name)
{
    uci_section *const existing = name ? find_section(package_, name) : nullptr;
    if (!existing)
        return create_section(package_, type, name, name ? naming::named : naming::anonymous, &section_);
    if (is_strict() && strcmp(existing->type, type) != 0)
        return fail("section of different type overwrites prior section with same name", words_.offset());
    section_ = existing;
    return change_type(existing, type);
}

int file_parser::parse_option(size_t start)
{
    char *name;
    const char *value;
    const int code = read_assignment(start, &name, &value);
    if (code != UCI_OK || !*value)
        return code;
    return set_option(section_, name, value);
}

int file_parser::parse_list(size_t start)
{
    char *name;
    const char *value;
    const int code = read_assignment(start, &name, &value);
    return code == UCI_OK ? add_to_list(section_, name, value) : code;
}

int file_parser::read_assignment(size_t start, char **name, const char **value)
{
    if (!section_)
        return fail("option/list command found before the first section", start);
    int code = read_required(name);
    if (code != UCI_OK)
        return code;
    if (!valid_name(*name))
        return fail("invalid character in name field", words_.offset());
    char *word;
    code = read_optional(&word);
    if (code != UCI_OK)
        return code;
    *value = word ? word : "";
    return read_end();
}

int file_parser::read_required(char **word)
{
    const char *const reason = words_.next_word(word);
    if (reason)
        return fail(reason, words_.offset());
    if (!*word || !**word)
        return fail("insufficient arguments", words_.physical_line_end());
    return UCI_OK;
}

// A missing word and an empty one are the same: null.
int file_parser::read_optional(char **word)
{
    const char *const reason = words_.next_word(word);
    if (reason)
        return fail(reason, words_.offset());
    if (*word && !**word)
        *word = nullptr;
    return UCI_OK;
}

// Nothing may follow, unless parsing is not strict.
int file_parser::read_end()
{
    for (;;) {
        char *word;
        const char *const reason = words_.next_word(&word);
        if (reason)
            return fail(reason, words_.offset());
        if (!word)
            return UCI_OK;
        if (is_strict())
            return fail("too many arguments", words_.offset());
    }
}

int file_parser::fail(const char *reason, size_t byte)
{
    ctx_->failure = {reason, words_.lines_read(), byte};
    return UCI_ERR_PARSE;
}

} // namespace

int parse_package(package *p, bytes source)
{
    return file_parser(full(p->ctx), p, source).run();
}

int parse_packages(context *ctx, bytes source, package **last_out)
{
    file_parser parser(ctx, nullptr, source);
    const int code = parser.run();
    *last_out = parser.current();
    return code;
}

} // namespace uci
