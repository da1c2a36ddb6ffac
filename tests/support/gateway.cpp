#include "support/gateway.h"

#include "support/kernel_rules.h"
#include "support/log_catcher.h"

#include "service/board.h"
#include "tools/places.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr char board_path[] = "/gateway/boardinfo.json";
constexpr char scripts_path[] = "/gateway/netd";
constexpr char fakes_path[] = "/gateway/fakes";
constexpr char korvel_output_path[] = "/gateway/korvel.out";
constexpr char bus_socket[] = "/var/run/ubus/ubus.sock";
constexpr char shipped_files[] = KORVEL_SOURCE_DIR "/gateway/rootfs";

constexpr port_counts shipped_ports = {.lan = 4, .lan_phy = 0, .wlan_2g = 2, .wlan_5g = 2};
constexpr int no_bus = 255;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + strerror(errno));
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        fail("cannot read " + path);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

text_lines split_lines(const std::string &text)
{
    text_lines result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

bool is_mount_point(const std::string &path)
{
    struct statx state;
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, 0, &state))
        fail("cannot stat " + path);
    if (!(state.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT))
        throw std::runtime_error("this kernel does not tell mount points");
    return state.stx_attributes & STATX_ATTR_MOUNT_ROOT;
}

// Removes a tree, but nothing that is mounted into it: the build directory may lie below /tmp. Returns
// whether all of it is gone.
bool remove_tree(const fs::path &path)
{
    if (is_mount_point(path))
        return false;
    bool emptied = true;
    if (fs::is_directory(fs::symlink_status(path)))
        for (const fs::directory_entry &entry : fs::directory_iterator(path))
            emptied = remove_tree(entry.path()) && emptied;
    return emptied && fs::remove(path);
}

void empty_directory(const std::string &path)
{
    fs::create_directories(path);
    for (const fs::directory_entry &entry : fs::directory_iterator(path))
        remove_tree(entry.path());
}

void copy_shipped(const std::string &directory)
{
    const std::string source = shipped_files + directory;
    if (!fs::is_directory(source))
        throw std::runtime_error("missing fixture: " + source);
    fs::create_directories(directory);
    for (const fs::directory_entry &entry : fs::directory_iterator(source))
        fs::copy(entry.path(), directory / entry.path().filename(), fs::copy_options::overwrite_existing);
}

void put_fakes_on_path()
{
    const std::string path = getenv("PATH");
    if (!path.starts_with(fakes_path))
        setenv("PATH", (std::string(fakes_path) + ":" + path).c_str(), 1);
}

bool bus_answers()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, bus_socket);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool answers =
        connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(descriptor);
    return answers;
}

bus_reply reply_of(int status, std::string output)
{
    while (output.ends_with('\n'))
        output.pop_back();
    return {status, output};
}

} // namespace

void PrintTo(const log_entry &entry, std::ostream *out)
{
    *out << '<' << entry.priority << "> " << entry.ident << ": " << entry.text;
}

void PrintTo(const bus_reply &reply, std::ostream *out)
{
    *out << "status " << reply.status << ", reply " << (reply.text.empty() ? "none" : reply.text);
}

background_call::background_call(const std::string &object, const std::string &method,
                                 const std::string &json)
{
    char path[] = "/gateway/call-XXXXXX";
    const int descriptor = mkstemp(path);
    if (descriptor < 0)
        fail("cannot make a file for a reply");
    close(descriptor);
    output_path_ = path;
    process_ = child_process({"ubus", "-S", "call", object, method, json}, {}, output_path_);
}

bus_reply background_call::wait(std::chrono::milliseconds deadline)
{
    const int status = process_.wait(deadline);
    return reply_of(status, read_file(output_path_));
}

gateway::gateway()
{
    if (!fs::exists(journal_path))
        throw std::runtime_error("not inside a private root: there is no " + std::string(journal_path));
    umask(022); // a router's
    for (const char *directory :
         {"/etc/config", "/etc/korvel", "/etc/hotplug.d/iface", "/tmp", scripts_path, fakes_path})
        empty_directory(directory);
    copy_shipped("/etc/config");
    copy_shipped("/etc/init.d");
    put_fakes_on_path();
    set_ports(shipped_ports);
    reset_kernel_rules();
    clear_commands();
    log_catcher_restart();
}

gateway::~gateway() = default;

void gateway::write_file(const std::string &path, const std::string &content, unsigned mode)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out)
        fail("cannot write " + path);
    chmod(path, mode);
}

std::string gateway::file(const std::string &path) const
{
    return read_file(path);
}

bool gateway::exists(const std::string &path) const
{
    return access(path.c_str(), F_OK) == 0;
}

void gateway::remove(const std::string &path)
{
    if (fs::exists(fs::symlink_status(path)))
        remove_tree(path);
}

void gateway::chmod(const std::string &path, unsigned mode)
{
    if (::chmod(path.c_str(), static_cast<mode_t>(mode)))
        fail("cannot chmod " + path);
}

unsigned gateway::mode(const std::string &path) const
{
    struct stat state;
    if (stat(path.c_str(), &state))
        fail("cannot stat " + path);
    return state.st_mode & 07777U;
}

text_lines gateway::list_directory(const std::string &path) const
{
    text_lines names;
    if (fs::is_directory(path))
        for (const fs::directory_entry &entry : fs::directory_iterator(path))
            names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string gateway::config(const std::string &name) const
{
    return file("/etc/config/" + name);
}

void gateway::set_config(const std::string &name, const std::string &text)
{
    write_file("/etc/config/" + name, text);
}

void gateway::install_package()
{
    fs::copy(KORVEL_SOURCE_DIR "/openwrt/root/etc", "/etc",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    const program_result result = run_program({"/etc/init.d/boot", "boot"});
    if (result.status != 0 || exists("/etc/uci-defaults/60-korvel"))
        throw std::runtime_error("the first boot: " + result.output + result.errors);
}

void gateway::store_wan(const wan_config &config)
{
    set_config("network",
               this->config("network") + uci_device_section(config) + uci_interface_sections(config));
    uci_add_list("network.korvel.wanList", std::to_string(config.wanId));
    if (std::stoi(uci_get("network.korvel.maxWanId").value_or("0")) < config.wanId)
        uci_set("network.korvel.maxWanId", std::to_string(config.wanId));
    if (config.wanMode == wan_mode_bridged)
        uci_add_list("network.@device[0].ports", device_name(config));
    for (const std::string &interface : interface_names(config))
        uci_add_list("firewall.@zone[1].network", interface);
}

text_lines gateway::commands() const
{
    return split_lines(read_file(journal_path));
}

void gateway::clear_commands()
{
    write_file(journal_path, "");
}

std::vector<log_entry> gateway::log() const
{
    return log_catcher_entries();
}

text_lines gateway::log_texts(int priority) const
{
    text_lines texts;
    for (const log_entry &entry : log())
        if (entry.priority == priority)
            texts.push_back(entry.text);
    return texts;
}

void gateway::clear_log()
{
    log_catcher_restart();
}

void gateway::set_ports(const port_counts &counts)
{
    std::ostringstream json;
    json << R"({"lan":{"numOfPorts":)" << counts.lan << R"(},"lan_phy":{"numOfPorts":)" << counts.lan_phy
         << R"(},"wlan_2g":{"numOfPorts":)" << counts.wlan_2g << R"(},"wlan_5g":{"numOfPorts":)"
         << counts.wlan_5g << "}}";
    set_board_description(json.str());
    lan_num = counts.lan;
    lan_phy_num = counts.lan_phy;
    wlan_2g_num = counts.wlan_2g;
    wlan_5g_num = counts.wlan_5g;
}

void gateway::set_board_description(const std::string &json)
{
    write_file(board_path, json + "\n");
    if (netd_.running())
        settle_netd();
}

void gateway::remove_board_description()
{
    remove(board_path);
    if (netd_.running())
        settle_netd();
}

void gateway::script_interface(const std::string &interface, const std::string &reply)
{
    write_file(scripts_path + ("/" + interface), reply + "\n");
    if (netd_.running())
        settle_netd();
}

void gateway::unscript_interface(const std::string &interface)
{
    remove(scripts_path + ("/" + interface));
    if (netd_.running())
        settle_netd();
}

void gateway::fake_program(const std::string &name, const std::string &shell_text)
{
    write_file(fakes_path + ("/" + name), "#!/bin/sh\n" + shell_text + "\n", 0755);
}

program_result gateway::run_script(const std::string &path, const program_arguments &args,
                                   const program_environment &variables)
{
    if (!exists(path))
        fail("cannot run " + path);
    program_arguments command = {"busybox", "ash", path};
    command.insert(command.end(), args.begin(), args.end());
    return run_program(command, variables);
}

void gateway::start_bus()
{
    bus_ = child_process({"ubusd"});
    if (!wait_until([this] { return bus_answers() || !bus_.running(); }) || !bus_.running())
        throw std::runtime_error("ubusd does not serve");
}

void gateway::stop_bus()
{
    bus_.stop(SIGTERM);
}

void gateway::start_netd(const netd_options &options)
{
    if (!bus_.running())
        start_bus();
    program_arguments command = {"gateway-netd"};
    if (!options.links)
        command.push_back("--no-links");
    if (!options.hotplug)
        command.push_back("--no-hotplug");
    if (options.kernel_vlans)
        command.push_back("--kernel-vlans");
    if (options.held)
        command.insert(command.end(), {"--pending", "3600000"});
    netd_ = child_process(command);
    if (!wait_until([this] { return object_exists("network") || !netd_.running(); }) || !netd_.running())
        throw std::runtime_error("gateway-netd does not serve");
}

void gateway::reload_netd()
{
    const bus_reply reply = call_object("network", "reload");
    if (reply.status)
        throw std::runtime_error("reload of the network daemon: status " + std::to_string(reply.status));
}

void gateway::settle_netd()
{
    const bus_reply reply = call_object("gateway-netd", "settle");
    if (reply.status)
        throw std::runtime_error("the network daemon does not settle: status " +
                                 std::to_string(reply.status));
}

void gateway::hurry_netd()
{
    const bus_reply reply = call_object("gateway-netd", "hurry");
    if (reply.status)
        throw std::runtime_error("the network daemon does not hurry: status " + std::to_string(reply.status));
}

void gateway::stop_netd(int signal_number)
{
    netd_.stop(signal_number);
    // Its objects vanish when the bus notices; a later start must not take the old ones for the new.
    if (bus_.running() && !wait_until([this] { return !object_exists("network"); }))
        throw std::runtime_error("the object network outlives the daemon");
}

void gateway::start_korvel()
{
    if (!bus_.running())
        start_bus();
    korvel_ = child_process({"korvel", "-d"}, {}, korvel_output_path);
    if (!wait_until([this] { return object_exists("korvel") || !korvel_.running(); }))
        throw std::runtime_error("korvel does not serve");
    if (!korvel_.running())
        throw std::runtime_error("korvel ended with status " + std::to_string(korvel_.wait()));
}

int gateway::stop_korvel(int signal_number)
{
    const int status = korvel_.stop(signal_number);
    // Its object vanishes when the bus notices; a later start must not take the old one for the new.
    if (bus_.running() && !wait_until([this] { return !object_exists("korvel"); }))
        throw std::runtime_error("the object korvel outlives the daemon");
    return status;
}

void gateway::restart_korvel()
{
    stop_korvel();
    start_korvel();
}

bool gateway::korvel_running()
{
    return korvel_.running();
}

std::string gateway::korvel_output() const
{
    return read_file(korvel_output_path);
}

program_result gateway::run_korvel(const program_arguments &args)
{
    program_arguments command = {"korvel"};
    command.insert(command.end(), args.begin(), args.end());
    return run_program(command);
}

bus_reply gateway::call(const std::string &method, const std::string &json) const
{
    return call_object("korvel", method, json);
}

bus_reply gateway::call_object(const std::string &object, const std::string &method,
                               const std::string &json) const
{
    if (!bus_answers())
        return {no_bus, ""};
    program_result result = run_program({"ubus", "-S", "call", object, method, json});
    return reply_of(result.status, std::move(result.output));
}

bool gateway::object_exists(const std::string &object) const
{
    return run_program({"ubus", "-S", "list", object}).status == 0;
}

std::string golden(const std::string &path)
{
    return read_file(KORVEL_SOURCE_DIR "/tests/golden/" + path);
}
