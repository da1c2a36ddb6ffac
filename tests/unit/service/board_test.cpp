// The board's port counts, from what the bus tool prints about it.
#include "service/board.h"

#include "support/broken_command.h"
#include "support/printed_replies.h"

namespace {

constexpr char unparsable[] = "[nemtra_init_lan_num][2276] Failed to parse all boardinfo data json";

class board_test : public gateway_test {
protected:
    board_test() { lan_num = lan_phy_num = wlan_2g_num = wlan_5g_num = 0; }

    void probe(const std::string &description)
    {
        bus.set("boardinfo", description);
        nemtra_init_lan_num();
    }

    void expect_counts(int lan, int lan_phy, int wlan_2g, int wlan_5g)
    {
        EXPECT_EQ(lan, lan_num);
        EXPECT_EQ(lan_phy, lan_phy_num);
        EXPECT_EQ(wlan_2g, wlan_2g_num);
        EXPECT_EQ(wlan_5g, wlan_5g_num);
    }

    printed_replies bus{gateway};
};

// {"lan":{"numOfPorts":4},"note":"xxx..."}, `length` bytes in all.
std::string description_of(size_t length)
{
    const std::string head = R"({"lan":{"numOfPorts":4},"note":")";
    const std::string tail = "\"}";
    return head + std::string(length - head.size() - tail.size(), 'x') + tail;
}

TEST_F(board_test, the_description_gives_the_four_counts)
{
    probe(R"({"lan":{"numOfPorts":4},"lan_phy":{"numOfPorts":3},"wlan_2g":{"numOfPorts":2},)"
          R"("wlan_5g":{"numOfPorts":1}})");

    expect_counts(4, 3, 2, 1);
    EXPECT_EQ(text_lines{"ubus -S call boardinfo all"}, bus.asked());
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(board_test, a_kind_that_is_not_described_has_no_ports)
{
    for (const char *description : {
             R"({"lan":{"numOfPorts":4}})",
             R"({"lan":{"numOfPorts":4},"wlan_5g":null})",
             R"({"lan":{"numOfPorts":4},"wlan_5g":{}})",
             R"({"lan":{"numOfPorts":4},"wlan_5g":{"numOfPorts":null}})",
             R"({"lan":{"numOfPorts":4},"wlan_5g":7})",
             R"({"lan":{"numOfPorts":4},"wlan_5g":[7]})",
         }) {
        SCOPED_TRACE(description);

        probe(description);

        expect_counts(4, 0, 0, 0);
        EXPECT_TRUE(gateway.log().empty());
    }
}

TEST_F(board_test, without_the_service_all_counts_stay_zero)
{
    nemtra_init_lan_num();

    expect_counts(0, 0, 0, 0);
    EXPECT_EQ(text_lines{unparsable}, gateway.log_texts(LOG_ERR));
}

TEST_F(board_test, what_is_no_json_leaves_all_counts_zero)
{
    for (const char *description :
         {"", "null", "Command failed: Not found\n", R"({"lan":{"numOfPorts":4})"}) {
        SCOPED_TRACE(description);
        gateway.clear_log();

        probe(description);

        expect_counts(0, 0, 0, 0);
        EXPECT_EQ(text_lines{unparsable}, gateway.log_texts(LOG_ERR));
    }
}

TEST_F(board_test, the_first_512_bytes_count)
{
    for (const size_t length : {511U, 512U}) {
        SCOPED_TRACE(length);
        lan_num = 0;

        probe(description_of(length));

        EXPECT_EQ(4, lan_num);
        EXPECT_TRUE(gateway.log().empty());
    }
    for (const size_t length : {513U, 2000U}) {
        SCOPED_TRACE(length);
        lan_num = 0;
        gateway.clear_log();

        probe(description_of(length));

        EXPECT_EQ(0, lan_num);
        EXPECT_EQ((text_lines{"Output of ubus -S call boardinfo all is cut at 512 of its " +
                                  std::to_string(length) + " bytes",
                              unparsable}),
                  gateway.log_texts(LOG_ERR));
    }
}

TEST_F(board_test, a_command_that_cannot_be_started_is_logged)
{
    const broken_command broken("ubus -S call boardinfo all");

    probe(R"({"lan":{"numOfPorts":4}})");

    expect_counts(0, 0, 0, 0);
    EXPECT_EQ(text_lines{"[nemtra_init_lan_num][2282] Failed to open ubus call"}, gateway.log_texts(LOG_ERR));
    EXPECT_TRUE(bus.asked().empty());
}

TEST_F(board_test, no_kind_counts_more_than_255_ports)
{
    probe(R"({"lan":{"numOfPorts":255},"wlan_2g":{"numOfPorts":256}})");

    expect_counts(255, 0, 255, 0);
    EXPECT_EQ(text_lines{"Board describes 256 ports of kind wlan_2g, taken as 255"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(board_test, the_port_count_is_the_sum_and_never_negative)
{
    constexpr struct {
        port_counts counts;
        int sum;
    } cases[] = {
        {{}, 0},
        {{.lan = 4, .lan_phy = 1, .wlan_2g = 2, .wlan_5g = 3}, 10},
        {{.lan = 4, .wlan_5g = -1}, 3},
        {{.lan = 4, .wlan_5g = -5}, 0},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.sum);
        gateway.set_ports(row.counts);

        EXPECT_EQ(row.sum, board_port_count());
    }
}

} // namespace
