// The classes of characters, for a C library that shows no table of its own. Nothing in the daemon asks for
// one; the compiler's C++ headers do not compile without it.
#pragma once

namespace std {

struct ctype_base {
    using mask = unsigned short;
    using __to_type = const int *;
    static const mask upper = 1, lower = 2, alpha = 4, digit = 8, xdigit = 16, space = 32, print = 64,
                      cntrl = 128, punct = 256, blank = 512, alnum = alpha | digit, graph = alnum | punct;
};

} // namespace std
