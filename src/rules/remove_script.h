// Takes a generated script back.
#pragma once

// Runs a script with "-r", so that it removes what it installed, and deletes it. A script that does not exist
// is left alone. Returns false when the file could not be deleted.
bool remove_script(const char *path);
