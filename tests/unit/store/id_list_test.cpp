// The list of identifiers in use, and the two rules for new ones.
#include "store/id_list.h"

#include "service/settings.h"
#include "support/gateway.h"

namespace {

class id_list_test : public gateway_test {
protected:
    // The list as stored, and the highest identifier in the configuration and in memory.
    void given(const text_lines &list, uint32_t highest)
    {
        for (const std::string &entry : list)
            gateway.uci_add_list("network.korvel.wanList", entry);
        gateway.uci_set("network.korvel.maxWanId", std::to_string(highest));
        maxWanId = highest;
    }

    text_lines list() { return gateway.uci_list("network.korvel.wanList").value_or(text_lines{}); }

    void expect_highest(uint32_t highest)
    {
        EXPECT_EQ(highest, maxWanId);
        EXPECT_EQ(std::to_string(highest), gateway.uci_get("network.korvel.maxWanId"));
    }

    // Allocates and returns what was printed meanwhile.
    std::string printed_by_alloc(uint32_t requested, uint32_t *id_out)
    {
        testing::internal::CaptureStdout();
        *id_out = wan_id_alloc(requested);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(id_list_test, the_first_gap_is_found_in_stored_order)
{
    const struct {
        text_lines list;
        uint32_t gap;
    } cases[] = {
        {{"1", "2", "4"}, 3}, {{"2", "3"}, 1},    {{"1", "2", "4", "3"}, 3}, {{"1", "2", "3"}, 4},
        {{"1"}, 2},           {{"2"}, 1},         {{"1", "3", "2"}, 2},      {{"1", "1"}, 2},
        {{"01", "2x"}, 3},    {{"none", "1"}, 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::PrintToString(row.list));
        gateway.uci_set("network.korvel.wanList", "x");
        gateway.uci_delete("network.korvel.wanList");
        given(row.list, 9);

        EXPECT_EQ(row.gap, wan_min_free_id());
    }
}

TEST_F(id_list_test, above_a_limit_the_first_gap_stands_for_an_identifier)
{
    EXPECT_EQ(21U, wan_own_or_free_id(21, 20)) << "as shipped: no list";

    given({"1", "2", "25"}, 25);
    EXPECT_EQ(20U, wan_own_or_free_id(20, 20));
    EXPECT_EQ(3U, wan_own_or_free_id(21, 20));
    EXPECT_EQ(3U, wan_own_or_free_id(255, 7));
}

TEST_F(id_list_test, without_a_list_there_is_no_gap)
{
    EXPECT_EQ(UINT32_MAX, wan_min_free_id()); // as shipped: no list

    gateway.uci_set("network.korvel.wanList", "1");
    EXPECT_EQ(UINT32_MAX, wan_min_free_id()); // a plain option

    gateway.uci_delete("network.korvel");
    EXPECT_EQ(UINT32_MAX, wan_min_free_id());

    gateway.remove("/etc/config/network");
    EXPECT_EQ(UINT32_MAX, wan_min_free_id());
}

TEST_F(id_list_test, a_new_identifier_is_the_highest_plus_one)
{
    given({"1", "2", "3", "4"}, 4);

    EXPECT_EQ(5U, wan_id_alloc(0));

    EXPECT_EQ((text_lines{"1", "2", "3", "4", "5"}), list());
    expect_highest(5);
}

TEST_F(id_list_test, the_highest_identifier_is_written_as_a_signed_number)
{
    given({"1"}, INT32_MAX);

    EXPECT_EQ(uint32_t{INT32_MAX} + 1, wan_id_alloc(0));

    EXPECT_EQ("-2147483648", gateway.uci_get("network.korvel.maxWanId"));
}

TEST_F(id_list_test, gaps_are_left_alone_without_minimum_mode)
{
    for (const char *use : {"", "0", "none"}) {
        SCOPED_TRACE(use);
        gateway.set_config("network", "config korvel 'korvel'\n");
        given({"1", "3"}, 3);
        if (*use)
            gateway.uci_set("network.korvel.use_min_wan_id", use);

        uint32_t id = 0;
        EXPECT_EQ("", printed_by_alloc(0, &id));

        EXPECT_EQ(4U, id);
        EXPECT_EQ((text_lines{"1", "3", "4"}), list());
        expect_highest(4);
    }
}

TEST_F(id_list_test, minimum_mode_fills_the_gap_and_says_so)
{
    given({"1", "3"}, 3);
    gateway.uci_set("network.korvel.use_min_wan_id", "1");

    uint32_t id = 0;
    const std::string printed = printed_by_alloc(0, &id);

    EXPECT_EQ(2U, id);
    EXPECT_EQ((text_lines{"1", "3", "2"}), list());
    expect_highest(3);
    EXPECT_EQ("use_min_wan_id = 1, min_wan_id = 2, maxWanId = 3\n", printed);
}

TEST_F(id_list_test, minimum_mode_lowers_the_highest_identifier_to_the_lists_length)
{
    given({"1", "9"}, 9);
    gateway.uci_set("network.korvel.use_min_wan_id", "7");

    uint32_t id = 0;
    const std::string printed = printed_by_alloc(0, &id);

    EXPECT_EQ(2U, id);
    expect_highest(3);
    EXPECT_EQ("use_min_wan_id = 7, min_wan_id = 2, maxWanId = 3\n", printed);
}

TEST_F(id_list_test, minimum_mode_gives_an_identifier_twice_when_the_list_is_out_of_order)
{
    given({"1", "3", "2"}, 3);
    gateway.uci_set("network.korvel.use_min_wan_id", "1");

    uint32_t id = 0;
    (void)printed_by_alloc(0, &id);

    EXPECT_EQ(2U, id);
    EXPECT_EQ((text_lines{"1", "3", "2", "2"}), list());
    expect_highest(4);
}

TEST_F(id_list_test, minimum_mode_without_a_list_counts_on_from_the_highest)
{
    given({}, 6);
    gateway.uci_set("network.korvel.use_min_wan_id", "1");

    uint32_t id = 0;
    EXPECT_EQ("", printed_by_alloc(0, &id));

    EXPECT_EQ(7U, id);
    EXPECT_EQ(text_lines{"7"}, list());
    expect_highest(7);
}

TEST_F(id_list_test, a_known_identifier_is_listed_again_and_nothing_else_changes)
{
    for (const char *use : {"0", "1"}) {
        SCOPED_TRACE(use);
        gateway.set_config("network", "config korvel 'korvel'\n");
        given({"1", "7"}, 3);
        gateway.uci_set("network.korvel.use_min_wan_id", use);

        uint32_t id = 0;
        EXPECT_EQ("", printed_by_alloc(7, &id));

        EXPECT_EQ(7U, id);
        EXPECT_EQ((text_lines{"1", "7", "7"}), list());
        expect_highest(3);
    }
}

TEST_F(id_list_test, eight_bits_of_a_requested_identifier_count)
{
    given({"1"}, 1);

    EXPECT_EQ(2U, wan_id_alloc(256)); // 0: a new one
    EXPECT_EQ(7U, wan_id_alloc(0x107));
    EXPECT_EQ(255U, wan_id_alloc(255));

    EXPECT_EQ((text_lines{"1", "2", "7", "255"}), list());
    expect_highest(2);
}

TEST_F(id_list_test, an_identifier_is_written_with_three_digits)
{
    constexpr struct {
        uint32_t highest;
        const char *entry;
    } cases[] = {{98, "99"}, {99, "100"}, {998, "999"}, {999, "100"}, {1000, "100"}, {1009, "101"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.highest);
        gateway.set_config("network", "config korvel 'korvel'\n");
        given({}, row.highest);

        EXPECT_EQ(row.highest + 1, wan_id_alloc(0));

        EXPECT_EQ(text_lines{row.entry}, list());
        expect_highest(row.highest + 1);
    }
}

TEST_F(id_list_test, resetting_a_port_binding_changes_nothing)
{
    gateway.store_wan(routed_dhcp(1, {.bind = "1010"}));
    const std::string before = gateway.config("network");
    const std::string section = gateway.device_section(1).value();

    wan_port_binding_reset(section.c_str());
    wan_port_binding_reset("no_such_section");

    EXPECT_EQ(before, gateway.config("network"));
}

TEST_F(id_list_test, resetting_a_port_binding_commits_nothing)
{
    gateway.store_wan(routed_dhcp(1, {.bind = "1010"}));
    const std::string pending = "network.lan.ipaddr='192.168.2.1'\n";
    gateway.write_file("/tmp/.uci/network", pending);
    const std::string before = gateway.config("network");

    wan_port_binding_reset(gateway.device_section(1)->c_str());

    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ(pending, gateway.file("/tmp/.uci/network"));
}

} // namespace
