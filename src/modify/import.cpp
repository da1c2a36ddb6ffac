#include "modify/import.h"

#include "base/heap.h"
#include "base/log.h"
#include "base/os.h"
#include "base/own_file.h"
#include "create/create.h"
#include "remove/delete_all.h"
#include "service/change.h"
#include "service/policies.h"

#include <cstdio>
#include <iterator>
#include <span>

namespace {

constexpr char list_path[] = "/tmp/wan_list";
constexpr size_t most_definitions = 8;
constexpr size_t definition_size = 1024; // what is read of a file
constexpr size_t longest_value = 64;

struct definition_path {
    char text[64];
};

void remove_input(const char *path)
{
    char failure[128];
    text_ref(failure).format("Failed to delete custom korvel config file: %s", path);
    remove_file(path, failure);
}

void log_unreadable(const char *path)
{
    log_error("Nothing was imported: %s: %m", path);
}

void log_foreign(const char *path)
{
    log_error("Left custom korvel config file alone, it is not the daemon's own: %s", path);
}

// Takes the paths of the list, one a line; a line too long for a path is read as several. Returns how many,
// or -1 when there is no list or it cannot be read, which is logged.
int read_list(definition_path (&paths_out)[most_definitions])
{
    FILE *list = nullptr;
    const own_file found = open_own_file(list_path, &list);
    if (found == own_file::foreign)
        log_foreign(list_path);
    if (found == own_file::unreadable)
        log_unreadable(list_path);
    if (found != own_file::opened)
        return -1;
    int count = 0;
    char line[sizeof(definition_path)];
    while (count < static_cast<int>(most_definitions) && fgets(line, sizeof(line), list)) {
        line[strcspn(line, "\n")] = '\0';
        if (text_empty(line))
            continue;
        memcpy(paths_out[count].text, line, sizeof(line));
        log_info("Detect custom korvel config file %d: %s\n", count, line);
        count++;
    }
    if (ferror(list)) {
        log_unreadable(list_path);
        count = -1;
    }
    (void)fclose(list);
    return count;
}

// Copies the value behind the first "<key>=" anywhere in the text, when a line feed ends it after 1 to 64
// characters. Deliberate: "vid=" is found inside "mvid=" too.
bool find_value(const char *text, const char *key, char (&value_out)[longest_value + 1])
{
    char pattern[32];
    text_ref(pattern).format("%s=", key);
    const char *const found = strstr(text, pattern);
    if (!found)
        return false;
    const char *const value = found + strlen(pattern);
    const size_t length = strcspn(value, "\n");
    if (length == 0 || length > longest_value || value[length] != '\n')
        return false;
    memcpy(value_out, value, length);
    value_out[length] = '\0';
    return true;
}

bool is_importable(const wan_field &field)
{
    return field.offset != offsetof(wan_config, iphostId);
}

// The definition's keys are the arguments of `add`, but their values are not judged.
void parse_definition(const char *text, wan_config *config)
{
    for (const arg_rule &rule : arg_rules) {
        char value[longest_value + 1];
        if (!is_importable(rule.field) || !find_value(text, rule.field.name, value))
            continue;
        if (rule.field.kind == field_kind::text)
            set_field_text(*config, rule.field, value);
        else
            set_field_number(*config, rule.field, static_cast<uint32_t>(text_number(value)));
    }
}

bool is_usable(const char *text)
{
    if (text[0] == '\0')
        return false;
    if (strstr(text, "wanMode") && strstr(text, "ipProtocol"))
        return true;
    log_error("Failed to parse custom korvel config file: missing required parameters");
    return false;
}

// One definition on its way through the works of the import.
struct definition {
    definition_path path;
    bool is_first;
    own_file found;
    bool is_left, is_usable; // as the works see it: one that is listed twice is gone after the first time
    char text[definition_size + 1];
    wan_config config;
};

// Reads the start of a definition and terminates it, where there is one. False: it is there and cannot be
// read, which is logged.
bool read_definition(definition &self)
{
    FILE *file = nullptr;
    self.found = open_own_file(self.path.text, &file);
    if (self.found == own_file::opened) {
        self.text[fread(self.text, 1, definition_size, file)] = '\0';
        if (ferror(file))
            self.found = own_file::unreadable;
        (void)fclose(file);
    }
    if (self.found == own_file::unreadable)
        log_unreadable(self.path.text);
    return self.found != own_file::unreadable;
}

// Before anything is changed: without one of them the others may stand for another set of WANs, and the list
// that names it would be gone.
bool read_definitions(std::span<definition> all)
{
    for (definition &each : all)
        if (!read_definition(each))
            return false;
    return true;
}

// Judges a definition. The first one takes the place of all WANs.
bool begin_definition(void *argument)
{
    definition &self = *static_cast<definition *>(argument);
    if (self.found == own_file::foreign)
        log_foreign(self.path.text);
    self.is_left = self.found != own_file::opened || !file_exists(self.path.text);
    self.is_usable = !self.is_left && is_usable(self.text);
    self.config = {};
    if (self.is_usable)
        parse_definition(self.text, &self.config);
    if (self.is_usable && self.is_first)
        (void)wan_delete_all();
    return true;
}

bool complete_definition(void *argument)
{
    const definition &self = *static_cast<definition *>(argument);
    if (self.is_usable)
        (void)wan_create(&self.config, 0); // it logs what refuses it
    if (!self.is_left)
        remove_input(self.path.text);
    return true;
}

} // namespace

void wan_import_custom()
{
    definition_path paths[most_definitions] = {};
    const int count = read_list(paths);
    if (count < 0)
        return;
    const heap_ptr<definition[]> definitions(
        static_cast<definition *>(calloc(most_definitions, sizeof(definition))));
    if (!definitions)
        return log_unreadable(list_path);

    for (int i = 0; i < count; i++) {
        definitions[static_cast<size_t>(i)].path = paths[i];
        definitions[static_cast<size_t>(i)].is_first = i == 0;
    }
    if (!read_definitions({definitions.get(), static_cast<size_t>(count)}))
        return;

    auto remove_list = [] {
        remove_input(list_path);
        return true;
    };
    operation_work works[1 + 2 * most_definitions] = {work_of(remove_list)};
    size_t work_count = 1;
    for (int i = 0; i < count; i++) {
        definition &each = definitions[static_cast<size_t>(i)];
        works[work_count++] = {begin_definition, &each};
        works[work_count++] = {complete_definition, &each};
    }
    (void)change_run({works, work_count}, 0); // it logs what fails; the files then stay
}
