// Makes the devices with one run of ip, which is an order of magnitude faster than one run for each.
#include "root/root_network.h"

#include "root/find_program.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

std::string device_commands(const private_root_options &options)
{
    std::string commands = "link set lo up\n";
    if (!options.network)
        return commands;
    commands += std::string("link add br-lan address ") + lan_bridge_mac + " type bridge\n" +
                "addr add 192.168.1.1/24 brd + dev br-lan\n"
                "link set br-lan up\n";
    std::vector<std::string> devices = options.ports;
    devices.push_back(options.uplink);
    for (const std::string &device : devices) {
        const std::string far = "far-" + device;
        const char *const master = device == options.uplink ? "" : " master br-lan";
        commands += "link add " + device + " type veth peer name " + far + "\n";
        commands += "link set " + device + master + " up\nlink set " + far + " up\n";
    }
    return commands;
}

int finish(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "wait for ip");
    }
    return status;
}

} // namespace

void bring_up_network(const private_root_options &options)
{
    const std::string program = find_program("ip");
    if (program.empty())
        throw std::runtime_error("make the network: ip is missing, install iproute2");

    // A socket pair: its buffer takes all commands at once, and writing to it raises no SIGPIPE.
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "make a socket pair for ip");
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    const char *const words[] = {"ip", "-batch", "-", nullptr};
    pid_t child = -1;
    const int failure =
        posix_spawn(&child, program.c_str(), &actions, nullptr, const_cast<char *const *>(words), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    (void)close(ends[0]);
    if (failure != 0) {
        (void)close(ends[1]);
        throw std::system_error(failure, std::generic_category(), "start " + program);
    }

    const std::string commands = device_commands(options);
    const ssize_t sent = send(ends[1], commands.data(), commands.size(), MSG_NOSIGNAL);
    (void)close(ends[1]);
    const int status = finish(child);
    if (sent != static_cast<ssize_t>(commands.size()) || status != 0)
        throw std::runtime_error("make the network: ip failed, its message is above");
}
