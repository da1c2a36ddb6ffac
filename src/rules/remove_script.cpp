#include "rules/remove_script.h"

#include "base/os.h"

bool remove_script(const char *path)
{
    if (!file_exists(path))
        return true;
    char command[64];
    text_ref(command).format("%s -r", path);
    run_command(command);
    return remove_file(path);
}
