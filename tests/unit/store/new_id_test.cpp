// Which identifier a new WAN gets when the allocator's own cannot be used.
#include "store/new_id.h"

#include "service/settings.h"
#include "store/id_list.h"
#include "support/code_test.h"

#include <set>

namespace {

class new_id_test : public code_test {
protected:
    // A list of these identifiers and nothing else that has any.
    void given(const std::set<unsigned> &ids, unsigned highest, bool fills_gaps = false)
    {
        text_lines entries;
        for (const unsigned id : ids)
            entries.push_back(std::to_string(id));
        given_in_order(entries, highest, fills_gaps);
    }

    void given_in_order(const text_lines &entries, unsigned highest, bool fills_gaps = false)
    {
        std::string text = "config korvel 'korvel'\n\toption maxWanId '" + std::to_string(highest) +
                           "'\n\toption pon_adapt 'pon'\n";
        for (const std::string &entry : entries)
            text += "\tlist wanList '" + entry + "'\n";
        if (fills_gaps)
            text += "\toption use_min_wan_id '1'\n";
        gateway.set_config("network", text);
        load_settings();
        gateway.clear_log();
    }

    void add_sections(const std::string &text)
    {
        gateway.set_config("network", gateway.config("network") + "\n" + text);
    }

    // Chooses and takes; 0 when there is none.
    static unsigned take()
    {
        testing::internal::CaptureStdout();
        const uint8_t id = wan_id_choose();
        if (id != 0)
            wan_id_take(id);
        (void)testing::internal::GetCapturedStdout();
        return id;
    }

    text_lines list() const { return gateway.uci_list("network.korvel.wanList").value_or(text_lines{}); }

    void expect_highest(unsigned highest) const
    {
        EXPECT_EQ(highest, maxWanId);
        EXPECT_EQ(std::to_string(highest), gateway.uci_get("network.korvel.maxWanId"));
    }

    static text_lines instead_of(unsigned next, unsigned taken)
    {
        return {"WAN identifier " + std::to_string(next) + " cannot be used, " + std::to_string(taken) +
                " is taken instead"};
    }
};

std::set<unsigned> all_but(const std::set<unsigned> &free)
{
    std::set<unsigned> ids;
    for (unsigned id = 1; id <= 255; id++)
        if (!free.contains(id))
            ids.insert(id);
    return ids;
}

TEST_F(new_id_test, an_identifier_that_can_be_used_is_the_allocators_and_unmentioned)
{
    given({1, 2, 9}, 9);
    EXPECT_EQ(10U, take());
    EXPECT_EQ((text_lines{"1", "2", "9", "10"}), list());
    expect_highest(10);

    given({1, 2, 9}, 9, /*fills_gaps=*/true);
    EXPECT_EQ(3U, take());
    EXPECT_EQ((text_lines{"1", "2", "9", "3"}), list());
    expect_highest(4);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(new_id_test, choosing_writes_nothing)
{
    for (const bool fills_gaps : {false, true}) {
        given({2, 255}, 255, fills_gaps);
        const std::string before = gateway.config("network");

        EXPECT_EQ(1U, wan_id_choose());

        EXPECT_EQ(before, gateway.config("network"));
        EXPECT_EQ(255U, maxWanId);
        EXPECT_TRUE(gateway.log().empty());
    }
}

TEST_F(new_id_test, behind_255_the_lowest_free_one_is_taken_and_the_highest_stays)
{
    for (const unsigned highest : {255U, 256U, 300U, 511U}) {
        SCOPED_TRACE(highest);
        given({1, 2, 4, 255}, highest);

        EXPECT_EQ(3U, take());
        EXPECT_EQ(5U, take());

        EXPECT_EQ((text_lines{"1", "2", "4", "255", "3", "5"}), list());
        expect_highest(highest);
        EXPECT_EQ(instead_of(highest + 1, 3)[0], gateway.log_texts(LOG_WARNING).at(0));
        EXPECT_EQ(instead_of(highest + 1, 5)[0], gateway.log_texts(LOG_WARNING).at(1));
    }
}

TEST_F(new_id_test, the_kernels_routing_tables_are_nobodys)
{
    for (const unsigned highest : {152U, 153U, 154U}) {
        SCOPED_TRACE(highest);
        std::set<unsigned> ids;
        for (unsigned id = 1; id <= 152; id++)
            ids.insert(id);
        given(ids, highest);

        EXPECT_EQ(156U, take());
        EXPECT_EQ(instead_of(highest + 1, 156), gateway.log_texts(LOG_WARNING));
        expect_highest(156);
        EXPECT_EQ(157U, take());
    }
    given({1, 2}, 154, /*fills_gaps=*/true);
    EXPECT_EQ(3U, take());
}

TEST_F(new_id_test, in_gap_filling_mode_none_is_given_twice)
{
    given_in_order({"1", "3", "2"}, 3, /*fills_gaps=*/true);

    EXPECT_EQ(4U, take());
    EXPECT_EQ(5U, take());

    EXPECT_EQ((text_lines{"1", "3", "2", "4", "5"}), list());
    expect_highest(5);
    EXPECT_EQ((text_lines{instead_of(2, 4)[0], instead_of(2, 5)[0]}), gateway.log_texts(LOG_WARNING));
}

TEST_F(new_id_test, list_entries_count_with_8_bits)
{
    given_in_order({"257", "2x", "-253", "x"}, 511);

    EXPECT_EQ(4U, take());
}

TEST_F(new_id_test, sections_of_a_wan_keep_its_identifier)
{
    const struct {
        const char *text;
        unsigned taken; // with 1 and 2 listed, and 2 the highest
    } cases[] = {
        {"config device\n\toption name 'pon'\n\toption lkname '3_INTERNET_R_VID_'\n", 4},
        {"config device\n\toption lkname '3_'\n", 4},
        {"config device\n\toption lkname '3'\n", 3},
        {"config device\n\toption lkname '33_INTERNET_R_VID_'\n", 3},
        {"config other\n\toption lkname '3_INTERNET_R_VID_'\n", 3},
        {"config interface 'wan_3'\n", 4},
        {"config interface 'wan_3_v6'\n", 4},
        {"config interface 'dslite_3'\n", 4},
        {"config interface 'wan_33'\n\nconfig interface 'wan'\n", 3},
        {"config interface 'wan_3'\n\nconfig interface 'wan_4'\n\nconfig interface 'dslite_6'\n", 5},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        given({1, 2}, 2);
        add_sections(row.text);

        EXPECT_EQ(row.taken, take());

        expect_highest(row.taken);
        EXPECT_EQ(row.taken == 3 ? text_lines{} : instead_of(3, row.taken), gateway.log_texts(LOG_WARNING));
    }
}

TEST_F(new_id_test, an_identifier_that_finds_anothers_section_is_not_taken)
{
    given(all_but({100, 101}), 255);
    add_sections("config device\n\toption name 'pon'\n\toption lkname '1000_INTERNET_R_VID_'\n");

    EXPECT_EQ(101U, take()); // 100 is looked for by its three digits alone
}

TEST_F(new_id_test, with_none_left_there_is_none_and_nothing_is_written)
{
    for (const bool fills_gaps : {false, true}) {
        SCOPED_TRACE(fills_gaps);
        given(all_but({77, 153, 154, 155}), 255, fills_gaps);
        EXPECT_EQ(77U, take());
        const std::string before = gateway.config("network");
        gateway.clear_log();

        EXPECT_EQ(0U, take());

        EXPECT_EQ(before, gateway.config("network"));
        EXPECT_EQ(text_lines{"No WAN identifier is left"}, gateway.log_texts(LOG_ERR));
    }
}

TEST_F(new_id_test, what_is_being_written_again_is_not_given_away)
{
    given({2}, 2, /*fills_gaps=*/true);
    {
        const wan_id_hold hold(1);
        EXPECT_EQ(3U, wan_id_choose());
    }
    EXPECT_EQ(1U, wan_id_choose());
}

TEST_F(new_id_test, of_a_configuration_that_cannot_be_read_only_the_allocators_own_is_given)
{
    given({1}, 1);
    gateway.remove("/etc/config/network");
    EXPECT_EQ(2U, wan_id_choose());

    given({1}, 255);
    gateway.remove("/etc/config/network");
    EXPECT_EQ(0U, wan_id_choose());
}

} // namespace
