// The command-line tool as the tests run it, and a service that it calls.
#pragma once

#include "platform/ubus/daemon_fixture.h"

// Empty for a file that is not there.
std::string file_content(const std::string &path);

class ubus_tool_test : public running_ubusd_test {
protected:
    ~ubus_tool_test() override;

    // Starts a service with the objects t and t.odd and waits until they are there.
    void start_service();
    // Writes a line to the service's standard input.
    void poke_service();
    // Waits until the service's standard output consists of these lines.
    bool service_says(const std::string &text) const;

    // The tool's whole command line: the test's socket, then these.
    program_arguments command(const std::vector<std::string> &args) const;
    // Runs the tool to its end, standard error being no terminal.
    program_result run(const std::vector<std::string> &args) const;
    // The same with standard error a terminal; a line end on it is a plain newline in the result.
    program_result run_on_terminal(const std::vector<std::string> &args) const;

    child_process service;
    int service_input = -1;
};
