// Tells the system services to take up a changed configuration.
#pragma once

#include <initializer_list>

// Runs "/etc/init.d/<name> reload" for each service, in order, and waits for it. The names are literals.
void reload_services(std::initializer_list<const char *> names);
