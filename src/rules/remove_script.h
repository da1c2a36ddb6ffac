// Takes a generated script back.
#pragma once

// Removes a script: runs it with "-r", so that it takes back what it installed, and then the file goes. A
// script that does not exist is left alone. Returns false when the file stayed.
bool remove_script(const char *path);
