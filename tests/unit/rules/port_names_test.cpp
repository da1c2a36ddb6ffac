// The interfaces that the positions of a port binding stand for.
#include "rules/port_names.h"

#include "support/code_test.h"

#include <cstring>

namespace {

using port_names_test = code_test;

struct port_lists {
    std::string bound, unbound;
    bool operator==(const port_lists &) const = default;
};

void PrintTo(const port_lists &lists, std::ostream *out)
{
    *out << "bound '" << lists.bound << "', unbound '" << lists.unbound << "'";
}

port_lists lists_for(const char *bind)
{
    const wan_config wan = bridged_wan(1, bind);
    char bound[port_list_size] = {};
    char unbound[port_list_size] = {};
    wan_build_port_lists(&wan, bound, unbound);
    return {bound, unbound};
}

TEST_F(port_names_test, every_group_of_ports_has_its_own_names)
{
    struct {
        port_counts ports;
        const char *bind;
        port_lists expected;
    } const cases[] = {
        {{.lan = 4, .wlan_2g = 2, .wlan_5g = 1}, "1001010", {"eth0.1 eth0.4 ra1", "eth0.2 eth0.3 ra0 rai0"}},
        {{.lan = 4}, "0000", {"", "eth0.1 eth0.2 eth0.3 eth0.4"}},
        {{.lan = 4}, "1111", {"eth0.1 eth0.2 eth0.3 eth0.4", ""}},
        {{.lan_phy = 3}, "101", {"eth0.8 eth0.6", "eth0.7"}},
        {{.lan = 2, .lan_phy = 2}, "0110", {"eth0.2 eth0.8", "eth0.1 eth0.7"}},
        {{.lan = 1, .lan_phy = 1, .wlan_2g = 1, .wlan_5g = 1}, "1111", {"eth0.1 eth0.8 ra0 rai0", ""}},
        {{.wlan_2g = 2, .wlan_5g = 2}, "0101", {"ra1 rai1", "ra0 rai0"}},
        {{.wlan_5g = 1}, "1", {"rai0", ""}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.bind) + " gives " + row.expected.bound);
        gateway.set_ports(row.ports);

        EXPECT_EQ(lists_for(row.bind), row.expected);
    }
}

TEST_F(port_names_test, a_board_without_ports_leaves_both_lists_untouched)
{
    gateway.set_ports({});
    const wan_config wan = bridged_wan(1, "1111");
    char bound[port_list_size] = {};
    char unbound[port_list_size] = {};
    const char zeros[port_list_size] = {};

    wan_build_port_lists(&wan, bound, unbound);

    EXPECT_EQ(memcmp(bound, zeros, sizeof(zeros)), 0);
    EXPECT_EQ(memcmp(unbound, zeros, sizeof(zeros)), 0);
}

TEST_F(port_names_test, ports_behind_a_short_binding_are_not_bound)
{
    gateway.set_ports({.lan = 4});

    EXPECT_EQ(lists_for("01"), (port_lists{"eth0.2", "eth0.1 eth0.3 eth0.4"}));
    EXPECT_EQ(lists_for(""), (port_lists{"", "eth0.1 eth0.2 eth0.3 eth0.4"}));
}

TEST_F(port_names_test, only_the_character_1_binds)
{
    gateway.set_ports({.lan = 4});

    EXPECT_EQ(lists_for("2x 1"), (port_lists{"eth0.4", "eth0.1 eth0.2 eth0.3"}));
}

TEST_F(port_names_test, no_port_beyond_the_17th_is_bound)
{
    gateway.set_ports({.lan = 20});
    wan_config wan = bridged_wan(1, "");
    memset(wan.bind, '1', sizeof(wan.bind));
    memset(wan.device, '1', sizeof(wan.device)); // what lies behind the binding in the record
    memset(wan.gateway, '1', sizeof(wan.gateway));
    char bound[port_list_size] = {};
    char unbound[port_list_size] = {};

    wan_build_port_lists(&wan, bound, unbound);

    EXPECT_STREQ(bound, "eth0.1 eth0.2 eth0.3 eth0.4 eth0.5 eth0.6 eth0.7 eth0.8 eth0.9 eth0.10 eth0.11 "
                        "eth0.12 eth0.13 eth0.14 eth0.15 eth0.16 eth0.17");
    EXPECT_STREQ(unbound, "eth0.18 eth0.19 eth0.20");
}

TEST_F(port_names_test, without_a_second_list_only_the_bound_ports_are_named)
{
    gateway.set_ports({.lan = 4});
    const wan_config wan = bridged_wan(1, "1010");
    char bound[port_list_size] = {};

    wan_build_port_lists(&wan, bound, nullptr);

    EXPECT_STREQ(bound, "eth0.1 eth0.3");
}

TEST_F(port_names_test, names_that_no_longer_fit_are_left_out_whole_and_logged)
{
    gateway.set_ports({.lan = 25});
    struct {
        char list[port_list_size];
        char behind[8];
    } unbound = {};
    memset(unbound.behind, '#', sizeof(unbound.behind));
    const wan_config wan = bridged_wan(1, "1");
    char bound[port_list_size] = {};

    wan_build_port_lists(&wan, bound, unbound.list);

    const std::string list(unbound.list, strnlen(unbound.list, sizeof(unbound.list)));
    EXPECT_LT(list.size(), port_list_size);
    EXPECT_TRUE(list.ends_with(" eth0.17")) << list;
    EXPECT_EQ(std::string(unbound.behind, sizeof(unbound.behind)), "########");
    EXPECT_EQ(gateway.log_texts(LOG_ERR).size(), 8U);
}

} // namespace
