// Where a gateway's programs come from and which names the stand-ins have.
#include "root/gateway_root.h"

#include "root/find_program.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

constexpr const char *built_programs[] = {"korvel", "korvelctl",    "ubusd",       "ubus",
                                          "uci",    "gateway-netd", "gateway-tool"};
constexpr const char *stood_in_programs[] = {"ebtables", "ip", "iptables"};
constexpr char gateway_path[] = "/gateway/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// What the build does not make (the bus programs, when the system's are used) is taken from the machine's
// PATH.
void link_programs()
{
    fs::create_directories(gateway_bin);
    for (const char *name : built_programs) {
        fs::path program = fs::path(KORVEL_BUILT_PROGRAMS) / name;
        if (!fs::exists(program))
            program = find_program(name);
        if (!program.empty())
            fs::create_symlink(program, fs::path(gateway_bin) / name);
    }
    for (const char *name : stood_in_programs)
        fs::create_symlink("gateway-tool", fs::path(gateway_bin) / name);
}

void prepare()
{
    link_programs();
    std::ofstream{"/gateway/journal"};
    std::ofstream{"/gateway/log"};
    fs::create_directories("/gateway/netd");
    setenv("PATH", gateway_path, 1);
    setenv("HOME", "/root", 1);
}

} // namespace

private_root_options gateway_root_options()
{
    private_root_options options;
    options.rootfs = {KORVEL_SOURCE_DIRECTORY "/gateway/rootfs", KORVEL_SOURCE_DIRECTORY "/openwrt/root"};
    options.passed = {{KORVEL_SOURCE_DIRECTORY, false}, {KORVEL_BUILD_DIRECTORY, true}};
    options.shell = find_program("busybox");
    return options;
}

int enter_gateway(const private_root_options &options, const std::function<int()> &body)
{
    if (options.shell.empty()) {
        (void)fputs("private root: busybox is missing, install it\n", stderr);
        return private_root_failed;
    }
    return enter_private_root(options, [&body] {
        prepare();
        return body();
    });
}
