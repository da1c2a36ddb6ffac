#include "modify/import.h"

#include "base/heap.h"
#include "base/log.h"
#include "base/operation.h"
#include "base/os.h"
#include "base/own_file.h"
#include "create/create.h"
#include "remove/delete_all.h"
#include "service/policies.h"
#include "service/settings.h"

#include <cstdio>
#include <iterator>

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

// Opens a file of the import. Null when there is none, or when it is not the daemon's own, which is logged.
FILE *open_import(const char *path)
{
    FILE *stream = nullptr;
    if (open_own_file(path, &stream) == own_file::foreign)
        log_error("Left custom korvel config file alone, it is not the daemon's own: %s", path);
    return stream;
}

// Takes the paths of the list, one a line; a line too long for a path is read as several. Returns how many,
// or -1 when there is no list.
int read_list(definition_path (&paths_out)[most_definitions])
{
    FILE *const list = open_import(list_path);
    if (!list)
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

// Reads the start of a definition and terminates it. False when there is no such file, or it stays unread,
// which is logged.
bool read_definition(const char *path, char (&text_out)[definition_size + 1])
{
    FILE *const file = open_import(path);
    if (!file)
        return false;
    text_out[fread(text_out, 1, definition_size, file)] = '\0';
    const bool failed = ferror(file);
    (void)fclose(file);
    if (failed)
        log_error("Failed to read file: %s", path);
    return !failed;
}

// One definition on its way through the works of the import.
struct definition {
    definition_path path;
    bool is_first;
    bool was_read, is_usable;
    wan_config config;
};

// Reads a definition. The first one takes the place of all WANs.
bool begin_definition(void *argument)
{
    definition &self = *static_cast<definition *>(argument);
    char text[definition_size + 1];
    // One that is listed twice is gone after the first time.
    self.was_read = file_exists(self.path.text) && read_definition(self.path.text, text);
    self.is_usable = self.was_read && is_usable(text);
    self.config = {};
    if (self.is_usable)
        parse_definition(text, &self.config);
    if (self.is_usable && self.is_first)
        wan_delete_all();
    return true;
}

bool complete_definition(void *argument)
{
    const definition &self = *static_cast<definition *>(argument);
    if (self.is_usable)
        (void)wan_create(&self.config, 0); // it logs what refuses it
    if (self.was_read)
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
        return log_error("Failed to import: %s: out of memory", list_path);

    auto remove_list = [] {
        remove_input(list_path);
        return true;
    };
    operation_work works[1 + 2 * most_definitions] = {work_of(remove_list)};
    size_t work_count = 1;
    for (int i = 0; i < count; i++) {
        definition &each = definitions[static_cast<size_t>(i)];
        each.path = paths[i];
        each.is_first = i == 0;
        works[work_count++] = {begin_definition, &each};
        works[work_count++] = {complete_definition, &each};
    }
    (void)operation_run({works, work_count}, maxWanId); // it logs what fails; the files then stay
}
