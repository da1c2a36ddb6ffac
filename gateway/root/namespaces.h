// Namespaces of one's own, and mounts in them that nobody else sees.
#pragma once

// By whose rights namespaces were made: the machine's root, or an ordinary user who is root of a user
// namespace only.
enum class tree_owner { root, user };

// Moves this process, which must have one thread, to new namespaces: CLONE_NEW... values. Root without the
// right to make them, as in many containers, gets the user's way in. Throws std::system_error, whose text
// names the step.
tree_owner enter_namespaces(int namespaces);

// In a new mount namespace: keeps what is mounted from now on from the machine. The process's root becomes
// that of the namespace, if it was another (after chroot), and its directory that root. Throws
// std::system_error, whose text names the step.
void separate_mounts();
