#include "support/daemon_test.h"
#include "support/sanitizers.h"

#include <algorithm>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

constexpr char held_path[] = "/gateway/held";
constexpr char entered_path[] = "/gateway/entered";
constexpr const char *service_names[] = {"network", "dnsmasq", "firewall", "miniupnpd", "omcproxy", "call"};

std::string service_path(const std::string &name)
{
    return "/etc/init.d/" + name;
}

// What a script of this name ends with.
std::string last_line_of(const std::string &name)
{
    if (name.starts_with("99-wan_"))
        return "fi\n";
    if (name == "rule_mvlan.sh")
        return "\n";
    if (name == "rule_wan_isolate.sh")
        return "-j DROP\n";
    return "prohibit\n";
}

bool is_script_name(const std::string &name)
{
    return name.starts_with("99-wan_") || (name.starts_with("rule_") && name.ends_with(".sh"));
}

} // namespace

bus_reply result_reply(int bus_status, int status, const std::string &info)
{
    return {bus_status, "{\"status\":" + std::to_string(status) + ",\"info\":\"" + info + "\"}"};
}

held_service::held_service(gateway &router, const std::string &name)
    : router_(router), path_(service_path(name)), shipped_(router.file(path_))
{
    router_.remove(entered_path);
    router_.write_file(held_path, "");
    router_.write_file(path_,
                       std::string("#!/bin/sh\ngateway-tool journal \"$0\" \"$@\"\n") + ": >" + entered_path +
                           "\nwhile [ -e " + held_path + " ]; do sleep 0.02; done\n",
                       0755);
}

held_service::~held_service()
{
    let_go();
    router_.write_file(path_, shipped_, 0755);
}

bool held_service::entered(std::chrono::milliseconds deadline) const
{
    return wait_until([this] { return router_.exists(entered_path); }, deadline);
}

void held_service::let_go()
{
    router_.remove(held_path);
}

void daemon_test::silence_services()
{
    for (const char *const name : service_names)
        gateway.write_file(service_path(name), "#!/bin/sh\n", 0755);
}

text_lines daemon_test::applied_updates() const
{
    constexpr std::string_view start = "hotplug-call iface ACTION=ifupdate INTERFACE=";
    text_lines interfaces;
    for (const std::string &command : gateway.commands())
        if (command.starts_with(start))
            interfaces.push_back(command.substr(start.size()));
    return interfaces;
}

bool daemon_test::updates_reach(unsigned wan_id, size_t count, std::chrono::milliseconds deadline) const
{
    const std::string interface = "wan_" + std::to_string(wan_id);
    return wait_until(
        [&] {
            const text_lines applied = applied_updates();
            return static_cast<size_t>(std::count(applied.begin(), applied.end(), interface)) >= count;
        },
        deadline);
}

size_t daemon_test::waiting_changes() const
{
    const bus_reply pending = gateway.call_object("korvel.state", "pending");
    return pending.status == 0 ? pending.at("pending").size() : 0;
}

void daemon_test::expect_whole_files() const
{
    EXPECT_EQ(text_lines{}, unreadable_configurations());
    for (const char *const directory : {"/etc/korvel", "/etc/hotplug.d/iface"}) {
        for (const std::string &name : gateway.list_directory(directory)) {
            SCOPED_TRACE(std::string(directory) + "/" + name);
            EXPECT_TRUE(is_script_name(name));
            const std::string text = gateway.file(std::string(directory) + "/" + name);
            EXPECT_TRUE(text.starts_with("#!/bin/sh\n"));
            EXPECT_TRUE(text.ends_with(last_line_of(name))) << text;
        }
    }
}

text_lines unreadable_configurations()
{
    text_lines names;
    for (const fs::directory_entry &entry : fs::directory_iterator("/etc/config")) {
        const std::string name = entry.path().filename();
        const bool is_record = name.starts_with(".korvel.record"); // of a change whose reloads were cut short
        if (!is_record && run_program({"uci", "-q", "show", name}).status != 0)
            names.push_back(name);
    }
    return names;
}
