// The bit of the firewall mark by which a WAN's traffic is known.
#include "rules/firewall_mark.h"

#include "support/code_test.h"

namespace {

using firewall_mark_test = code_test;

TEST_F(firewall_mark_test, the_first_twenty_wans_have_a_bit_of_their_own)
{
    for (unsigned id = 1; id <= 20; id++) {
        SCOPED_TRACE(id);
        EXPECT_EQ(wan_firewall_mark(static_cast<uint8_t>(id)), 4096U << (id - 1));
    }
    EXPECT_EQ(wan_firewall_mark(1), 4096U);
    EXPECT_EQ(wan_firewall_mark(20), 2147483648U);
}

TEST_F(firewall_mark_test, later_wans_take_the_bit_of_the_first_gap_in_the_list)
{
    struct {
        std::initializer_list<unsigned> ids;
        uint8_t wan;
        uint32_t mark;
    } const cases[] = {
        {{2, 25}, 25, 1U << 12},                      // gap 1
        {{1, 2, 25}, 25, 1U << 14},                   // gap 3
        {{1, 2, 4, 3, 21}, 21, 1U << 14},             // the walk stops at 4
        {{1, 2, 3, 4, 5, 6, 7, 8, 21}, 21, 1U << 20}, // gap 9
        {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21}, 21, 1U << 1}, // 33 % 32
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.mark);
        set_ids(row.ids);

        EXPECT_EQ(wan_firewall_mark(row.wan), row.mark);
    }
}

TEST_F(firewall_mark_test, the_list_does_not_matter_up_to_twenty)
{
    set_ids({5, 20});

    EXPECT_EQ(wan_firewall_mark(20), 1U << 31);
    EXPECT_EQ(wan_firewall_mark(5), 1U << 16);
}

TEST_F(firewall_mark_test, later_wans_wrap_around_without_a_list)
{
    struct {
        uint8_t wan;
        uint32_t mark;
    } const cases[] = {{21, 1U << 0},  {22, 1U << 1}, {25, 1U << 4},
                       {52, 1U << 31}, {53, 1U << 0}, {255, 1U << 10}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.wan);
        EXPECT_EQ(wan_firewall_mark(row.wan), row.mark);
    }
    gateway.remove("/etc/config/network");
    EXPECT_EQ(wan_firewall_mark(25), 1U << 4) << "no configuration at all";
}

} // namespace
