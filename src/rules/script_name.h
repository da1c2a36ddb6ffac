// Names from the configuration on their way into a script, which a shell runs as root.
#pragma once

// Whether a name may stand in the script of that path: it has nothing but letters, digits and ". _ : @ -".
// Logs one that may not.
bool may_stand_in_script(const char *name, const char *path);

// The same without a message.
bool is_script_name(const char *name);
