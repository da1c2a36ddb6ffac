// Writes, reads and applies the lines of delta files.
#include "delta.h"

#include <cstdlib>
#include <cstring>

#include "change.h"
#include "export.h"
#include "names.h"
#include "tuple.h"

namespace uci {
namespace {

// What a line may or must hold besides package and section.
enum class part { forbidden, optional, required };

struct line_form {
    char sign; // 0: the line begins with the package
    uci_command command;
    part option;
    part value;
};

constexpr line_form line_forms[] = {
    {'+', UCI_CMD_ADD, part::forbidden, part::required},
    {'-', UCI_CMD_REMOVE, part::optional, part::optional},
    {0, UCI_CMD_CHANGE, part::optional, part::required},
    {'@', UCI_CMD_RENAME, part::optional, part::required},
    {'^', UCI_CMD_REORDER, part::forbidden, part::required},
    {'|', UCI_CMD_LIST_ADD, part::required, part::required},
    {'~', UCI_CMD_LIST_DEL, part::required, part::required},
};

const line_form &form_of_sign(char sign)
{
    const line_form *unsigned_form = nullptr;
    for (const line_form &form : line_forms) {
        if (form.sign == sign)
            return form;
        if (!form.sign)
            unsigned_form = &form;
    }
    return *unsigned_form;
}

const line_form &form_of_command(uci_command command)
{
    return line_forms[command];
}

constexpr bool forms_are_in_command_order()
{
    int expected = 0;
    for (const line_form &form : line_forms)
        if (form.command != expected++)
            return false;
    return true;
}
static_assert(forms_are_in_command_order());

bool fits(part rule, const char *text)
{
    return text ? rule != part::forbidden : rule != part::required;
}

bool is_well_formed(const line_form &form, const uci_ptr &what)
{
    if (!what.section || !valid_name(what.section) || !fits(form.option, what.option) ||
        !fits(form.value, what.value))
        return false;
    long position;
    switch (form.command) {
    case UCI_CMD_RENAME:
        return valid_name(what.value);
    case UCI_CMD_REORDER:
        return parse_index(what.value, &position);
    default:
        return true;
    }
}

int apply_add(uci_ptr *ptr)
{
    if (ptr->s)
        return apply_set(ptr);
    if (!valid_type(ptr->value))
        return UCI_ERR_INVAL;
    return create_section(full(ptr->p), ptr->value, ptr->section, naming::anonymous, &ptr->s);
}

int apply_position(uci_ptr *ptr)
{
    if (!ptr->s)
        return UCI_ERR_NOTFOUND;
    move_section(ptr->s, strtol(ptr->value, nullptr, 10));
    return UCI_OK;
}

int apply_line(package *p, const delta_reader::line &line)
{
    uci_ptr ptr = line.what;
    ptr.p = p;
    const int code = resolve_in_package(&ptr);
    if (code != UCI_OK)
        return code;
    switch (line.command) {
    case UCI_CMD_ADD:
        return apply_add(&ptr);
    case UCI_CMD_REMOVE:
        return apply_delete(&ptr);
    case UCI_CMD_CHANGE:
        return apply_set(&ptr);
    case UCI_CMD_RENAME:
        return apply_rename(&ptr);
    case UCI_CMD_REORDER:
        return apply_position(&ptr);
    case UCI_CMD_LIST_ADD:
        return apply_add_list(&ptr);
    case UCI_CMD_LIST_DEL:
        return apply_del_list(&ptr);
    }
    return UCI_ERR_INVAL;
}

} // namespace

bool delta_reader::next(line *out)
{
    while (words_.next_line()) {
        const bool usable = read_line(out);
        words_.skip_line();
        out->begin = words_.line_start();
        out->end = words_.position();
        if (usable)
            return true;
    }
    return false;
}

bool delta_reader::read_line(line *out)
{
    const line_form &form = form_of_sign(words_.next_byte());
    if (form.sign)
        words_.skip_byte();
    char *tuple;
    if (words_.next_word(&tuple) || !tuple)
        return false;
    if (words_.end() != word_end::newline && words_.end() != word_end::data)
        return false;
    if (parse_tuple(&out->what, tuple) != UCI_OK || strcmp(out->what.package, package_name_) != 0)
        return false;
    out->command = form.command;
    return is_well_formed(form, out->what);
}

size_t finished_size(bytes source)
{
    word_reader words(source.data.get(), source.size);
    while (words.next_line()) {
        char *word;
        if (words.next_word(&word) && words.end() == word_end::data)
            return words.line_start();
        words.skip_line();
    }
    return source.size;
}

void write_change(FILE *stream, const char *package_name, const uci_delta *delta)
{
    const char sign = form_of_command(delta->cmd).sign;
    if (sign)
        putc(sign, stream);
    fprintf(stream, "%s.%s", package_name, delta->section);
    if (delta->e.name)
        fprintf(stream, ".%s", delta->e.name);
    if (delta->value) {
        putc('=', stream);
        write_quoted(stream, delta->value);
    }
    putc('\n', stream);
}

int apply_delta(package *p, bytes source, size_t *applied)
{
    delta_reader reader(p->e.name, source);
    delta_reader::line line;
    while (reader.next(&line)) {
        const change seen = {line.command, line.what.section, line.what.option, line.what.value};
        if (has_flag(p->ctx, UCI_FLAG_SAVED_DELTA) && !append_change(&p->saved_delta, seen))
            return UCI_ERR_MEM;
        const int code = apply_line(p, line);
        // A removal needs no memory; there this code means a value that is no index.
        if (code == UCI_ERR_MEM && line.command != UCI_CMD_REMOVE)
            return code;
        if (code == UCI_OK)
            ++*applied;
    }
    return UCI_OK;
}

} // namespace uci
