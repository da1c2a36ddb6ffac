#include "modify/import.h"

#include "base/log.h"
#include "base/os.h"
#include "base/own_file.h"
#include "create/create.h"
#include "remove/delete_all.h"
#include "service/policies.h"

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
    if (!remove_file(path))
        log_error("Failed to delete custom korvel config file: %s", path);
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

void import_definition(const char *path, bool is_first)
{
    char text[definition_size + 1];
    if (!read_definition(path, text))
        return;
    if (is_usable(text)) {
        wan_config config = {};
        parse_definition(text, &config);
        if (is_first)
            wan_delete_all();
        (void)wan_create(&config, 0); // it logs what refuses it
    }
    remove_input(path);
}

} // namespace

void wan_import_custom()
{
    definition_path paths[most_definitions] = {};
    const int count = read_list(paths);
    if (count < 0)
        return;
    remove_input(list_path);
    for (int i = 0; i < count; i++)
        import_definition(paths[i].text, i == 0);
}
