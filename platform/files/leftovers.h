// The temporary files beside those that are replaced: how they are named, and how those are removed whose
// writer was stopped before it renamed them.
#pragma once

// In the name of a temporary file a dot and the file's name come first, then this, as mkstemp takes it.
constexpr char temporary_suffix[] = ".uci-XXXXXX";

// Removes temporary files of the file at an absolute path without links. Writers take turns by that file's
// lock or otherwise; for the sake of those that let go of the lock a moment before their rename, files of the
// last minute stay. What cannot be removed stays, too: it is in nobody's way.
void remove_leftovers(const char *path);
