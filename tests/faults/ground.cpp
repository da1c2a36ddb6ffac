#include "faults/ground.h"

#include "faults/text_list.h"

#include "root/find_program.h"
#include "tools/programs.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr char own_directory[] = "/gateway/faults";
constexpr char reply_path[] = "/gateway/faults/reply";
constexpr char output_path[] = "/gateway/faults/output";
constexpr char reloads_path[] = "/gateway/faults/reloads";

constexpr const char *services[] = {"network", "dnsmasq", "firewall", "miniupnpd", "omcproxy", "call"};

std::vector<std::string> lines_of(const std::string &path)
{
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

void write_program(const fs::path &path, const std::string &text)
{
    fs::remove(path);
    std::ofstream(path) << "#!/bin/sh\n" << text;
    fs::permissions(path, fs::perms(0755));
}

// Children are not what is tried, so they do little: services note that they were reloaded, rules are not
// installed, and interfaces have no addresses.
void quieten_children()
{
    for (const char *const service : services)
        write_program(std::string("/etc/init.d/") + service,
                      std::string("echo $0 >> ") + reloads_path + "\n");
    for (const char *const name : {"ebtables", "ip", "iptables", "ipcalc.sh"}) {
        fs::remove(fs::path(gateway_bin) / name);
        fs::create_symlink("/bin/true", fs::path(gateway_bin) / name);
    }
    std::ofstream("/lib/functions/network.sh")
        << "network_get_ipaddr() { false; }\nnetwork_get_subnet() { false; }\nnetwork_get_gateway() { false; "
           "}\n"
           "network_get_device() { false; }\nnetwork_get_dnsserver() { false; }\n";
    write_program("/sbin/hotplug-call", "");
}

short_memory *map_memory_page()
{
    const int file = open(short_memory_page, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, sizeof(short_memory)) != 0)
        throw std::runtime_error("cannot make the page of allocations");
    void *const page = mmap(nullptr, sizeof(short_memory), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    (void)close(file);
    if (page == MAP_FAILED)
        throw std::runtime_error("cannot map the page of allocations");
    return static_cast<short_memory *>(page);
}

void await_bus(const command_words &sign)
{
    for (unsigned i = 0; i < 1000; i++) {
        if (run_silently(sign) == 0)
            return;
        (void)usleep(2000);
    }
    throw std::runtime_error("the bus does not come up: " + command_line(sign));
}

void end_program(pid_t &program)
{
    if (program <= 0)
        return;
    (void)kill(program, SIGKILL);
    (void)waitpid(program, nullptr, 0);
    program = 0;
}

} // namespace

ground::ground()
{
    (void)umask(022);
    fs::create_directories(own_directory);
    quieten_children();
    memory_ = map_memory_page();
    log_ = start_program({"gateway-tool", "syslogd"}, "/gateway/faults/syslogd");
    start_bus();
}

ground::~ground()
{
    for (pid_t *const program : {&board_, &bus_, &log_})
        end_program(*program);
}

void ground::start_bus()
{
    if (bus_lost_)
        end_program(bus_);
    if (bus_ > 0)
        return;
    bus_lost_ = false;
    end_program(board_);
    bus_ = start_program({"ubusd"}, "/dev/null");
    await_bus({"ubus", "-S", "list"});
    board_ = start_program({"gateway-netd"}, "/dev/null");
    await_bus({"ubus", "-S", "list", "boardinfo"});
}

void ground::lose_bus()
{
    if (bus_ > 0)
        (void)kill(bus_, SIGKILL);
    bus_lost_ = true;
}

std::unique_ptr<traced_program> ground::start_daemon(watch &watched)
{
    auto daemon = std::make_unique<traced_program>(
        std::vector<std::string>{"korvel", "-d"}, std::vector<std::string>{"LD_PRELOAD=" KORVEL_SHORT_MEMORY},
        output_path);
    watched.on_sleep = [this](int milliseconds) { memory_->skipped += milliseconds; };
    watched.follow(*daemon);
    daemon->other_ended = [this](pid_t pid, int status) {
        if (pid == client_) {
            client_ = 0;
            client_status_ = status;
        } else if (pid == bus_) {
            bus_ = 0;
        }
    };
    return daemon;
}

void ground::start_client(const bus_request &request)
{
    client_ = start_program({"ubus", "-S", "-t", "8", "call", "korvel", request.method, request.arguments},
                            reply_path);
}

heard_reply ground::end_client(bool may_still_answer)
{
    for (unsigned i = 0; i < 500 && client_ > 0 && may_still_answer && bus_ > 0; i++) {
        if (waitpid(client_, &client_status_, WNOHANG) == client_)
            client_ = 0;
        else
            (void)usleep(1000);
    }
    const bool ended = client_ == 0;
    end_program(client_);
    heard_reply heard;
    heard.text = joined(lines_of(reply_path));
    const bool ok = ended && WIFEXITED(client_status_) && WEXITSTATUS(client_status_) == 0;
    heard.answered = ok || heard.text.find("\"status\"") != std::string::npos;
    heard.succeeded = heard.answered && heard.text.find("\"status\":-") == std::string::npos;
    return heard;
}

std::string ground::restart()
{
    start_bus();
    watch watched;
    const auto daemon = start_daemon(watched);
    if (!daemon->run_unseen(patience))
        return "hangs at the next start";
    return daemon->ended() ? "does not start again" : "";
}

std::vector<std::string> ground::reloads() const
{
    return lines_of(reloads_path);
}

void ground::forget_reloads()
{
    fs::remove(reloads_path);
}
