// The process: what its main function does, in which order. The calls that leave it are noted instead of
// made.
#include "base/bus_headers.h"
#include "base/log.h"
#include "modify/import.h"
#include "rules/regenerate.h"
#include "service/board.h"
#include "support/gateway.h"

#include <csignal>

// main.cpp is part of this program, its main() under another name.
int korvel_main(int argc, char *argv[]);

namespace {

text_lines steps;
int config_failure = 0;
bool bus_is_there = true;
int registration = UBUS_STATUS_OK;       // of `korvel`
int state_registration = UBUS_STATUS_OK; // of `korvel.state`
int sent_signal = 0;                     // while the loop runs
ubus_context fake_bus = {};

void note(const std::string &step)
{
    steps.push_back(step);
}

text_lines method_names(const ubus_object &object)
{
    text_lines names;
    for (int i = 0; i < object.n_methods; i++)
        names.emplace_back(object.methods[i].name);
    return names;
}

} // namespace

// The names are those that the linker gives to wrapped calls.
extern "C" {

void __wrap_openlog(const char *ident, int options, int facility)
{
    note("openlog " + std::string(ident));
    EXPECT_EQ(LOG_CONS | LOG_PID, options);
    EXPECT_EQ(LOG_DAEMON, facility);
}
void __wrap_closelog()
{
    note("closelog");
}
sighandler_t __real_signal(int number, sighandler_t handler);
sighandler_t __wrap_signal(int number, sighandler_t handler)
{
    note("signal " + std::to_string(number));
    return __real_signal(number, handler);
}
int __real_mxuci_get(const char *, const char *, const char *, char *, size_t);
int __wrap_mxuci_get(const char *config, const char *section, const char *option, char *buffer, size_t size)
{
    // What else is read is the search for what belongs to no WAN.
    if (strcmp(config, "network") == 0)
        note(std::string("read ") + config + "." + section + "." + option + " into " + std::to_string(size));
    return config_failure ? config_failure : __real_mxuci_get(config, section, option, buffer, size);
}
void __wrap__Z19nemtra_init_lan_numv()
{
    note("probe the board");
}
void __wrap__Z23wan_regen_missing_rulesv()
{
    note("regenerate rules");
}
void __wrap__Z17wan_import_customv()
{
    note("import");
}
int __wrap_uloop_init()
{
    note("uloop_init");
    return 0;
}
ubus_context *__wrap_ubus_connect(const char *path)
{
    note(std::string("ubus_connect ") + (path ? path : "default"));
    return bus_is_there ? &fake_bus : nullptr;
}
void __wrap_ubus_add_uloop(ubus_context *bus)
{
    note("ubus_add_uloop");
    EXPECT_EQ(&fake_bus, bus);
}
int __wrap_ubus_add_object(ubus_context *bus, ubus_object *object)
{
    note(std::string("ubus_add_object ") + object->name);
    EXPECT_EQ(&fake_bus, bus);
    EXPECT_STREQ(object->name, object->type->name);
    EXPECT_EQ(object->methods, object->type->methods);
    EXPECT_EQ(object->n_methods, object->type->n_methods);
    if (strcmp(object->name, "korvel.state") == 0) {
        EXPECT_EQ((text_lines{"cancel", "last", "pending", "version"}), method_names(*object));
        return state_registration;
    }
    EXPECT_STREQ("korvel", object->name);
    EXPECT_EQ((text_lines{"add", "addDev", "all", "del", "delAll", "get", "modify"}), method_names(*object));
    return registration;
}
uloop_fd *sources[3];
size_t source_count = 0;
int __wrap_uloop_fd_add(uloop_fd *source, unsigned flags)
{
    sources[source_count++ % 3] = source;
    note("uloop_fd_add");
    EXPECT_GE(source->fd, 0);
    EXPECT_EQ(unsigned{ULOOP_READ}, flags);
    return 0;
}
int __wrap_uloop_run_timeout(int timeout)
{
    note("uloop_run_timeout " + std::to_string(timeout));
    if (sent_signal == 0)
        return 0;
    raise(sent_signal);
    uloop_cancelled = false;
    sources[0]->cb(sources[0], ULOOP_READ); // the first one is that of the signals
    EXPECT_TRUE(uloop_cancelled);
    return 0;
}
void __wrap_ubus_free(ubus_context *bus)
{
    if (bus)
        note("ubus_free");
}
void __wrap_uloop_done()
{
    note("uloop_done");
}
}

namespace {

// What every start does up to the bus, and then these steps.
text_lines after_preparing(const text_lines &more)
{
    text_lines all = {
        "openlog korvel",
        "signal 1",
        "signal 2",
        "signal 15",
        "read network.korvel.maxWanId into 12",
        "read network.korvel.pon_adapt into 12",
        "probe the board",
        "regenerate rules",
        "import",
        "uloop_init",
        "uloop_fd_add",
        "uloop_fd_add",
        "ubus_connect default",
    };
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class main_test : public gateway_test {
protected:
    main_test()
    {
        steps.clear();
        config_failure = 0;
        bus_is_there = true;
        registration = UBUS_STATUS_OK;
        state_registration = UBUS_STATUS_OK;
        sent_signal = 0;
        source_count = 0;
    }

    int run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "korvel");
        std::vector<char *> words;
        for (std::string &argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        return korvel_main(static_cast<int>(arguments.size()), words.data());
    }
};

TEST_F(main_test, start_up_keeps_its_order)
{
    EXPECT_EQ(0, run({"-d"}));

    EXPECT_EQ(
        after_preparing({"ubus_add_uloop", "ubus_add_object korvel", "ubus_add_object korvel.state",
                         "uloop_fd_add", "uloop_run_timeout -1", "ubus_free", "uloop_done", "closelog"}),
        steps);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(main_test, without_its_second_object_the_daemon_serves_all_the_same)
{
    state_registration = UBUS_STATUS_INVALID_ARGUMENT;

    EXPECT_EQ(0, run({"-d"}));

    EXPECT_EQ(
        after_preparing({"ubus_add_uloop", "ubus_add_object korvel", "ubus_add_object korvel.state",
                         "uloop_fd_add", "uloop_run_timeout -1", "ubus_free", "uloop_done", "closelog"}),
        steps);
    EXPECT_EQ(text_lines{"Failed to register korvel.state on the bus: Invalid argument"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(main_test, the_loop_leaves_children_to_those_who_wait_for_them)
{
    uloop_handle_sigchld = true;

    EXPECT_EQ(0, run({"-d"}));

    EXPECT_FALSE(uloop_handle_sigchld);
}

TEST_F(main_test, without_a_bus_the_loop_runs_with_nothing_registered)
{
    bus_is_there = false;

    EXPECT_EQ(0, run({"-d"}));

    EXPECT_EQ(after_preparing({"uloop_run_timeout -1", "uloop_done", "closelog"}), steps);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(main_test, a_refused_registration_is_logged_and_ends_the_service)
{
    registration = UBUS_STATUS_INVALID_ARGUMENT;

    EXPECT_EQ(1, run({"-d"}));

    EXPECT_EQ(
        after_preparing({"ubus_add_uloop", "ubus_add_object korvel", "ubus_free", "uloop_done", "closelog"}),
        steps);
    EXPECT_EQ(text_lines{"Failed to register on the bus: Invalid argument"}, gateway.log_texts(LOG_ERR));
}

TEST_F(main_test, without_a_highest_identifier_start_up_ends_at_once)
{
    config_failure = 3;

    EXPECT_EQ(1, run({"-d"}));

    EXPECT_EQ((text_lines{"openlog korvel", "signal 1", "signal 2", "signal 15",
                          "read network.korvel.maxWanId into 12", "closelog"}),
              steps);
    EXPECT_EQ(text_lines{"Failed to get maxWanId"}, gateway.log_texts(LOG_ERR));
}

TEST_F(main_test, every_other_command_line_only_opens_and_closes_the_log)
{
    const std::vector<std::vector<std::string>> command_lines = {{},      {"-h"},       {"-x"},         {""},
                                                                 {"-dh"}, {"-h", "-d"}, {"start", "-d"}};
    for (const std::vector<std::string> &arguments : command_lines) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        steps.clear();

        testing::internal::CaptureStdout();
        const int status = run(arguments);
        (void)testing::internal::GetCapturedStdout();

        EXPECT_EQ(0, status);
        EXPECT_EQ((text_lines{"openlog korvel", "closelog"}), steps);
    }
}

class stopped_main_test : public main_test, public testing::WithParamInterface<int> {};

TEST_P(stopped_main_test, logs_the_signal_and_ends_with_success)
{
    sent_signal = GetParam();

    EXPECT_EQ(0, run({"-d"}));

    EXPECT_EQ(text_lines{"Receive stop signal: " + std::to_string(GetParam())},
              gateway.log_texts(LOG_WARNING));
    EXPECT_EQ("closelog", steps.back());
}

INSTANTIATE_TEST_SUITE_P(signals, stopped_main_test, testing::Values(SIGHUP, SIGINT, SIGTERM));

} // namespace
