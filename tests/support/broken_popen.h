// popen() as it is when no process can be started. A program that uses this links korvel_broken_popen.
#pragma once

#include <string>

// The command for which popen() fails as long as this lives; every other command starts as usual.
class broken_popen {
public:
    explicit broken_popen(const std::string &command);
    ~broken_popen();
    broken_popen(const broken_popen &) = delete;
    broken_popen &operator=(const broken_popen &) = delete;
};
