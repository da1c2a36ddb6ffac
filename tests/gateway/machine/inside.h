// Tests of the private root start on the machine itself: each run enters a root of its own, runs a shell
// command there and leaves again.
#pragma once

#include "root/gateway_root.h"

#include <ostream>
#include <string>
#include <sys/types.h>

// Whose rights a run has: the user's who runs the tests, or those of nobody, who reaches the build also where
// a directory above it is closed to others, as root's home is.
enum class rights { own, nobody };

// Why a run cannot have these rights on this machine; empty when it can.
std::string missing_for(rights who);

inline void PrintTo(rights who, std::ostream *out)
{
    *out << (who == rights::own ? "own" : "nobody");
}

struct inside_result {
    int status;         // as enter_private_root returns it
    std::string output; // standard output and error
};

// Runs `sh -c command` in a gateway with these options.
inside_result run_inside(const private_root_options &options, const std::string &command,
                         rights who = rights::own);

// As run_inside with a gateway's options without a network, which is quicker.
inside_result run_in_gateway(const std::string &command);

// Starts what run_inside runs and returns the process that has entered; its exit status is the result's.
pid_t start_inside(const private_root_options &options, const std::string &command, rights who, int output);

// A directory of the machine that the run's user may write to, removed with its content at the end.
class scratch_directory {
public:
    scratch_directory();
    ~scratch_directory();
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};
