// The event loop: passes, timers, descriptors, children, and what it does to the process's signals.
#include <libubox/uloop.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

// A timer whose callback is a lambda.
struct test_timer : uloop_timeout {
    std::function<void()> action;

    explicit test_timer(std::function<void()> what) : uloop_timeout{}, action(std::move(what))
    {
        cb = [](uloop_timeout *t) { static_cast<test_timer *>(t)->action(); };
    }
    ~test_timer() { uloop_timeout_cancel(this); }
};

// A watched descriptor whose callback is a lambda.
struct test_fd : uloop_fd {
    std::function<void(unsigned)> action;

    test_fd(int descriptor, std::function<void(unsigned)> what) : uloop_fd{}, action(std::move(what))
    {
        fd = descriptor;
        cb = [](uloop_fd *u, unsigned events) { static_cast<test_fd *>(u)->action(events); };
    }
    ~test_fd() { uloop_fd_delete(this); }
};

struct socket_pair {
    int near = -1, far = -1;

    socket_pair()
    {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        near = fds[0];
        far = fds[1];
    }
    ~socket_pair()
    {
        close(near);
        close_far();
    }
    void close_far()
    {
        if (far >= 0)
            close(far);
        far = -1;
    }
};

class uloop_test : public testing::Test {
protected:
    uloop_test() { EXPECT_EQ(uloop_init(), 0); }
    ~uloop_test() override { uloop_done(); }

    // Runs until ended; a loop that hangs fails the test instead of holding it up.
    int run()
    {
        test_timer deadline([] {
            ADD_FAILURE() << "the loop was not ended";
            uloop_end();
        });
        uloop_timeout_set(&deadline, 10000);
        return uloop_run();
    }
};

TEST_F(uloop_test, init_may_be_repeated_and_follow_done)
{
    EXPECT_EQ(uloop_init(), 0);
    uloop_done();
    uloop_done();
    EXPECT_EQ(uloop_init(), 0);

    bool fired = false;
    test_timer timer([&] {
        fired = true;
        uloop_end();
    });
    uloop_timeout_set(&timer, 0);
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(fired);
}

TEST_F(uloop_test, end_before_run_is_forgotten)
{
    bool fired = false;
    test_timer timer([&] {
        fired = true;
        uloop_end();
    });
    uloop_timeout_set(&timer, 20);

    uloop_end();
    EXPECT_FALSE(uloop_cancelling());
    EXPECT_EQ(run(), 0);

    EXPECT_TRUE(fired);
}

TEST_F(uloop_test, cancelling_means_running_and_ended)
{
    std::vector<bool> seen;
    test_timer timer([&] {
        seen.push_back(uloop_cancelling());
        uloop_end();
        seen.push_back(uloop_cancelling());
    });
    uloop_timeout_set(&timer, 0);

    run();

    EXPECT_EQ(seen, (std::vector<bool>{false, true}));
    EXPECT_FALSE(uloop_cancelling());
}

TEST_F(uloop_test, timers_fire_by_time_and_equal_times_in_the_order_of_setting)
{
    std::string order;
    test_timer first([&] {
        order += "1";
        EXPECT_FALSE(first.pending);
    });
    test_timer second([&] { order += "2"; });
    test_timer third([&] {
        order += "3";
        uloop_end();
    });
    uloop_timeout_set(&first, 20);
    uloop_timeout_set(&second, 10);
    uloop_timeout_set(&third, 20);

    run();

    EXPECT_EQ(order, "213");
}

TEST_F(uloop_test, exactly_equal_times_fire_in_the_order_of_setting)
{
    std::string order;
    test_timer a([&] { order += "a"; });
    test_timer b([&] { order += "b"; });
    test_timer c([&] {
        order += "c";
        uloop_end();
    });
    uloop_timeout_set(&a, 10);
    b.time = c.time = a.time;
    EXPECT_EQ(uloop_timeout_add(&b), 0);
    EXPECT_EQ(uloop_timeout_add(&c), 0);

    run();

    EXPECT_EQ(order, "abc");
}

TEST_F(uloop_test, one_pass_ends_when_a_timer_becomes_due_and_the_next_pass_fires_it)
{
    bool fired = false;
    test_timer timer([&] { fired = true; });
    uloop_timeout_set(&timer, 50);
    const auto start = steady::now();

    EXPECT_EQ(uloop_run_timeout(60000), 0);

    EXPECT_GE(steady::now() - start, 50ms);
    EXPECT_LT(steady::now() - start, 30s);
    EXPECT_TRUE(timer.pending);
    EXPECT_FALSE(fired);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_FALSE(timer.pending);
    EXPECT_TRUE(fired);
}

TEST_F(uloop_test, one_pass_waits_no_longer_than_asked)
{
    test_timer timer([] { FAIL(); });
    uloop_timeout_set(&timer, 60000);
    const auto start = steady::now();

    uloop_run_timeout(0);
    uloop_run_timeout(30);

    EXPECT_GE(steady::now() - start, 30ms);
    EXPECT_LT(steady::now() - start, 30s);
    EXPECT_TRUE(timer.pending);
}

TEST_F(uloop_test, one_pass_calls_back_for_one_descriptor)
{
    socket_pair one, two;
    int calls = 0;
    test_fd a(one.near, [&](unsigned) { calls++; });
    test_fd b(two.near, [&](unsigned) { calls++; });
    uloop_fd_add(&a, ULOOP_READ);
    uloop_fd_add(&b, ULOOP_READ);
    ASSERT_EQ(write(one.far, "x", 1), 1);
    ASSERT_EQ(write(two.far, "x", 1), 1);

    uloop_run_timeout(1000);
    EXPECT_EQ(calls, 1);
    uloop_run_timeout(1000);
    EXPECT_EQ(calls, 2);
}

TEST_F(uloop_test, busy_descriptors_take_turns)
{
    socket_pair one, two;
    int calls_one = 0, calls_two = 0;
    test_fd a(one.near, [&](unsigned) { calls_one++; });
    test_fd b(two.near, [&](unsigned) { calls_two++; });
    uloop_fd_add(&a, ULOOP_READ);
    uloop_fd_add(&b, ULOOP_READ);
    ASSERT_EQ(write(one.far, "x", 1), 1);
    ASSERT_EQ(write(two.far, "x", 1), 1);

    for (int pass = 0; pass < 10; pass++)
        uloop_run_timeout(1000);

    EXPECT_EQ(calls_one, 5);
    EXPECT_EQ(calls_two, 5);
}

TEST_F(uloop_test, a_timer_months_away_leaves_the_wait_as_asked)
{
    test_timer timer([] { FAIL(); });
    uloop_timeout_set(&timer, INT_MAX);
    uloop_timeout_cancel(&timer);
    timer.time.tv_sec += 10 * static_cast<time_t>(INT_MAX / 1000);
    EXPECT_EQ(uloop_timeout_add(&timer), 0);
    EXPECT_GT(uloop_timeout_remaining64(&timer), int64_t{10} * INT_MAX);
    const auto start = steady::now();

    uloop_run_timeout(30);

    EXPECT_GE(steady::now() - start, 30ms);
    EXPECT_LT(steady::now() - start, 30s);
    EXPECT_TRUE(timer.pending);
}

TEST_F(uloop_test, setting_a_pending_timer_moves_it)
{
    int fired = 0;
    test_timer timer([&] {
        fired++;
        uloop_end();
    });
    uloop_timeout_set(&timer, 10000);
    EXPECT_GT(uloop_timeout_remaining64(&timer), 9000);
    EXPECT_EQ(uloop_timeout_add(&timer), -1);

    EXPECT_EQ(uloop_timeout_set(&timer, 10), 0);
    EXPECT_LE(uloop_timeout_remaining64(&timer), 10);
    run();

    EXPECT_EQ(fired, 1);
    EXPECT_EQ(uloop_timeout_remaining64(&timer), -1);
    EXPECT_EQ(uloop_timeout_cancel(&timer), -1);
}

TEST_F(uloop_test, a_cancelled_timer_does_not_fire)
{
    test_timer cancelled([] { FAIL(); });
    test_timer last([] { uloop_end(); });
    uloop_timeout_set(&cancelled, 10);
    uloop_timeout_set(&last, 30);

    EXPECT_EQ(uloop_timeout_cancel(&cancelled), 0);
    EXPECT_FALSE(cancelled.pending);

    run();
}

TEST_F(uloop_test, a_timer_may_cancel_another_that_is_due_with_it)
{
    test_timer second([] { FAIL(); });
    test_timer first([&] {
        EXPECT_EQ(uloop_timeout_cancel(&second), 0);
        uloop_end();
    });
    uloop_timeout_set(&first, 0);
    uloop_timeout_set(&second, 0);

    run();
}

TEST_F(uloop_test, a_timer_set_for_now_waits_for_the_next_pass)
{
    const int delays[] = {0, -1, -5000};
    for (const int delay : delays) {
        SCOPED_TRACE(delay);
        int fired = 0;
        test_timer timer([&] {
            fired++;
            uloop_timeout_set(&timer, delay);
        });
        uloop_timeout_set(&timer, delay);

        uloop_run_timeout(0);
        EXPECT_EQ(fired, 1);
        uloop_run_timeout(0);
        EXPECT_EQ(fired, 2);
    }
}

TEST_F(uloop_test, a_timer_that_is_always_due_does_not_starve_descriptors)
{
    socket_pair pair;
    test_timer timer([&] { uloop_timeout_set(&timer, 0); });
    test_fd reader(pair.near, [](unsigned) { uloop_end(); });
    uloop_timeout_set(&timer, 0);
    uloop_fd_add(&reader, ULOOP_READ);
    ASSERT_EQ(write(pair.far, "x", 1), 1);

    EXPECT_EQ(run(), 0);
}

TEST_F(uloop_test, done_drops_timers_and_children)
{
    test_timer timer([] { FAIL(); });
    uloop_process child = {};
    child.pid = 1;
    uloop_timeout_set(&timer, 0);
    EXPECT_EQ(uloop_process_add(&child), 0);

    uloop_done();

    EXPECT_FALSE(timer.pending);
    EXPECT_FALSE(child.pending);
    ASSERT_EQ(uloop_init(), 0);
    uloop_run_timeout(0);
}

TEST_F(uloop_test, a_loop_may_run_inside_a_callback)
{
    std::string order;
    test_timer inner([&] {
        order += "inner ";
        uloop_end();
    });
    test_timer outer([&] {
        uloop_timeout_set(&inner, 10);
        uloop_run();
        order += "outer";
    });
    uloop_timeout_set(&outer, 0);

    run();

    EXPECT_EQ(order, "inner outer");
}

TEST_F(uloop_test, adding_makes_a_descriptor_non_blocking_unless_told_not_to)
{
    const struct {
        unsigned flags;
        bool non_blocking;
    } cases[] = {{ULOOP_READ, true}, {ULOOP_READ | ULOOP_BLOCKING, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.flags);
        socket_pair pair;
        test_fd watched(pair.near, [](unsigned) {});

        EXPECT_EQ(uloop_fd_add(&watched, c.flags), 0);

        EXPECT_TRUE(watched.registered);
        EXPECT_EQ((fcntl(pair.near, F_GETFL) & O_NONBLOCK) != 0, c.non_blocking);
    }
}

TEST_F(uloop_test, descriptors_that_cannot_be_watched_are_refused)
{
    char path[] = "/tmp/uloop-test-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    unlink(path);
    for (const int fd : {-1, 9999, file}) {
        for (const unsigned flags : {ULOOP_READ, ULOOP_READ | ULOOP_BLOCKING}) {
            SCOPED_TRACE(testing::Message() << fd << " " << flags);
            test_fd watched(fd, [](unsigned) {});

            EXPECT_EQ(uloop_fd_add(&watched, flags), -1);

            EXPECT_FALSE(watched.registered);
        }
    }
    close(file);
}

std::set<int> open_descriptors()
{
    std::set<int> fds;
    for (int fd = 0; fd < 1024; fd++) {
        if (fcntl(fd, F_GETFD) >= 0)
            fds.insert(fd);
    }
    return fds;
}

TEST_F(uloop_test, the_loops_own_descriptors_do_not_reach_a_started_program)
{
    uloop_done();
    const std::set<int> before = open_descriptors();
    ASSERT_EQ(uloop_init(), 0);

    int own = 0;
    for (const int fd : open_descriptors()) {
        if (before.contains(fd))
            continue;
        own++;
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
    }
    EXPECT_EQ(own, 3) << "the waiting place and both ends of a pipe";

    uloop_done();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(uloop_test, init_fails_where_descriptors_have_run_out)
{
    uloop_done();
    const std::set<int> before = open_descriptors();
    rlimit usual;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const int lowest_free = fcntl(0, F_DUPFD_CLOEXEC, 0);
    close(lowest_free);
    for (const int allowed : {0, 1, 2}) {
        SCOPED_TRACE(allowed);
        rlimit tight = usual;
        tight.rlim_cur = static_cast<rlim_t>(lowest_free + allowed);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);

        const int result = uloop_init();

        setrlimit(RLIMIT_NOFILE, &usual);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(open_descriptors(), before) << "nothing is left behind";
    }
    EXPECT_EQ(uloop_init(), 0);
}

TEST_F(uloop_test, nothing_can_be_watched_before_init)
{
    socket_pair pair;
    test_fd watched(pair.near, [](unsigned) {});
    uloop_done();

    EXPECT_EQ(uloop_fd_add(&watched, ULOOP_READ), -1);

    ASSERT_EQ(uloop_init(), 0);
}

TEST_F(uloop_test, adding_without_a_direction_deletes)
{
    socket_pair pair;
    test_fd watched(pair.near, [](unsigned) { FAIL(); });
    uloop_fd_add(&watched, ULOOP_READ);
    ASSERT_EQ(write(pair.far, "x", 1), 1);

    EXPECT_EQ(uloop_fd_add(&watched, ULOOP_BLOCKING), 0);
    EXPECT_FALSE(watched.registered);
    uloop_run_timeout(0);

    EXPECT_EQ(uloop_fd_delete(&watched), 0);
    EXPECT_EQ(fcntl(pair.near, F_GETFD), FD_CLOEXEC) << "must not be closed";
}

TEST_F(uloop_test, adding_again_changes_the_direction)
{
    socket_pair pair;
    std::vector<unsigned> events;
    test_fd watched(pair.near, [&](unsigned e) { events.push_back(e); });
    uloop_fd_add(&watched, ULOOP_READ);
    uloop_run_timeout(0);
    EXPECT_TRUE(events.empty());

    uloop_fd_add(&watched, ULOOP_WRITE);
    uloop_run_timeout(0);
    uloop_fd_add(&watched, ULOOP_READ | ULOOP_WRITE);
    ASSERT_EQ(write(pair.far, "x", 1), 1);
    uloop_run_timeout(0);

    EXPECT_EQ(events, (std::vector<unsigned>{ULOOP_WRITE, ULOOP_READ | ULOOP_WRITE}));
}

TEST_F(uloop_test, level_triggered_unless_edge_is_asked_for)
{
    const struct {
        unsigned flags;
        int calls;
    } cases[] = {{ULOOP_READ, 3}, {ULOOP_READ | ULOOP_EDGE_TRIGGER, 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.flags);
        socket_pair pair;
        int calls = 0;
        test_fd watched(pair.near, [&](unsigned) { calls++; });
        uloop_fd_add(&watched, c.flags);
        ASSERT_EQ(write(pair.far, "x", 1), 1);

        for (int pass = 0; pass < 3; pass++)
            uloop_run_timeout(0);

        EXPECT_EQ(calls, c.calls);
    }
}

TEST_F(uloop_test, a_half_close_is_reported_until_the_descriptor_is_deleted)
{
    socket_pair pair;
    int calls = 0;
    test_fd watched(pair.near, [&](unsigned events) {
        calls++;
        EXPECT_EQ(events, static_cast<unsigned>(ULOOP_READ));
        EXPECT_TRUE(watched.eof);
        EXPECT_FALSE(watched.error);
        EXPECT_TRUE(watched.registered);
        if (calls == 3)
            uloop_fd_delete(&watched);
    });
    uloop_fd_add(&watched, ULOOP_READ);

    shutdown(pair.far, SHUT_WR);
    for (int pass = 0; pass < 5; pass++)
        uloop_run_timeout(0);

    EXPECT_EQ(calls, 3);
}

TEST_F(uloop_test, a_hang_up_deletes_the_descriptor_before_its_last_callback)
{
    socket_pair pair;
    int calls = 0;
    test_fd watched(pair.near, [&](unsigned events) {
        char bytes[8];
        calls++;
        EXPECT_EQ(events, static_cast<unsigned>(ULOOP_READ));
        EXPECT_FALSE(watched.registered);
        EXPECT_TRUE(watched.eof);
        EXPECT_TRUE(watched.error);
        EXPECT_EQ(read(watched.fd, bytes, sizeof(bytes)), 2);
    });
    uloop_fd_add(&watched, ULOOP_READ);
    ASSERT_EQ(write(pair.far, "xy", 2), 2);

    pair.close_far();
    for (int pass = 0; pass < 3; pass++)
        uloop_run_timeout(0);

    EXPECT_EQ(calls, 1);
}

TEST_F(uloop_test, a_record_used_again_knows_nothing_of_its_last_descriptor)
{
    socket_pair first, second;
    test_fd watched(first.near, [](unsigned) {});
    uloop_fd_add(&watched, ULOOP_READ);
    first.close_far();
    uloop_run_timeout(1000);
    ASSERT_TRUE(watched.eof && watched.error && !watched.registered);

    watched.fd = second.near;
    EXPECT_EQ(uloop_fd_add(&watched, ULOOP_READ), 0);

    EXPECT_TRUE(watched.registered);
    EXPECT_FALSE(watched.eof);
    EXPECT_FALSE(watched.error);
}

TEST_F(uloop_test, a_bare_hang_up_is_called_back_with_no_event)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::vector<unsigned> events;
    test_fd watched(fds[0], [&](unsigned e) { events.push_back(e); });
    uloop_fd_add(&watched, ULOOP_READ);

    close(fds[1]);
    for (int pass = 0; pass < 3; pass++)
        uloop_run_timeout(0);

    EXPECT_EQ(events, std::vector<unsigned>{0});
    EXPECT_TRUE(watched.error);
    close(fds[0]);
}

TEST_F(uloop_test, with_error_cb_a_hung_up_descriptor_stays)
{
    socket_pair pair;
    int calls = 0;
    test_fd watched(pair.near, [&](unsigned) { calls++; });
    uloop_fd_add(&watched, ULOOP_READ | ULOOP_ERROR_CB);

    pair.close_far();
    for (int pass = 0; pass < 3; pass++)
        uloop_run_timeout(0);

    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(watched.registered);
    EXPECT_TRUE(watched.error);
}

TEST_F(uloop_test, a_callback_may_free_its_record)
{
    socket_pair pair;
    auto *const watched = new test_fd(pair.near, [](unsigned) {});
    watched->cb = [](uloop_fd *u, unsigned) {
        delete static_cast<test_fd *>(u);
        uloop_end();
    };
    uloop_fd_add(watched, ULOOP_READ);
    ASSERT_EQ(write(pair.far, "x", 1), 1);

    EXPECT_EQ(run(), 0);
}

pid_t start_child(const std::function<void()> &work)
{
    const pid_t pid = fork();
    if (pid == 0) {
        work();
        _exit(127);
    }
    return pid;
}

struct test_process : uloop_process {
    std::function<void(int)> action;

    test_process(pid_t child, std::function<void(int)> what) : uloop_process{}, action(std::move(what))
    {
        pid = child;
        cb = [](uloop_process *p, int status) { static_cast<test_process *>(p)->action(status); };
    }
    ~test_process() { uloop_process_delete(this); }
};

TEST_F(uloop_test, a_childs_end_is_called_back_with_its_wait_status)
{
    const struct {
        std::function<void()> work;
        int status;
    } cases[] = {
        {[] { _exit(0); }, 0},
        {[] { _exit(7); }, 0x700},
        {[] { raise(SIGKILL); }, SIGKILL},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.status);
        int status = -1;
        test_process child(start_child(c.work), [&](int s) {
            status = s;
            EXPECT_FALSE(child.pending);
            uloop_end();
        });
        ASSERT_GT(child.pid, 0);
        EXPECT_EQ(uloop_process_add(&child), 0);
        EXPECT_EQ(uloop_process_add(&child), -1);

        EXPECT_EQ(run(), 0);

        EXPECT_EQ(status, c.status);
        EXPECT_EQ(uloop_process_delete(&child), -1);
    }
}

TEST_F(uloop_test, each_child_is_reported_to_its_own_record)
{
    // The record of the child that ends second is the first in line.
    int release[2];
    ASSERT_EQ(pipe2(release, O_CLOEXEC), 0);
    std::string order;
    test_process late(start_child([&release] {
                          char byte;
                          _exit(read(release[0], &byte, 1) == 1 ? 2 : 127);
                      }),
                      [&](int status) {
                          order += "late " + std::to_string(WEXITSTATUS(status));
                          uloop_end();
                      });
    test_process early(start_child([] { _exit(1); }), [&](int status) {
        order += "early " + std::to_string(WEXITSTATUS(status)) + ", ";
        EXPECT_TRUE(late.pending);
        EXPECT_EQ(write(release[1], "x", 1), 1);
    });
    uloop_process_add(&late);
    uloop_process_add(&early);

    EXPECT_EQ(run(), 0);

    EXPECT_EQ(order, "early 1, late 2");
    close(release[0]);
    close(release[1]);
}

TEST_F(uloop_test, a_child_that_runs_on_holds_up_nothing)
{
    // The child that runs on would end by itself, much later, if the loop waited for it.
    const pid_t runs_on = start_child([] { sleep(60); });
    bool fired = false;
    test_timer timer([&] {
        fired = true;
        EXPECT_EQ(kill(runs_on, 0), 0);
        uloop_end();
    });
    test_process ended(start_child([] { _exit(0); }), [&](int) { uloop_timeout_set(&timer, 0); });
    uloop_process_add(&ended);
    const auto start = steady::now();

    EXPECT_EQ(run(), 0);

    EXPECT_TRUE(fired);
    EXPECT_LT(steady::now() - start, 30s);
    kill(runs_on, SIGKILL);
    waitpid(runs_on, nullptr, 0);
}

TEST_F(uloop_test, every_child_is_reaped_also_one_that_nobody_waits_for)
{
    test_process forgotten(start_child([] { _exit(0); }), [](int) { FAIL(); });
    EXPECT_EQ(uloop_process_add(&forgotten), 0);
    EXPECT_EQ(uloop_process_delete(&forgotten), 0);
    const pid_t unknown = start_child([] { _exit(0); });
    // The last child ends after the others, so that their ends are known when its own is reported.
    test_process last(start_child([] {
                          usleep(50000);
                          _exit(0);
                      }),
                      [](int) { uloop_end(); });
    uloop_process_add(&last);

    EXPECT_EQ(run(), 0);

    EXPECT_EQ(waitpid(forgotten.pid, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(waitpid(unknown, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// The signal table needs processes of their own: what they inherit decides. A failed check ends the process
// with its text on standard error.
void demand(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "not true: %s\n", what);
    _exit(1);
}
#define DEMAND(condition) demand(condition, #condition)

using signal_function = void (*)(int);

signal_function action_of(int number)
{
    struct sigaction action;
    sigaction(number, nullptr, &action);
    return action.sa_handler;
}

int flags_of(int number)
{
    struct sigaction action;
    sigaction(number, nullptr, &action);
    // Set by the C library on every handler; no one chose it.
    return action.sa_flags & ~0x04000000;
}

bool is_own_handler(int number)
{
    return action_of(number) != SIG_DFL && action_of(number) != SIG_IGN;
}

void own_handler(int) {}

void all_default()
{
    for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE, SIGHUP})
        signal(number, SIG_DFL);
}

TEST(uloop_signal_test, init_takes_default_signals_and_done_gives_back_all_but_sigpipe)
{
    const auto check = [] {
        all_default();
        DEMAND(uloop_init() == 0);
        for (const int number : {SIGINT, SIGTERM, SIGCHLD}) {
            DEMAND(is_own_handler(number));
            DEMAND(flags_of(number) == 0);
        }
        DEMAND(action_of(SIGPIPE) == SIG_IGN);
        DEMAND(action_of(SIGHUP) == SIG_DFL);
        uloop_done();
        for (const int number : {SIGINT, SIGTERM, SIGCHLD})
            DEMAND(action_of(number) == SIG_DFL);
        DEMAND(action_of(SIGPIPE) == SIG_IGN);
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(uloop_signal_test, actions_set_before_stay)
{
    for (const signal_function action : {own_handler, signal_function(SIG_IGN)}) {
        SCOPED_TRACE(action == own_handler ? "handler" : "ignored");
        const auto check = [action] {
            for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE})
                signal(number, action);
            DEMAND(uloop_init() == 0);
            for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE})
                DEMAND(action_of(number) == action);
            uloop_done();
            for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE})
                DEMAND(action_of(number) == action);
            _exit(0);
        };
        EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
    }
}

TEST(uloop_signal_test, a_handler_set_after_init_is_left_alone)
{
    const auto check = [] {
        all_default();
        DEMAND(uloop_init() == 0);
        signal(SIGTERM, own_handler);
        DEMAND(uloop_init() == 0);
        DEMAND(action_of(SIGTERM) == own_handler);
        uloop_done();
        DEMAND(action_of(SIGTERM) == own_handler);
        DEMAND(action_of(SIGINT) == SIG_DFL);
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(uloop_signal_test, sigchld_is_left_alone_on_request)
{
    const auto check = [] {
        all_default();
        uloop_handle_sigchld = false;
        DEMAND(uloop_init() == 0);
        DEMAND(action_of(SIGCHLD) == SIG_DFL);
        DEMAND(is_own_handler(SIGTERM));
        uloop_done();
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

// Runs a loop that gets this signal once it waits, and exits with the loop's result.
void exit_with_result_of(int number)
{
    all_default();
    DEMAND(uloop_init() == 0);
    std::thread sender([number] {
        usleep(20000);
        kill(getpid(), number);
    });
    const int result = uloop_run();
    sender.join();
    _exit(result);
}

TEST(uloop_signal_test, stop_signals_end_the_loop_with_their_number)
{
    EXPECT_EXIT(exit_with_result_of(SIGTERM), testing::ExitedWithCode(15), "");
    EXPECT_EXIT(exit_with_result_of(SIGINT), testing::ExitedWithCode(2), "");
}

TEST(uloop_signal_test, a_stop_signal_within_a_callback_ends_the_loop_too)
{
    const auto check = [] {
        all_default();
        DEMAND(uloop_init() == 0);
        test_timer timer([] { raise(SIGTERM); });
        uloop_timeout_set(&timer, 0);
        _exit(uloop_run());
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(15), "");
}

TEST(uloop_signal_test, an_own_handler_does_not_end_the_loop)
{
    const auto check = [] {
        all_default();
        signal(SIGTERM, own_handler);
        DEMAND(uloop_init() == 0);
        test_timer stop([] { uloop_end(); });
        test_timer send([] { raise(SIGTERM); });
        uloop_timeout_set(&send, 0);
        uloop_timeout_set(&stop, 30);
        const auto start = steady::now();
        DEMAND(uloop_run() == 0);
        DEMAND(steady::now() - start >= 30ms);
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(uloop_signal_test, a_result_is_not_carried_into_the_next_run)
{
    const auto check = [] {
        all_default();
        DEMAND(uloop_init() == 0);
        test_timer term([] { raise(SIGTERM); });
        uloop_timeout_set(&term, 0);
        DEMAND(uloop_run() == 15);
        test_timer end([] { uloop_end(); });
        uloop_timeout_set(&end, 0);
        DEMAND(uloop_run() == 0);
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(uloop_signal_test, system_in_another_thread_keeps_its_result_when_sigchld_is_left_alone)
{
    const auto check = [] {
        all_default();
        uloop_handle_sigchld = false;
        DEMAND(uloop_init() == 0);
        std::atomic<bool> finished = false;
        std::atomic<int> failures = 0;
        std::thread worker([&] {
            for (int i = 0; i < 100; i++) {
                if (system("exit 3") != 0x300)
                    failures++;
            }
            finished = true;
        });
        test_timer poll([&] {
            if (finished)
                uloop_end();
            else
                uloop_timeout_set(&poll, 1);
        });
        uloop_timeout_set(&poll, 1);
        DEMAND(uloop_run() == 0);
        worker.join();
        DEMAND(failures == 0);
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(uloop_signal_test, system_in_a_callback_keeps_its_result)
{
    const auto check = [] {
        all_default();
        DEMAND(uloop_init() == 0);
        int rounds = 0;
        test_timer timer([&] {
            DEMAND(system("exit 3") == 0x300);
            if (++rounds == 50)
                uloop_end();
            else
                uloop_timeout_set(&timer, 0);
        });
        uloop_timeout_set(&timer, 0);
        DEMAND(uloop_run() == 0);
        _exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

} // namespace
