// The stand-ins' parts: journal lines, log lines, picking values, and bridge rules in a file.
#include "machine/inside.h"
#include "tools/journal.h"
#include "tools/pick.h"
#include "tools/syslogd.h"

#include <gtest/gtest.h>

namespace {

TEST(journal, words_that_need_it_are_quoted)
{
    struct {
        command_words words;
        const char *line;
    } const cases[] = {
        {{"ip", "rule", "add", "fwmark", "4096/4096"}, "ip rule add fwmark 4096/4096"},
        {{"ebtables", "--ip-dport", "67:68"}, "ebtables --ip-dport 67:68"},
        {{"x", ""}, "x ''"},
        {{"x", "a b"}, "x 'a b'"},
        {{"x", "it's"}, "x 'it'\\''s'"},
        {{"x", "\"y\""}, "x '\"y\"'"},
        {{"x", "a\nb"}, "x 'a\\nb'"},
        {{"x", "a\tb"}, "x 'a\tb'"},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(example.line);
        EXPECT_EQ(example.line, command_line(example.words));
    }
}

TEST(journal, commands_started_at_once_keep_their_lines)
{
    const inside_result result =
        run_in_gateway("for i in 1 2 3 4; do"
                       " (for j in 1 2 3 4 5; do gateway-tool journal w$i some more words; done) &"
                       " done; wait; grep -c '^w[1-4] some more words$' /gateway/journal;"
                       " wc -l < /gateway/journal");

    EXPECT_EQ("20\n20\n", result.output);
}

TEST(system_log, a_datagram_becomes_one_line)
{
    struct {
        const char *datagram;
        const char *line;
    } const cases[] = {
        {"<27>Nov 21 06:04:00 korvel[123]: Failed to get maxWanId", "err korvel Failed to get maxWanId"},
        {"<28>Nov  1 06:04:00 korvel[1]: Receive stop signal: 15", "warning korvel Receive stop signal: 15"},
        {"<30>Nov 21 06:04:00 korvel: no number", "info korvel no number"},
        {"<27>Nov 21 06:04:00 korvel[1]: two\nlines\n", "err korvel two\\nlines\\n"},
        {"<13>Nov 21 06:04:00 user: note", "notice user note"},
        {"without anything", "notice - without anything"},
        {"<27>", "err - "},
        {"", "notice - "},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(example.datagram);
        EXPECT_EQ(example.line, log_line(example.datagram));
    }
}

TEST(pick, values_become_lines)
{
    const char json[] =
        R"({"l3_device":"pon.100","ipv4-address":[{"address":"198.51.100.23","mask":24},{"mask":32}],
        "dns-server":["192.0.2.1","192.0.2.2"],"list":[{"name":"a","n":1},{"n":2},{"name":"b","n":3}],"inactive":{"route":[]},"empty":null})";
    struct {
        const char *path;
        std::vector<std::string> keys;
        const char *lines;
    } const cases[] = {
        {"l3_device", {}, "pon.100\n"},
        {"ipv4-address", {"address", "mask"}, "198.51.100.23 24\n- 32\n"},
        {"dns-server", {}, "192.0.2.1\n192.0.2.2\n"},
        {"inactive.route", {"target"}, ""},
        {"inactive.dns-server", {}, ""},
        {"empty", {}, ""},
        {"list.name=b.n", {}, "3\n"},
        {"list.n=2.n", {}, "2\n"},
        {"list.name=c.n", {}, ""},
        {"list.n", {}, ""},
        {"l3_device.deeper", {}, ""},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(example.path);
        EXPECT_EQ(example.lines, pick_lines(json, example.path, example.keys));
    }
    EXPECT_EQ("", pick_lines("", "l3_device", {}));
    EXPECT_EQ("", pick_lines("no json", "l3_device", {}));
}

constexpr char mark_eth1[] = "BROUTING -i eth0.1 -j mark --mark-or 4096 --mark-target CONTINUE";
constexpr char mark_eth2[] = "BROUTING -i eth0.2 -j mark --mark-or 4096 --mark-target CONTINUE";

std::string broute(const std::string &command)
{
    return "ebtables -t broute " + command + "; ";
}

TEST(broute_table, rules_are_inserted_in_front_and_appended_behind)
{
    const inside_result result =
        run_in_gateway(broute(std::string("-I ") + mark_eth1) + broute(std::string("-I ") + mark_eth2) +
                       broute("-A BROUTING -j ACCEPT") + broute("-L BROUTING"));

    EXPECT_EQ("Bridge table: broute\n\nBridge chain: BROUTING, entries: 3, policy: ACCEPT\n"
              "-i eth0.2 -j mark --mark-or 4096 --mark-target CONTINUE\n"
              "-i eth0.1 -j mark --mark-or 4096 --mark-target CONTINUE\n"
              "-j ACCEPT\n",
              result.output);
}

TEST(broute_table, one_equal_rule_is_deleted)
{
    const inside_result result =
        run_in_gateway(broute(std::string("-A ") + mark_eth1) + broute(std::string("-A ") + mark_eth2) +
                       broute(std::string("-A ") + mark_eth1) + broute(std::string("-D ") + mark_eth1) +
                       "grep -c . /gateway/state/ebtables-broute; head -n 1 /gateway/state/ebtables-broute");

    EXPECT_EQ(std::string("2\n") + mark_eth2 + "\n", result.output);
}

TEST(broute_table, deleting_an_absent_rule_fails_as_ebtables_does)
{
    const inside_result result = run_in_gateway(broute(std::string("-D ") + mark_eth1) + "echo $?;" +
                                                "ebtables -D FORWARD -i nosuch -j DROP; echo $?");

    const std::string refusal = "ebtables: Bad rule (does a matching rule exist in that chain?)\n1\n";
    EXPECT_EQ(refusal, result.output.substr(0, refusal.size()));
    EXPECT_EQ("1\n", result.output.substr(result.output.size() - 2));
}

TEST(broute_table, what_it_cannot_do_is_refused)
{
    for (const char *command : {"-A", "-A BROUTING", "-D OUTPUT -j DROP", "BROUTING", "-L INPUT"}) {
        SCOPED_TRACE(command);
        const inside_result result = run_in_gateway(std::string("ebtables -t broute ") + command);
        EXPECT_EQ(2, result.status);
        EXPECT_NE("", result.output);
    }
}

TEST(broute_table, concurrent_changes_are_all_kept)
{
    const inside_result result =
        run_in_gateway("for i in 1 2 3 4; do (for j in 1 2 3 4 5; do"
                       " ebtables -t broute -I BROUTING -i p$i.$j -j DROP; done) & done; wait;"
                       "sort -u /gateway/state/ebtables-broute | wc -l");

    EXPECT_EQ("20\n", result.output);
}

TEST(stand_ins, commands_are_noted_before_they_run_and_listings_are_not)
{
    const inside_result result =
        run_in_gateway("ip rule add from all fwmark 4096/4096 prohibit; ebtables -L FORWARD > /dev/null;"
                       "ebtables -I FORWARD -i pon.100 -o eth0.2 -j DROP; iptables -t mangle -S > /dev/null;"
                       "cat /gateway/journal; ip rule | grep -c 'fwmark 0x1000/0x1000 prohibit';"
                       "ebtables -L FORWARD | tail -n 1");

    EXPECT_EQ("ip rule add from all fwmark 4096/4096 prohibit\n"
              "ebtables -I FORWARD -i pon.100 -o eth0.2 -j DROP\n"
              "1\n"
              "-i pon.100 -o eth0.2 -j DROP\n",
              result.output);
}

TEST(stand_ins, a_kernel_without_a_bridge_filter_is_replaced_and_the_log_says_so)
{
    // The machine's ebtables fails on such a kernel; here a program in its place does.
    const inside_result result =
        run_in_gateway("mkdir /tmp/machine; printf '#!/bin/sh\\nexit 3\\n' > /tmp/machine/ebtables; chmod "
                       "755 /tmp/machine/ebtables;"
                       "export PATH=/gateway/bin:/tmp/machine:$PATH;"
                       "ebtables -A INPUT -i eth0.1 -j DROP && ebtables -I INPUT -i eth0.2 -j DROP && "
                       "ebtables -D INPUT -i eth0.1 -j DROP;"
                       "ebtables -L INPUT; cut -c -80 /gateway/log");

    EXPECT_EQ("Bridge table: filter\n\nBridge chain: INPUT, entries: 1, policy: ACCEPT\n-i eth0.2 -j DROP\n"
              "notice ebtables The kernel has no bridge filter table: its rules are kept in a f\n",
              result.output);
}

TEST(stand_ins, messages_to_the_system_log_are_kept)
{
    const inside_result result =
        run_in_gateway("gateway-tool syslogd & while [ ! -S /dev/log ]; do sleep 0.01; done;"
                       "busybox logger -t korvel -p daemon.err 'Failed to get maxWanId';"
                       "tries=0; while [ ! -s /gateway/log ] && [ $tries -lt 1000 ]; do"
                       " tries=$((tries + 1)); sleep 0.01; done; cat /gateway/log");

    EXPECT_EQ("err korvel Failed to get maxWanId\n", result.output);
}

TEST(stand_ins, the_system_log_ends_with_all_that_was_sent)
{
    // Stopped, it finds the messages and the request to end at the same moment.
    const inside_result result =
        run_in_gateway("gateway-tool syslogd & while [ ! -S /dev/log ]; do sleep 0.01; done; kill -STOP $!;"
                       "for text in one two three; do busybox logger -t korvel -p daemon.err $text; done;"
                       "kill -TERM $!; kill -CONT $!; wait $!; echo $?; cat /gateway/log");

    EXPECT_EQ("0\nerr korvel one\nerr korvel two\nerr korvel three\n", result.output);
}

} // namespace
