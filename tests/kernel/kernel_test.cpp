#include "kernel/kernel_test.h"

#include "support/daemon_test.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

namespace {

namespace fs = std::filesystem;

constexpr char service[] = "/etc/init.d/korvel";

struct shared_gateway {
    std::unique_ptr<gateway> router;
    std::vector<std::string> requests; // by which its WANs were added
    unsigned above = 0;
    bool spoiled = true;
};

shared_gateway &shared()
{
    static shared_gateway only;
    return only;
}

// Whether the package's scripts are at work.
bool scripts_run()
{
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "cmdline");
        const std::string words(std::istreambuf_iterator<char>(file), {});
        if (words.find("/usr/libexec/korvel/") != std::string::npos)
            return true;
    }
    return false;
}

void print_log()
{
    for (const log_entry &entry : shared().router->log())
        printf("log: %s: %s\n", entry.ident.c_str(), entry.text.c_str());
}

// Whether the gateway's WANs are the first of these.
bool can_go_on(const std::vector<wan_config> &wans, unsigned above)
{
    const shared_gateway &there = shared();
    if (there.spoiled || there.above != above || there.requests.size() > wans.size())
        return false;
    for (size_t i = 0; i < there.requests.size(); i++)
        if (there.requests[i] != add_request(wans[i]))
            return false;
    return true;
}

} // namespace

kernel_test::~kernel_test()
{
    if (!HasFailure())
        return;
    print_log();
    spoil();
}

void kernel_test::given(const std::vector<wan_config> &wans, unsigned above)
{
    if (!can_go_on(wans, above)) {
        make_gateway();
        if (above)
            router().uci_set("network.korvel.maxWanId", std::to_string(above));
        start();
        await_service();
        shared().above = above;
        shared().spoiled = false;
    }
    for (size_t i = shared().requests.size(); i < wans.size(); i++) {
        (void)add(wans[i]);
        shared().requests.push_back(add_request(wans[i]));
    }
}

void kernel_test::spoil()
{
    shared().spoiled = true;
}

void kernel_test::make_gateway()
{
    if (shared().router)
        (void)run_program({service, "stop"});
    shared() = {};
    (void)neighbours();
    shared().router = std::make_unique<::gateway>();
    router().set_ports({.lan = lan_ports});
    router().install_package();
    // The network daemon gives the bridge its address, and with it the route.
    run({"ip", "-4", "addr", "flush", "dev", "br-lan"});
}

void kernel_test::start()
{
    router().start_netd({.links = true, .hotplug = true, .kernel_vlans = true});
    run({service, "start"});
}

void kernel_test::await_service()
{
    ASSERT_EQ(0, run_program({"ubus", "-t", "60", "wait_for", "korvel"}).status);
    settle();
}

void kernel_test::settle()
{
    ASSERT_EQ(0, router().call_object("gateway-netd", "settle").status);
    const auto deadline = std::chrono::steady_clock::now() + default_deadline;
    while (scripts_run()) {
        ASSERT_GT(deadline, std::chrono::steady_clock::now());
        // Every look takes from them the one processor that there is.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

unsigned kernel_test::add(const wan_config &wan)
{
    EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), router().call("add", add_request(wan)));
    settle();
    return static_cast<unsigned>(std::stoul(router().uci_list("network.korvel.wanList").value().back()));
}

void kernel_test::modify(const wan_config &wan)
{
    ASSERT_EQ(0, router().call("modify", modify_request(wan)).at("status"));
    settle();
}

void kernel_test::del(unsigned id)
{
    ASSERT_EQ(result_reply(0, 0, "korvel del OK."),
              router().call("del", "{\"wanId\":" + std::to_string(id) + "}"));
    settle();
}

void kernel_test::run(const program_arguments &words)
{
    const program_result result = run_program(words);
    ASSERT_EQ(0, result.status) << words[0] << ": " << result.errors;
}

void kernel_test::tell(const std::string &action, const std::string &interface, const std::string &device)
{
    const program_result result = run_program(
        {"hotplug-call", "iface"}, {{"ACTION", action}, {"INTERFACE", interface}, {"DEVICE", device}});
    ASSERT_EQ(0, result.status) << result.errors;
    settle();
}

gateway &kernel_test::router()
{
    return *shared().router;
}

neighbourhood &kernel_test::neighbours()
{
    static neighbourhood only;
    return only;
}
