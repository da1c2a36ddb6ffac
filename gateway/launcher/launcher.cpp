// korvel-gateway: boots a virtual gateway on this machine, for demonstrations and for looking around.
#include "launcher/launcher_options.h"
#include "launcher/launched_program.h"
#include "root/find_program.h"
#include "root/gateway_root.h"
#include "tools/places.h"
#include "tools/programs.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

constexpr int status_usage = 2;

constexpr char shell_greeting[] =
    R"(This is a virtual gateway; `exit` ends it, and nothing in it reaches your machine.

A WAN is added and looked at by

  ubus call korvel add '{"wanMode":1,"ipProtocol":1,"vlanMode":true,"vid":100,"mtu":1500,"service":1,"autoDns":true}'
  ubus call korvel get '{"wanId":1}'

and further

  ubus -v list korvel            the methods of korvel
  ubus call korvel all           the WANs
  uci show network               the configuration
  cat /gateway/journal           commands that korvel has started
  cat /gateway/log               the system log

)";

std::function<bool()> object_is_there(const char *object)
{
    return [object] { return run_silently({"ubus", "-S", "list", object}) == 0; };
}

// The gateway's programs; ended in reverse order.
struct running_gateway {
    explicit running_gateway(const std::string &pace)
        : network{{"gateway-netd", "--pace", pace}, object_is_there("network")}
    {}

    launched_program log{{"gateway-tool", "syslogd"}, [] { return fs::exists(log_socket_path); }};
    launched_program bus{{"ubusd"}, [] { return run_silently({"ubus", "-S", "list"}) == 0; }};
    launched_program network;
    std::unique_ptr<launched_program> korvel;
};

void copy_config(const std::string &directory)
{
    if (directory.empty())
        return;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory))
        fs::copy(entry.path(), fs::path("/etc/config") / entry.path().filename(),
                 fs::copy_options::overwrite_existing);
}

// Only the gateway's own programs are replaced, whatever else the directory has.
void take_programs(const std::string &directory)
{
    if (directory.empty())
        return;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
        const fs::path place = gateway_bin / entry.path().filename();
        if (fs::remove(place))
            fs::create_symlink(entry.path(), place);
    }
}

int run_command(const launcher_options &options)
{
    if (!options.command.empty())
        return wait_for_program(start_program(options.command, ""));
    (void)fputs(shell_greeting, stdout);
    (void)fflush(stdout);
    setenv("PS1", "gateway:\\w# ", 1);
    fs::current_path("/root");
    return wait_for_program(start_program({"sh", "-i"}, ""));
}

void show(const char *title, const char *path)
{
    std::cout << title << '\n' << std::ifstream(path).rdbuf() << std::flush;
    std::cout.clear(); // an empty file counts as a failure
}

int run_booted(const launcher_options &options)
{
    (void)run_silently(
        {"/etc/init.d/boot", "boot"}); // as on a gateway, what fails there does not keep it from booting
    running_gateway gateway(options.pace);
    if (options.start_korvel)
        gateway.korvel =
            std::make_unique<launched_program>(command_words{"korvel", "-d"}, object_is_there("korvel"));
    return run_command(options);
}

int run_gateway(const launcher_options &options)
{
    copy_config(options.config);
    take_programs(options.programs);
    const int status = options.bare ? run_command(options) : run_booted(options);
    if (options.show_journal)
        show("Started commands:", journal_path);
    if (options.show_log)
        show("System log:", log_path);
    return status;
}

// An absolute path means the same inside, where the working directory may be another.
private_root_options root_options(launcher_options &options)
{
    private_root_options root = gateway_root_options();
    for (std::string *const directory : {&options.config, &options.programs}) {
        if (directory->empty())
            continue;
        *directory = fs::canonical(*directory);
        root.passed.push_back({*directory, false});
    }
    return root;
}

int launch(launcher_options options)
{
    if (options.help) {
        (void)fputs(launcher_usage, stdout);
        return 0;
    }
    return enter_gateway(root_options(options), [&options] {
        try {
            return run_gateway(options);
        } catch (const std::exception &failure) {
            (void)fprintf(stderr, "korvel-gateway: %s\n", failure.what());
            return private_root_failed;
        }
    });
}

} // namespace

int main(int argc, char *argv[])
{
    try {
        return launch(parse_launcher_options(argc, argv));
    } catch (const std::invalid_argument &failure) {
        (void)fprintf(stderr, "korvel-gateway: %s\n%s", failure.what(), launcher_usage);
        return status_usage;
    } catch (const std::exception &failure) {
        (void)fprintf(stderr, "korvel-gateway: %s\n", failure.what());
        return private_root_failed;
    }
}
