// Passwords: from a file, from standard input, from a person; never from a command line, which everybody can
// read.
#pragma once

#include "base/text.h"
#include "ctl/exit_status.h"

// Reads the first line of a file, or of standard input for "-", as a password; a person at a terminal is
// asked for it, unseen. Tells what is wrong: the file, nothing in it, more than fits.
exit_status read_password(const char *path, text_ref password_out);
