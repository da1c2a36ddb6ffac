// Included ahead of everything: takes back what the compiler's own C++ headers assume of the C library that
// they were installed with.
#pragma once

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t

#include <bits/c++config.h>

#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
