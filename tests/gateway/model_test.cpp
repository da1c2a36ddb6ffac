// Long sequences of random requests: after each one the configuration and the scripts must be what a model,
// worked out independently, says they are.
#include "support/daemon_test.h"
#include "support/wan_model.h"

#include <cstring>
#include <random>
#include <regex>

namespace {

constexpr unsigned steps = 100;
constexpr size_t most_wans = 10;
constexpr const char *followed[] = {"network", "firewall", "omcproxy", "upnpd", "dhcp"};

class random_requests {
public:
    explicit random_requests(unsigned seed) : random_(seed) {}

    unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
    bool once_in(unsigned times) { return below(times) == 0; }

    uint8_t pick(const std::vector<uint8_t> &ids) { return ids[below(static_cast<unsigned>(ids.size()))]; }

    // A WAN that passes the validation, but may well conflict with others.
    wan_config wan(uint8_t id)
    {
        wan_config wan{};
        wan.wanId = id;
        wan.wanMode = !once_in(3);
        wan.ipProtocol = static_cast<uint8_t>(once_in(12) ? 0 : 1 + below(3));
        wan.ipMode = static_cast<uint8_t>(below(3));
        wan.napt = once_in(2);
        wan.vlanMode = !once_in(8);
        wan.vid = static_cast<uint16_t>(wan.vlanMode ? 100 + below(12) : 0);
        wan.mvid = static_cast<uint16_t>(once_in(4) ? 105 + below(10) : 0);
        wan.prio = static_cast<uint8_t>(below(8));
        wan.mtu = static_cast<uint16_t>(650 + below(851));
        wan.service = static_cast<uint8_t>(below(8));
        wan.disableLanDhcp = once_in(2);
        put_ports(wan);
        put_servers(wan);
        put_addresses(wan);
        put_dialling(wan);
        wan.iphostId = static_cast<uint8_t>(below(3));
        return wan;
    }

    // A request may as well leave out what is zero.
    std::string thinned(const std::string &request)
    {
        const std::regex zero("\"[A-Za-z0-9]+\":(0|false),");
        std::string result;
        auto at = request.cbegin();
        for (std::sregex_iterator found(request.begin(), request.end(), zero), end; found != end; ++found) {
            if (found->str().starts_with("\"wan"))
                continue;
            result.append(at, (*found)[0].first);
            at = once_in(2) ? (*found)[0].second : (*found)[0].first;
        }
        return result.append(at, request.cend());
    }

private:
    void put_ports(wan_config &wan)
    {
        const unsigned length = below(17);
        for (unsigned i = 0; i < length; i++)
            wan.bind[i] = once_in(6) ? '1' : '0';
    }

    void put(char *field, const std::string &text)
    {
        if (!once_in(5))
            strcpy(field, text.c_str());
    }

    std::string number() { return std::to_string(1 + below(250)); }

    void put_servers(wan_config &wan)
    {
        wan.autoDns = once_in(2);
        wan.autoDnsV6 = once_in(2);
        put(wan.priDns, "192.0.2." + number());
        put(wan.secDns, "198.51.100." + number());
        put(wan.priDnsV6, "2001:db8::" + number());
        put(wan.secDnsV6, "2001:db8:1::" + number());
    }

    void put_addresses(wan_config &wan)
    {
        put(wan.ip, "203.0.113." + number());
        put(wan.mask, "255.255.255.0");
        put(wan.gateway, "203.0.113.254");
        wan.ipv6PrefixProxy = once_in(2);
        put(wan.ipv6Addr, "2001:db8:2::" + number() + "/64");
        put(wan.ipv6Gateway, "fe80::" + number());
        put(wan.ipv6Prefix, "2001:db8:" + number() + "00::/56");
        wan.ipv6DsLite = once_in(2);
        put(wan.ipv6AddrDsLite, "aftr" + number() + ".example");
    }

    void put_dialling(wan_config &wan)
    {
        put(wan.pppUser, "user" + number());
        put(wan.pppPwd, "it's $secret " + number());
        put(wan.pppServName, "isp" + number());
        wan.pppDialMode = once_in(2);
    }

    std::mt19937 random_;
};

// Parameter: the seed.
class model_test : public daemon_test, public testing::WithParamInterface<unsigned> {
protected:
    void SetUp() override
    {
        silence_services();
        for (const char *const program : {"ebtables", "iptables", "ip", "ipcalc.sh"})
            gateway.fake_program(program, "exit 0");
        gateway.fake_program(
            "hotplug-call",
            "echo \"hotplug-call iface ACTION=$ACTION INTERFACE=$INTERFACE\" >>/gateway/journal");
        gateway.start_netd();
        gateway.start_korvel();
    }

    std::map<std::string, std::string> stored_configurations() const
    {
        std::map<std::string, std::string> texts;
        for (const char *const name : followed)
            texts[name] = gateway.config(name);
        return texts;
    }

    std::map<std::string, std::string> stored_scripts() const
    {
        std::map<std::string, std::string> texts;
        for (const std::string directory : {"/etc/korvel/", "/etc/hotplug.d/iface/"})
            for (const std::string &name : gateway.list_directory(directory))
                texts[directory + name] = gateway.file(directory + name);
        return texts;
    }

    void expect_model()
    {
        for (const auto &[name, text] : stored_configurations())
            EXPECT_EQ(model_.configurations().at(name), parse_config(text)) << name;
        EXPECT_EQ(model_.scripts(), stored_scripts());
    }

    int status_of(const std::string &method, const std::string &request)
    {
        return static_cast<int>(gateway.call(method, request).at("status").integer());
    }

    void add()
    {
        const wan_config wan = requests_.wan(0);
        EXPECT_EQ(model_.add(wan), status_of("add", requests_.thinned(add_request(wan))));
    }

    void modify(uint8_t id)
    {
        const wan_config wan = requests_.wan(id);
        EXPECT_EQ(model_.modify(wan), status_of("modify", requests_.thinned(modify_request(wan))));
    }

    void modify_later(uint8_t id)
    {
        wan_config wan = model_.stored(id);
        wan.mtu = static_cast<uint16_t>(650 + requests_.below(851));
        const size_t updates = applied_updates().size();
        EXPECT_EQ(0, status_of("modify", "{\"wanId\":" + std::to_string(id) +
                                             ",\"mtu\":" + std::to_string(wan.mtu) + ",\"wait\":1}"));
        EXPECT_EQ(0, model_.modify(wan));
        ASSERT_TRUE(wait_until([&] { return applied_updates().size() > updates; }));
        ASSERT_TRUE(wait_until([this] { return waiting_changes() == 0; }));
    }

    void del(uint8_t id)
    {
        EXPECT_EQ(model_.del(id), status_of("del", "{\"wanId\":" + std::to_string(id) + "}"));
    }

    void delete_all()
    {
        EXPECT_EQ(0, gateway.call("delAll").status);
        model_.delete_all();
    }

    // Returns what was done, for the trace.
    std::string step()
    {
        const std::vector<uint8_t> ids = model_.ids();
        if (requests_.once_in(40)) {
            delete_all();
            return "delAll";
        }
        if (requests_.once_in(20)) {
            gateway.restart_korvel();
            return "restart";
        }
        if (ids.empty() || (ids.size() < most_wans && requests_.once_in(2))) {
            add();
            return "add";
        }
        const uint8_t id = requests_.once_in(15) ? uint8_t{200} : requests_.pick(ids);
        if (requests_.once_in(4)) {
            del(id);
            return "del " + std::to_string(id);
        }
        if (requests_.once_in(15) && id != 200) {
            modify_later(id);
            return "modify later " + std::to_string(id);
        }
        modify(id);
        return "modify " + std::to_string(id);
    }

    random_requests requests_{GetParam()};
    wan_model model_{stored_configurations()};
};

TEST_P(model_test, random_requests_leave_what_the_model_says)
{
    std::string done;
    for (unsigned i = 0; i < steps && !HasFailure(); i++) {
        const std::string what = step();
        done += what + "\n";
        expect_model();
    }
    EXPECT_FALSE(HasFailure()) << "after:\n" << done;
    EXPECT_EQ(0, gateway.stop_korvel());
}

INSTANTIATE_TEST_SUITE_P(seeds, model_test, testing::Range(1U, 6U));

} // namespace
