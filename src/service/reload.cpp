#include "service/reload.h"

#include "base/os.h"

void reload_services(std::initializer_list<const char *> names)
{
    for (const char *const name : names) {
        char command[64];
        text_ref(command).format("/etc/init.d/%s reload", name);
        run_command(command);
    }
}
