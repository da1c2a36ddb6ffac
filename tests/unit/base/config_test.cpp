// Reading and writing the configuration: single values, whole packages, and one thread at a time.
#include "base/config.h"

#include "support/gateway.h"
#include "support/open_count.h"

#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace {

class config_test : public gateway_test {
protected:
    config_test()
    {
        gateway.set_config("t", "config a 'one'\n\toption o 'text'\n\tlist l 'first'\n\tlist l 'second'\n"
                                "\nconfig b\n\toption o 'other'\n");
    }
};

TEST_F(config_test, single_values_are_read_and_written)
{
    char value[16] = "";
    EXPECT_EQ(0, config_get("t", "one", "o", value));
    EXPECT_STREQ("text", value);
    EXPECT_EQ(2, config_total_list("t", "one", "l"));

    EXPECT_EQ(0, config_set_number("t", "one", "n", -2147483647 - 1));
    EXPECT_EQ(0, config_add_list("t", "one", "l", "third"));
    EXPECT_EQ(0, config_del_list("t", "one", "l", "first"));
    EXPECT_EQ(0, config_delete("t", "one", "o"));

    EXPECT_EQ("-2147483648", gateway.uci_get("t.one.n"));
    EXPECT_EQ("second third", gateway.uci_get("t.one.l"));
    EXPECT_EQ(std::nullopt, gateway.uci_get("t.one.o"));
}

TEST_F(config_test, what_is_missing_is_an_error_or_nothing)
{
    char value[16] = "before";
    EXPECT_NE(0, config_get("t", "one", "none", value));
    EXPECT_NE(0, config_get("none", "one", "o", value));
    EXPECT_EQ(0, config_total_list("t", "one", "none"));
    EXPECT_EQ(-1, config_total_list("none", "one", "l")) << "it cannot be read";
    EXPECT_NE(0, config_del_section("t", "none"));
}

TEST_F(config_test, an_added_section_has_a_generated_name_unless_it_is_given_one)
{
    char generated[16] = "";
    char given[16] = "two";

    EXPECT_EQ(0, config_add_section("t", "c", generated));
    EXPECT_EQ(0, config_add_section("t", "c", given));

    EXPECT_STRNE("", generated);
    EXPECT_EQ("c", gateway.uci_get(std::string("t.") + generated));
    EXPECT_EQ("c", gateway.uci_get("t.two"));
    EXPECT_EQ(0, config_del_section("t", generated));
    EXPECT_EQ(std::nullopt, gateway.uci_get(std::string("t.") + generated));
}

TEST_F(config_test, a_loaded_configuration_tells_plain_options_from_lists)
{
    const uci_loaded loaded("t");
    ASSERT_TRUE(loaded);
    uci_section *const one = loaded.section("one");
    ASSERT_NE(nullptr, one);

    EXPECT_STREQ("text", loaded.plain(one, "o"));
    EXPECT_EQ(nullptr, loaded.list(one, "o"));
    EXPECT_NE(nullptr, loaded.list(one, "l"));
    EXPECT_EQ(nullptr, loaded.plain(one, "l"));
    EXPECT_EQ(nullptr, loaded.option(one, "none"));
    EXPECT_EQ(nullptr, loaded.section("none"));
    EXPECT_EQ(nullptr, loaded.option(nullptr, "o"));
    EXPECT_FALSE(uci_loaded("none"));
}

TEST_F(config_test, a_loaded_option_reads_as_a_single_value_does)
{
    const uci_loaded loaded("t");
    for (const char *const option : {"o", "l", "none"}) {
        SCOPED_TRACE(option);
        char single[9] = "before";
        char from_loaded[9] = "before"; // "first second" does not fit

        const int result = config_get("t", "one", option, single);

        EXPECT_EQ(result == 0, loaded.get(loaded.section("one"), option, from_loaded) == 0);
        EXPECT_STREQ(result == 0 ? single : "before", from_loaded);
    }
}

TEST_F(config_test, what_is_loaded_stays_as_it_was)
{
    const uci_loaded loaded("t");
    ASSERT_EQ(0, config_set("t", "one", "o", "changed"));

    EXPECT_STREQ("text", loaded.plain(loaded.section("one"), "o"));
    const uci_loaded afterwards("t");
    EXPECT_STREQ("changed", afterwards.plain(afterwards.section("one"), "o"));
}

TEST_F(config_test, a_snapshot_reads_each_configuration_once)
{
    char value[16] = "";
    const open_count opens("/etc/config/t");
    {
        const config_snapshot snapshot;
        EXPECT_EQ(0, config_get("t", "one", "o", value));
        gateway.set_config("t", "config a 'one'\n\toption o 'new'\n");
        (void)opens.take();

        EXPECT_EQ(0, config_get("t", "one", "o", value));
        EXPECT_STREQ("text", value);
        EXPECT_STREQ("text", uci_loaded("t").plain(uci_loaded("t").section("one"), "o"));
        EXPECT_EQ(0U, opens.take());
    }

    EXPECT_EQ(0, config_get("t", "one", "o", value));
    EXPECT_STREQ("new", value);
    EXPECT_EQ(0, config_set("t", "one", "o", "written"));
    EXPECT_EQ("written", gateway.uci_get("t.one.o"));
}

// Pages of this process that are in memory.
[[maybe_unused]] long resident_pages()
{
    std::ifstream file("/proc/self/statm");
    long all = 0, resident = 0;
    file >> all >> resident;
    return resident;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which have memory of their own
TEST_F(config_test, a_snapshot_leaves_no_memory_behind)
{
    std::string text;
    for (int i = 0; i < 5000; i++)
        text += "config a 's" + std::to_string(i) + "'\n\toption o 'text'\n";
    gateway.set_config("large", text);
    text = {};
    std::unique_ptr<char[]> kept;
    const long before = resident_pages();
    long meanwhile = 0;
    {
        const config_snapshot snapshot;
        EXPECT_TRUE(uci_loaded("large"));
        kept = std::make_unique<char[]>(120000); // behind it, as what stays of a start
        meanwhile = resident_pages();
    }

    EXPECT_LT(resident_pages() - before, (meanwhile - before) / 4);
}
#endif

TEST_F(config_test, other_threads_wait_for_the_end_of_the_outermost_hold)
{
    std::atomic<bool> written = false;
    std::jthread other;
    {
        const config_hold outer;
        {
            const config_hold inner;
            other = std::jthread([&written] {
                (void)config_set("t", "one", "o", "changed");
                written = true;
            });
        }
        EXPECT_FALSE(wait_until([&written] { return written.load(); }, std::chrono::milliseconds(200)));
        char value[16] = "";
        EXPECT_EQ(0, config_get("t", "one", "o", value));
        EXPECT_STREQ("text", value);
    }
    other.join();
    EXPECT_EQ("changed", gateway.uci_get("t.one.o"));
}

} // namespace
