#include "ground.h"

#include "root/find_program.h"
#include "tools/programs.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

const std::vector<wan_kind> wan_kinds = {
    {"PPPoE, both protocols",
     R"("wanMode":1,"ipProtocol":3,"ipMode":2,"napt":true,"prio":5,"mtu":1492,"service":1,"bind":"00000000",)"
     R"("autoDns":true,"autoDnsV6":true,"pppUser":"subscriber@isp.example","pppPwd":"a-password-of-16")",
     {"_6", ""}},
    {"DHCP, both protocols",
     R"("wanMode":1,"ipProtocol":3,"ipMode":0,"napt":true,"mtu":1500,"service":1,"bind":"00000000",)"
     R"("autoDns":true,"autoDnsV6":true)",
     {"_v6", ""}},
    {"static, both protocols",
     R"("wanMode":1,"ipProtocol":3,"ipMode":1,"napt":true,"mtu":1500,"service":1,"bind":"00000000",)"
     R"("ip":"192.0.2.10","mask":"255.255.255.0","gateway":"192.0.2.1","priDns":"192.0.2.53",)"
     R"("ipv6Addr":"2001:db8::10/64","ipv6Gateway":"2001:db8::1")",
     {""}},
    {"bridged", R"("wanMode":0,"ipProtocol":1,"mtu":1500,"service":1,"bind":"00000000")", {}},
    {"PPPoE, IPv4",
     R"("wanMode":1,"ipProtocol":1,"ipMode":2,"napt":true,"mtu":1492,"service":1,"bind":"00000000",)"
     R"("autoDns":true,"pppUser":"subscriber@isp.example","pppPwd":"a-password-of-16")",
     {""}},
    {"DHCP, IPv4",
     R"("wanMode":1,"ipProtocol":1,"ipMode":0,"napt":true,"mtu":1500,"service":1,"bind":"00000000",)"
     R"("autoDns":true)",
     {""}},
};

namespace {

constexpr int first_vid = 100;
constexpr size_t port_count = 8; // of the board
constexpr const char *services[] = {"network", "dnsmasq", "firewall", "miniupnpd", "omcproxy", "call"};
constexpr const char *stored_directories[] = {"/etc/config", "/etc/hotplug.d/iface", "/etc/korvel"};

// A bridged WAN has a script only with a port, and each port is for one WAN.
std::string first_request(int index)
{
    std::string request = wan_request(wan_kind_of(index), first_vid + index);
    if (&wan_kind_of(index) == &wan_kinds[bridged_kind])
        request[request.find("00000000") + static_cast<size_t>(index) / wan_kinds.size()] = '1';
    return request;
}

void write_program(const fs::path &path)
{
    fs::remove(path);
    std::ofstream(path) << "#!/bin/sh\n";
    fs::permissions(path, fs::perms(0755));
}

fs::path kept_copy(int wans, const char *directory)
{
    return fs::path(bench_directory) / std::to_string(wans) / fs::path(directory).relative_path();
}

void replace_directory(const fs::path &target, const fs::path &source)
{
    for (const fs::directory_entry &entry : fs::directory_iterator(target))
        fs::remove_all(entry);
    fs::copy(source, target, fs::copy_options::recursive);
}

void keep(int wans)
{
    for (const char *const directory : stored_directories) {
        fs::create_directories(kept_copy(wans, directory));
        replace_directory(kept_copy(wans, directory), directory);
    }
}

} // namespace

void process::end()
{
    if (pid_ == 0)
        return;
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    pid_ = 0;
}

process ground::start(const std::vector<std::string> &words)
{
    return process(start_program(words, std::string(bench_directory) + "/output"));
}

ground::ground(const std::vector<int> &sizes, const std::string &daemon) : sizes_(sizes), program_(daemon)
{
    (void)umask(022);
    fs::create_directories(bench_directory);
    quieten();
    log_ = start({"gateway-tool", "syslogd"});
    ubusd_ = start({"ubusd"});
    bus_ = std::make_unique<bus>();
    start_netd();
    add_wans();
}

// Services, rules and hotplug scripts do nothing: what they do is not the daemon's.
void ground::quieten()
{
    for (const char *const service : services)
        write_program(std::string("/etc/init.d/") + service);
    write_program("/sbin/hotplug-call");
    for (const char *const name : {"ebtables", "ip", "iptables", "ipcalc.sh"}) {
        fs::remove(fs::path(gateway_bin) / name);
        fs::create_symlink("/bin/true", fs::path(gateway_bin) / name);
    }
    std::ofstream("/lib/functions/network.sh")
        << "network_get_ipaddr() { false; }\nnetwork_get_subnet() { false; }\n"
           "network_get_gateway() { false; }\nnetwork_get_device() { false; }\n"
           "network_get_dnsserver() { false; }\n";
}

void ground::start_netd()
{
    netd_.end();
    bus_->await("network", false);
    netd_ = start({"gateway-netd", "--no-links", "--no-hotplug"});
    bus_->await("gateway-netd");
    bus_->must_call("gateway-netd", "settle");
}

void ground::add_wans()
{
    start_daemon();
    int count = 0;
    keep(0);
    for (const int wans : sizes_) {
        for (; count < wans; count++)
            bus_->must_call("korvel", "add", first_request(count));
        if (listed_ids().size() != static_cast<size_t>(wans) || listed_ids().back() != wan_id_of(wans - 1))
            throw std::runtime_error("the daemon does not add WANs as expected");
        keep(wans);
    }
}

void ground::lay_down(int wans) const
{
    for (const char *const directory : stored_directories)
        replace_directory(directory, kept_copy(wans, directory));
}

void ground::bring_up(int wans)
{
    lay_down(wans);
    start_netd();
}

void ground::start_daemon()
{
    if (daemon_.pid() != 0)
        return;
    daemon_ = start({program_, "-d"});
    bus_->await("korvel");
    bus_->forget();
}

void ground::start_watched_daemon(const std::string &calls_path)
{
    stop_daemon();
    daemon_ = start({"env", "LD_PRELOAD=" KORVEL_WATCHED_CALLS, "BENCH_CALLS=" + calls_path, "korvel", "-d"});
    bus_->await("korvel");
    bus_->forget();
}

void ground::stop_daemon()
{
    daemon_.end();
    bus_->await("korvel", false);
}

void ground::start_bare()
{
    if (bare_.pid() != 0)
        return;
    bare_ = start({KORVEL_BENCH_BARE});
    bus_->await("bare");
    bus_->forget();
}

void ground::stop_bare()
{
    bare_.end();
    bus_->await("bare", false);
}

const char *ground::bare_program()
{
    return KORVEL_BENCH_BARE;
}

void ground::plan(const std::vector<std::string> &lines)
{
    const std::string path = std::string(bench_directory) + "/plan";
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    write_text(path, text);
    bus_->must_call("bare", "plan", "{\"file\":\"" + path + "\"}");
}

// Identifiers whose routing table would be one of the kernel's are left out.
int wan_id_of(int index)
{
    return index < 152 ? index + 1 : index + 4;
}

const wan_kind &wan_kind_of(int index)
{
    const size_t kind = static_cast<size_t>(index) % wan_kinds.size();
    const bool has_port = static_cast<size_t>(index) / wan_kinds.size() < port_count;
    return wan_kinds[kind == bridged_kind && !has_port ? kind + 1 : kind];
}

std::string status_command(const std::string &interface)
{
    constexpr size_t most = 47; // the daemon's room for a command
    return ("ubus -S call network.interface." + interface + " status").substr(0, most);
}

std::vector<std::string> status_commands(int index)
{
    std::vector<std::string> commands;
    for (const char *const suffix : wan_kind_of(index).suffixes)
        commands.push_back(status_command("wan_" + std::to_string(wan_id_of(index)) + suffix));
    return commands;
}

std::string wan_request(const wan_kind &kind, int vid, int id)
{
    return "{" + (id ? "\"wanId\":" + std::to_string(id) + "," : "") + kind.arguments +
           ",\"vlanMode\":true,\"vid\":" + std::to_string(vid) + "}";
}

std::string file_text(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream(path) << text;
}

std::vector<int> listed_ids()
{
    constexpr char mark[] = "\tlist wanList '";
    const std::string text = file_text("/etc/config/network");
    std::vector<int> ids;
    for (size_t at = text.find(mark); at != text.npos; at = text.find(mark, at + 1))
        ids.push_back(std::stoi(text.substr(at + sizeof(mark) - 1)));
    return ids;
}
