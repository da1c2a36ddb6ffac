// How many copies of the rules are in the kernel, and that none is left.
#include "kernel/kernel_test.h"
#include "support/daemon_test.h"

#include <algorithm>

namespace {

// The kernel's own.
const text_lines none = {"0: from all lookup local", "32766: from all lookup main",
                         "32767: from all lookup default"};

class copies : public kernel_test {
protected:
    static wan_config bridged()
    {
        return bridged_wan(1, "1000", {.vid = 100, .service = 3, .disable_lan_dhcp = 1});
    }
    static wan_config routed()
    {
        return routed_static(2, {.vid = 200, .disable_lan_dhcp = 1, .bind = "0100"});
    }

    // Every rule that the kernel has for WANs.
    static text_lines rules()
    {
        text_lines all = router().ebtables_rules();
        for (const text_lines &more :
             {router().broute_rules(), router().ip_rules(), router().iptables_mangle_output(),
              router().ip_routes("101"), router().ip_routes("102")})
            all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    static text_lines sorted_rules()
    {
        text_lines all = rules();
        // Which of two policy rules comes first depends on which was made last.
        for (std::string &rule : all)
            if (const size_t end = rule.find(": from"); end != std::string::npos && rule.starts_with("327"))
                rule.erase(0, end);
        std::sort(all.begin(), all.end());
        return all;
    }
    static void expect_one_copy_each()
    {
        const text_lines all = sorted_rules();
        EXPECT_EQ(all.end(), std::adjacent_find(all.begin(), all.end()))
            << *std::adjacent_find(all.begin(), all.end());
    }

    void SetUp() override { given({bridged(), routed()}); }
    static void expect_none() { EXPECT_EQ(none, rules()); }
    static void take_back_bridged()
    {
        (void)run_program({"/etc/korvel/rule_wan_1.sh", "-r"}); // its last command is a test
    }
    static void bring_back()
    {
        run({"/usr/libexec/korvel/apply-rules"});
        tell("ifupdate", "wan_2", "pon.200");
    }
};

TEST_F(copies, one_is_left_by_repeated_runs)
{
    const text_lines once = sorted_rules();
    ASSERT_LT(none.size(), once.size());
    expect_one_copy_each();

    bring_back();
    bring_back();

    EXPECT_EQ(once, sorted_rules());
}

TEST_F(copies, one_is_left_by_runs_at_the_same_moment)
{
    const text_lines once = sorted_rules();
    std::vector<child_process> together;
    for (int i = 0; i < 3; i++)
        together.emplace_back(program_arguments{"/usr/libexec/korvel/apply-rules"});
    tell("ifupdate", "wan_2", "pon.200");

    for (child_process &each : together)
        EXPECT_EQ(0, each.wait());

    EXPECT_EQ(once, sorted_rules());
}

TEST_F(copies, none_is_left_by_r)
{
    take_back_bridged();
    run({"sh", "/etc/hotplug.d/iface/99-wan_2", "-r"});

    expect_none();
    bring_back();
}

TEST_F(copies, none_is_left_by_ifdown)
{
    take_back_bridged();
    ASSERT_NE(none, rules());

    tell("ifdown", "wan_2");

    expect_none();
    bring_back();
}

TEST_F(copies, none_is_left_by_del)
{
    spoil();

    del(2);
    del(1);

    expect_none();
}

TEST_F(copies, none_is_left_by_del_while_others_apply_rules)
{
    spoil();
    const std::string others = "while [ ! -e /tmp/enough ]; do /usr/libexec/korvel/apply-rules; done";
    child_process busy({"sh", "-c", others});

    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), router().call("del", R"({"wanId":1})"));

    router().write_file("/tmp/enough", "");
    EXPECT_EQ(0, busy.wait());
    settle();
    del(2);
    expect_none();
}

} // namespace
