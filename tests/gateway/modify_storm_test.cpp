// A storm: many clients change WANs, at once and later, add, delete and query them, while a service hangs,
// the network daemon dies, the daemon is stopped and its bus lost over and over. Made for the thread
// sanitizer, whose findings show in the daemon's exit status; without it, what is left is held to be whole
// WANs.
#include "support/daemon_test.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <thread>

namespace {

using std::chrono::milliseconds;

constexpr unsigned interruptions = 6;
constexpr unsigned most_ids = 6; // what clients ask for; there may be others

// A dual-stack DHCP WAN whose sections all tell the same number.
wan_config numbered_wan(unsigned id, unsigned vid, unsigned number)
{
    wan_config wan =
        routed_dhcp(static_cast<uint8_t>(id), {.vid = static_cast<uint16_t>(vid), .ip_protocol = 3});
    wan.mtu = static_cast<uint16_t>(1000 + number);
    wan.autoDns = wan.autoDnsV6 = 0;
    (void)snprintf(wan.priDns, sizeof(wan.priDns), "192.0.2.%u", number);
    (void)snprintf(wan.priDnsV6, sizeof(wan.priDnsV6), "2001:db8::%u", number);
    return wan;
}

class modify_storm_test : public daemon_test {
protected:
    void SetUp() override
    {
        silence_services();
        shipped_ = services();
        serve();
    }

    void serve()
    {
        gateway.start_netd();
        gateway.start_korvel();
    }

    // The configurations that a WAN has a place in beside `network`.
    std::map<std::string, std::string> services() const
    {
        std::map<std::string, std::string> texts;
        for (const char *const name : {"firewall", "dhcp"})
            texts[name] = gateway.config(name);
        return texts;
    }

    // A client that asks over and over. Answers are nobody's business while the daemon comes and goes, but
    // for JSON that is none.
    template <typename asker> std::jthread client(unsigned seed, asker ask)
    {
        return std::jthread([this, seed, ask] {
            std::mt19937 random(seed);
            while (!stop_) {
                const bus_reply reply = ask(random);
                EXPECT_TRUE(reply.text.empty() || reply.json()) << reply.text;
                asked_++;
                done_ += reply.status == 0;
                std::this_thread::sleep_for(milliseconds(random() % 20));
            }
        });
    }

    bus_reply change_later(unsigned id, unsigned number)
    {
        const std::string text = std::to_string(number);
        return gateway.call("modify", "{\"wanId\":" + std::to_string(id) + ",\"mtu\":" +
                                          std::to_string(1000 + number) + ",\"priDns\":\"192.0.2." + text +
                                          "\",\"priDnsV6\":\"2001:db8::" + text + "\",\"wait\":1}");
    }

    std::vector<std::jthread> clients()
    {
        std::vector<std::jthread> all;
        const auto id = [](std::mt19937 &random) { return static_cast<unsigned>(1 + random() % most_ids); };
        const auto number = [](std::mt19937 &random) { return static_cast<unsigned>(1 + random() % 200); };
        const auto wan = [=](std::mt19937 &random) {
            const unsigned which = id(random);
            return numbered_wan(which, 100 + which, number(random));
        };
        for (const unsigned seed : {1U, 2U})
            all.push_back(client(seed, [=, this](std::mt19937 &random) {
                return gateway.call("add", add_request(wan(random)));
            }));
        for (const unsigned seed : {3U, 4U})
            all.push_back(client(seed, [=, this](std::mt19937 &random) {
                return gateway.call("modify", modify_request(wan(random)));
            }));
        for (const unsigned seed : {5U, 6U})
            all.push_back(client(
                seed, [=, this](std::mt19937 &random) { return change_later(id(random), number(random)); }));
        all.push_back(client(7, [=, this](std::mt19937 &random) {
            return random() % 16 == 0 ? gateway.call("delAll")
                                      : gateway.call("del", "{\"wanId\":" + std::to_string(id(random)) + "}");
        }));
        all.push_back(client(8, [=, this](std::mt19937 &random) {
            if (random() % 16 == 0)
                return gateway.call("addDev");
            return random() % 2 == 0 ? gateway.call("all")
                                     : gateway.call("get", "{\"wanId\":" + std::to_string(id(random)) + "}");
        }));
        return all;
    }

    // Has what the daemon waits for hang for a while, and the network daemon die.
    void disturb(std::mt19937 &random)
    {
        held_service held(gateway, random() % 2 == 0 ? "network" : "firewall");
        (void)held.entered(milliseconds(2000));
        std::this_thread::sleep_for(milliseconds(random() % 1000));
        if (random() % 2 == 0) {
            gateway.stop_netd();
            std::this_thread::sleep_for(milliseconds(random() % 500));
            gateway.start_netd();
        }
        held.let_go();
    }

    // Ends the daemon by a signal or by its bus, in the middle of whatever it does.
    void interrupt(bool lose_bus)
    {
        if (lose_bus) {
            gateway.stop_bus();
            EXPECT_TRUE(wait_until([this] { return !gateway.korvel_running(); }, std::chrono::seconds(60)));
        }
        EXPECT_EQ(0, gateway.stop_korvel());
        if (lose_bus)
            gateway.stop_netd();
    }

    void resume(bool bus_was_lost)
    {
        if (bus_was_lost)
            gateway.start_netd();
        gateway.start_korvel();
    }

    std::string value(const std::string &place) const { return gateway.uci_get(place).value_or("none"); }

    text_lines ids() const { return gateway.uci_list("network.korvel.wanList").value_or(text_lines{}); }

    // Several management devices are one port of the bridge, which is isolated from none: a script of one
    // line.
    static void forget_isolation_of_one()
    {
        const std::string path = "/etc/korvel/rule_wan_isolate.sh";
        if (gateway_file(path) == "#!/bin/sh\n")
            std::filesystem::remove(path);
    }
    static std::string gateway_file(const std::string &path)
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // Every WAN is there with all its pieces, and these tell of one and the same request.
    void expect_whole_wans()
    {
        std::set<std::string> interfaces, scripts;
        const text_lines listed = ids();
        EXPECT_EQ(listed.size(), std::set<std::string>(listed.begin(), listed.end()).size());
        size_t wans = 0;
        for (const std::string &id : listed) {
            SCOPED_TRACE("wan_" + id);
            if (gateway.device_option(static_cast<unsigned>(std::stoul(id)), "lkname") == id + "_OTHER_B_TMP")
                continue; // a management device
            wans++;
            const std::string mtu =
                gateway.device_option(static_cast<unsigned>(std::stoul(id)), "mtu").value_or("0");
            const std::string number = std::to_string(std::stoi(mtu) - 1000);
            EXPECT_EQ("192.0.2." + number, value("network.wan_" + id + ".dns"));
            EXPECT_EQ("2001:db8::" + number, value("network.wan_" + id + "_v6.dns"));
            interfaces.insert({"wan_" + id, "wan_" + id + "_v6"});
            scripts.insert("99-wan_" + id);
        }
        EXPECT_EQ(interfaces, wan_entries("firewall.@zone[1].network"));
        EXPECT_EQ(2 * wans, occurrences("config interface 'wan_"));
        EXPECT_EQ(listed.size(), occurrences("option lkname"));
        const text_lines present = gateway.list_directory("/etc/hotplug.d/iface");
        EXPECT_EQ(scripts, std::set<std::string>(present.begin(), present.end()));
        for (const char *const place : {"omcproxy.@proxy[0].uplink", "upnpd.config.external_iface"}) {
            const std::string uplink = value(place);
            EXPECT_TRUE(uplink == "none" || uplink.empty() || interfaces.contains(uplink))
                << place << " " << uplink;
        }
    }

    std::set<std::string> wan_entries(const std::string &place) const
    {
        std::set<std::string> found;
        for (const std::string &entry : gateway.uci_list(place).value_or(text_lines{}))
            if (entry.starts_with("wan_"))
                found.insert(entry);
        return found;
    }

    size_t occurrences(const std::string &piece) const
    {
        const std::string text = gateway.config("network");
        size_t count = 0;
        for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
            count++;
        return count;
    }

    std::atomic<bool> stop_{false};
    std::atomic<unsigned> asked_{0}, done_{0};
    std::map<std::string, std::string> shipped_;
};

TEST_F(modify_storm_test, stops_and_lost_buses_in_a_storm_of_changes_leave_whole_wans)
{
    std::mt19937 random(1);
    {
        std::vector<std::jthread> storm = clients();
        for (unsigned i = 0; i < interruptions; i++) {
            std::this_thread::sleep_for(milliseconds(500 + random() % 1500));
            const bool lose_bus = i % 2 == 1;
            disturb(random);
            interrupt(lose_bus);
            resume(lose_bus);
        }
        std::this_thread::sleep_for(milliseconds(500));
        stop_ = true;
    }
    ASSERT_TRUE(wait_until([this] { return waiting_changes() == 0; }, std::chrono::seconds(60)));
    EXPECT_LT(interruptions, done_) << "of " << asked_ << " requests";
    EXPECT_EQ(0, gateway.stop_korvel());
    gateway.clear_log();

    gateway.start_korvel();

    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_WARNING))
        << "nothing is left to be completed, and no orphan";
    forget_isolation_of_one();
    expect_whole_files();
    expect_whole_wans();
    (void)gateway.call("delAll");
    EXPECT_EQ(shipped_, services());
    EXPECT_EQ(0, gateway.stop_korvel());
}

} // namespace
