// Status commands side by side: how many, in which order, and what becomes of those that are not like the
// others. The bus tool is a program that answers when it is told to.
#include "status/status_commands.h"

#include "base/clock.h"
#include "support/broken_command.h"
#include "support/gateway.h"

namespace {

using answer = status_commands::answer;

std::string command(const std::string &interface)
{
    return "ubus -S call network.interface." + interface + " status";
}

class status_commands_test : public gateway_test {
protected:
    status_commands_test()
    {
        // Notes that it was started, waits for its file, prints that and ends. "default" has it not wait.
        gateway.fake_program("ubus", R"sh(name=${3##*.}
: >"/tmp/begun-$name"
until [ -e "/tmp/answer-$name" ]; do
    [ ! -e /tmp/answer-default ] || exec cat /tmp/answer-default
    sleep 0.01
done
exec sh "/tmp/answer-$name")sh");
        (void)take_started_commands();
    }

    // What the command of an interface does from now on, as shell text.
    void let_answer(const std::string &interface, const std::string &shell_text)
    {
        gateway.write_file("/tmp/new-answer", shell_text);
        ASSERT_EQ(0, rename("/tmp/new-answer", ("/tmp/answer-" + interface).c_str()));
    }
    void let_all_answer(const std::string &printed) { gateway.write_file("/tmp/answer-default", printed); }

    bool has_begun(const std::string &interface) const
    {
        return wait_until([&] { return gateway.exists("/tmp/begun-" + interface); });
    }

    static text_lines started()
    {
        text_lines interfaces;
        for (const std::string &line : take_started_commands())
            interfaces.push_back(line.substr(strlen("ubus -S call network.interface."),
                                             line.rfind(' ') - strlen("ubus -S call network.interface.")));
        return interfaces;
    }

    status_commands commands{steady_milliseconds()};
};

TEST_F(status_commands_test, as_many_run_side_by_side_as_may_and_no_more)
{
    for (const char *interface : {"a", "b", "c", "d", "e", "f"}) {
        EXPECT_EQ(answer::asked, commands.ask(interface));
        EXPECT_TRUE(has_begun(interface));
    }
    EXPECT_EQ(answer::later, commands.ask("g"));
    let_answer("d", "printf 4");
    EXPECT_EQ(answer::later, commands.ask("g")) << "a place is free once its reply was taken";

    let_answer("a", "printf 1");
    EXPECT_STREQ("1", commands.take());
    EXPECT_EQ(answer::asked, commands.ask("g"));
    EXPECT_EQ(answer::later, commands.ask("h"));

    EXPECT_EQ((text_lines{"a", "b", "c", "d", "e", "f", "g"}), started());
    let_all_answer("0");
    for (const char *reply : {"0", "0", "4", "0", "0", "0"})
        EXPECT_STREQ(reply, commands.take());
}

TEST_F(status_commands_test, replies_are_taken_in_the_order_of_the_questions)
{
    for (const char *interface : {"a", "b", "c"})
        EXPECT_EQ(answer::asked, commands.ask(interface));
    let_answer("c", "printf 3; : >/tmp/c-is-through");
    EXPECT_TRUE(wait_until([&] { return gateway.exists("/tmp/c-is-through"); }));
    let_answer("b", "printf 2");
    let_answer("a", "sleep 0.05; printf 1");

    for (const char *reply : {"1", "2", "3"})
        EXPECT_STREQ(reply, commands.take());
}

TEST_F(status_commands_test, what_others_print_is_taken_while_one_is_waited_for)
{
    EXPECT_EQ(answer::asked, commands.ask("a"));
    EXPECT_EQ(answer::asked, commands.ask("b"));
    // More than a pipe holds: without a reader b would not come to its end, nor a.
    let_answer("b", "head -c 200000 /dev/zero | tr '\\0' x; : >/tmp/b-is-through");
    let_answer("a", "until [ -e /tmp/b-is-through ]; do sleep 0.01; done; printf 1");

    EXPECT_STREQ("1", commands.take());
    EXPECT_EQ(std::string(2048, 'x'), commands.take());

    EXPECT_EQ(text_lines{"Output of " + command("b") + " is cut at 2048 of its 200000 bytes"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(status_commands_test, the_first_2048_bytes_are_the_reply)
{
    for (const size_t length : {2047U, 2048U, 2049U}) {
        SCOPED_TRACE(length);
        gateway.clear_log();
        let_all_answer(std::string(length, 'x'));
        EXPECT_EQ(answer::asked, commands.ask("a"));

        EXPECT_EQ(std::string(std::min<size_t>(length, 2048), 'x'), commands.take());

        EXPECT_EQ(length > 2048, !gateway.log().empty());
    }
}

TEST_F(status_commands_test, one_that_fails_or_prints_nothing_has_an_empty_reply)
{
    for (const char *interface : {"a", "b", "c"})
        EXPECT_EQ(answer::asked, commands.ask(interface));
    let_answer("a", "exit 4");
    let_answer("b", "kill -9 $$");
    let_answer("c", "printf 3");

    for (const char *reply : {"", "", "3"})
        EXPECT_STREQ(reply, commands.take());

    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(status_commands_test, one_is_waited_for_until_its_last_process_is_silent)
{
    EXPECT_EQ(answer::asked, commands.ask("a"));
    EXPECT_EQ(answer::asked, commands.ask("b"));
    let_answer("a", "{ sleep 0.1; printf grandchild; } & printf 'a '");
    let_answer("b", "printf 2");

    EXPECT_STREQ("a grandchild", commands.take());
    EXPECT_STREQ("2", commands.take());
}

TEST_F(status_commands_test, one_that_is_silent_is_waited_for_to_its_end)
{
    EXPECT_EQ(answer::asked, commands.ask("a"));
    let_answer("a", "printf 1; exec >&-; sleep 0.05; : >/tmp/a-has-ended");

    EXPECT_STREQ("1", commands.take());

    EXPECT_TRUE(gateway.exists("/tmp/a-has-ended"));
}

TEST_F(status_commands_test, one_that_has_said_all_and_lingers_is_an_answer_all_the_same)
{
    status_commands asked_meanwhile(steady_milliseconds());
    EXPECT_EQ(answer::asked, commands.ask("a"));
    let_answer("a", "printf 1; exec >&-; exec sleep 1000");
    EXPECT_STREQ("1", commands.take());
    EXPECT_EQ(text_lines{"No answer after 31 s: " + command("a")}, gateway.log_texts(LOG_ERR));

    EXPECT_EQ(answer::asked, asked_meanwhile.ask("b"));
    let_answer("b", "printf 2");
    EXPECT_STREQ("2", asked_meanwhile.take());
}

TEST_F(status_commands_test, one_that_cannot_start_beside_others_waits_for_them)
{
    bool short_of_processes = true;
    const broken_command broken(command("b"), [&] { return short_of_processes; });
    let_all_answer("0");
    EXPECT_EQ(answer::asked, commands.ask("a"));
    EXPECT_EQ(answer::later, commands.ask("b"));
    EXPECT_STREQ("0", commands.take());

    short_of_processes = false;
    EXPECT_EQ(answer::asked, commands.ask("b"));
    EXPECT_STREQ("0", commands.take());

    EXPECT_EQ((text_lines{"a", "b"}), started());
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(status_commands_test, one_that_cannot_start_at_all_has_no_reply)
{
    const broken_command broken(command("a"));
    let_all_answer("0");
    EXPECT_EQ(answer::failed, commands.ask("a"));
    EXPECT_EQ(answer::asked, commands.ask("b"));
    EXPECT_TRUE(gateway.log().empty()) << "that is said in its place";

    EXPECT_EQ(nullptr, commands.take());
    EXPECT_EQ(text_lines{"Failed to open ubus call: " + command("a")}, gateway.log_texts(LOG_ERR));
    EXPECT_STREQ("0", commands.take());
}

TEST_F(status_commands_test, they_have_no_descriptors_of_each_other)
{
    ASSERT_EQ(0, system("ls /proc/self/fd | wc -l >/tmp/by-hand"));
    for (const char *interface : {"a", "b"}) {
        let_answer(interface, "ls /proc/self/fd | wc -l");
        EXPECT_EQ(answer::asked, commands.ask(interface));
    }

    EXPECT_EQ(gateway.file("/tmp/by-hand"), commands.take());
    EXPECT_EQ(gateway.file("/tmp/by-hand"), commands.take());
}

} // namespace
