#include "rules/script_name.h"

#include "base/log.h"

#include <cstring>

bool is_script_name(const char *name)
{
    constexpr char harmless[] = "abcdefghijklmnopqrstuvwxyz"
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                "0123456789._:@-";
    return name[strspn(name, harmless)] == '\0';
}

bool may_stand_in_script(const char *name, const char *path)
{
    if (is_script_name(name))
        return true;
    log_error("Left out of %s, not a device's name: %s", path, name);
    return false;
}
