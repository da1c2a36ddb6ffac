// A file system view of its own for a test program.
#pragma once

// Gives this process, and what it starts, mounts that nobody else sees and the right to mount. An ordinary
// user becomes root of a name space in which only this user exists. False, with errno, when the system does
// not permit that. To be called before any thread is started.
bool enter_private_mounts();
