// Commands that run while others do: what they print, how they start and how they end.
#include "base/running_command.h"

#include "support/broken_command.h"
#include "support/gateway.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <poll.h>
#include <unistd.h>

#include "base/clock.h"

namespace {

bool kernel_is_old = false;

} // namespace

// The name is the one that the linker gives to a wrapped call.
extern "C" {

long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...)
{
    if (kernel_is_old) {
        errno = ENOSYS;
        return -1;
    }
    va_list list;
    va_start(list, number);
    const long first = va_arg(list, long), second = va_arg(list, long), third = va_arg(list, long);
    va_end(list);
    return __real_syscall(number, first, second, third);
}
}

namespace {

class running_command_test : public gateway_test {
protected:
    void take_all(running_command &command)
    {
        while (command.descriptor() >= 0)
            command.take();
    }

    size_t open_descriptors() const { return gateway.list_directory("/proc/self/fd").size(); }
};

TEST_F(running_command_test, what_it_prints_is_taken_as_it_comes)
{
    running_command command;
    char output[16];
    ASSERT_TRUE(command.start("printf one; until [ -e /tmp/go ]; do sleep 0.01; done; printf two", output));

    command.take();
    EXPECT_EQ("one", std::string(output, 3));
    pollfd waiting = {command.descriptor(), POLLIN, 0};
    EXPECT_EQ(0, poll(&waiting, 1, 0));
    gateway.write_file("/tmp/go", "");
    take_all(command);
    command.finish();

    EXPECT_STREQ("onetwo", output);
}

TEST_F(running_command_test, one_that_is_held_keeps_nothing_of_another)
{
    running_command held, other;
    char held_output[16], other_output[16];
    ASSERT_TRUE(other.start("until [ -e /tmp/go ]; do sleep 0.01; done; printf other", other_output));
    ASSERT_TRUE(held.start("until [ -e /tmp/end ]; do sleep 0.01; done; printf held", held_output));

    gateway.write_file("/tmp/go", "");
    take_all(other); // a second writer of its pipe would keep it from ending
    other.finish();
    EXPECT_STREQ("other", other_output);

    gateway.write_file("/tmp/end", "");
    take_all(held);
    held.finish();
    EXPECT_STREQ("held", held_output);
}

TEST_F(running_command_test, it_prints_until_its_last_process_is_silent)
{
    running_command command;
    char output[16];
    ASSERT_TRUE(command.start("{ sleep 0.1; printf grandchild; } & exit", output));

    take_all(command);
    command.finish();

    EXPECT_STREQ("grandchild", output);
}

TEST_F(running_command_test, one_that_cannot_start_leaves_nothing_open)
{
    const broken_command broken("true");
    const size_t before = open_descriptors();
    running_command command;
    char output[16] = "before";

    EXPECT_FALSE(command.start("true", output));

    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(-1, command.descriptor());
    EXPECT_STREQ("", output);
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(running_command_test, one_that_is_given_up_is_waited_for)
{
    const size_t before = open_descriptors();
    char output[16];
    {
        running_command command;
        ASSERT_TRUE(command.start("exec >&-; sleep 0.05; echo done >/tmp/result", output));
    }

    EXPECT_EQ("done\n", gateway.file("/tmp/result"));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_TRUE(gateway.log().empty());
}

// Commands that say all and go on, by what kernels since 5.3 tell of their end and without that.
class lingering_command_test : public running_command_test, public testing::WithParamInterface<bool> {
protected:
    lingering_command_test() { kernel_is_old = GetParam(); }
    ~lingering_command_test() override
    {
        kernel_is_old = false;
        EXPECT_STREQ("said", output_);
        EXPECT_FALSE(command_.runs());
        EXPECT_EQ(before_, open_descriptors());
    }

    // It writes a file in the end.
    void start(const char *seconds)
    {
        line_ = std::string("printf said; exec >&-; sleep ") + seconds + "; echo done >/tmp/result";
        ASSERT_TRUE(command_.start(line_.c_str(), output_));
        take_all(command_);
    }

    std::string line_;
    char output_[16] = "";
    running_command command_;
    size_t before_ = open_descriptors();
};

TEST_P(lingering_command_test, one_that_ends_is_waited_for)
{
    start("0.3");

    EXPECT_TRUE(command_.finish_until(steady_milliseconds() + 60000));

    EXPECT_EQ("done\n", gateway.file("/tmp/result"));
}

TEST_P(lingering_command_test, one_that_does_not_end_in_time_is_killed)
{
    start("1000");
    const uint64_t until = steady_milliseconds() + 200;

    EXPECT_FALSE(command_.finish_until(until));

    EXPECT_GE(steady_milliseconds(), until);
    EXPECT_FALSE(gateway.exists("/tmp/result"));
}

INSTANTIATE_TEST_SUITE_P(kernels, lingering_command_test, testing::Bool(),
                         [](const auto &row) { return row.param ? "old" : "recent"; });

TEST_F(running_command_test, it_starts_with_no_signal_blocked)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    running_command command;
    char output[64];

    const bool started = command.start("grep SigBlk /proc/self/status", output);
    take_all(command);
    command.finish();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);

    EXPECT_TRUE(started);
    EXPECT_STREQ("SigBlk:\t0000000000000000\n", output);
}

TEST_F(running_command_test, it_can_be_started_again)
{
    running_command command;
    char output[4];
    for (const char *text : {"printf abcd", "printf e"}) {
        ASSERT_TRUE(command.start(text, output));
        take_all(command);
        command.finish();
    }

    EXPECT_STREQ("e", output);
    EXPECT_EQ(text_lines{"Output of printf abcd is cut at 3 of its 4 bytes"}, gateway.log_texts(LOG_ERR));
}

} // namespace
