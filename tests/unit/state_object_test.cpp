// The object `korvel.state` from the inside: the types of what it answers, moments told by a clock that is
// set meanwhile, and the bus that refuses something.
#include "state_object.h"

#include "base/os.h"
#include "service/outcomes.h"
#include "support/gateway.h"
#include "support/handler_call.h"

#include <ctime>
#include <sys/select.h>
#include <unistd.h>

namespace {

uint64_t wall = 0; // what the clock that people set shows; 0: the real one
int event_status = UBUS_STATUS_OK;
text_lines sent; // the actions of the events
ubus_object *registered = nullptr;
uloop_fd *watched = nullptr;

} // namespace

// The names are those that the linker gives to wrapped calls.
extern "C" {

uint64_t __real__Z17wall_millisecondsv();
uint64_t __wrap__Z17wall_millisecondsv()
{
    return wall != 0 ? wall : __real__Z17wall_millisecondsv();
}
int __wrap_ubus_add_object(ubus_context *, ubus_object *object)
{
    registered = object;
    return UBUS_STATUS_OK;
}
int __wrap_ubus_send_event(ubus_context *, const char *name, blob_attr *content)
{
    EXPECT_STREQ("korvel.wan", name);
    constexpr blobmsg_policy action[] = {{.name = "action", .type = BLOBMSG_TYPE_STRING}};
    blob_attr *found = nullptr;
    (void)blobmsg_parse(action, 1, &found, blob_data(content), static_cast<unsigned>(blob_len(content)));
    sent.emplace_back(found ? blobmsg_get_string(found) : "none");
    return event_status;
}
int __wrap_uloop_fd_add(uloop_fd *source, unsigned)
{
    watched = source;
    return 0;
}
}

namespace {

class state_object_test : public gateway_test {
protected:
    state_object_test()
    {
        wall = 0;
        event_status = UBUS_STATUS_OK;
        state_object_start(nullptr);
        (void)call("last"); // takes what there is
        sent.clear();
        gateway.clear_log();
    }
    ~state_object_test() override
    {
        outcomes_wake(-1);
        close(watched->fd);
    }

    static handled call(const std::string &method, const std::string &json = "{}")
    {
        for (int i = 0; i < registered->n_methods; i++)
            if (registered->methods[i].name == method)
                return call_handler(registered->methods[i].handler, json);
        throw std::out_of_range(method);
    }

    static void add(wan_action action)
    {
        outcome_add({.action = action,
                     .wanId = 200,
                     .other = 201,
                     .wanName = "200_X",
                     .device = "pon.7",
                     .result = result_ok,
                     .conflict = "vlan",
                     .file = "/etc/config/network"});
    }

    static bool is_readable(int descriptor)
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(descriptor, &set);
        timeval none = {};
        return select(descriptor + 1, &set, nullptr, nullptr, &none) == 1;
    }
};

TEST_F(state_object_test, an_outcome_has_its_fields_in_their_types)
{
    add(wan_action::refused);

    const handled answer = call("last");

    EXPECT_EQ(1U, answer.replies);
    const reply_part entry = answer.reply.at("last").parts.back();
    EXPECT_EQ((text_lines{"action", "wanId", "wanName", "when", "result", "conflict", "other", "file"}),
              entry.names());
    for (const char *const name : {"action", "wanName", "when", "result", "conflict", "file"})
        EXPECT_EQ(BLOBMSG_TYPE_STRING, entry.at(name).type) << name;
    for (const char *const name : {"wanId", "other"})
        EXPECT_EQ(BLOBMSG_TYPE_INT32, entry.at(name).type) << name;
    EXPECT_EQ(200U, entry.at("wanId").number);
    EXPECT_EQ(201U, entry.at("other").number);
    EXPECT_EQ("/etc/config/network", entry.at("file").text);
}

TEST_F(state_object_test, moments_are_those_of_the_clock_that_was_set_since)
{
    wall = 5000; // 1970, as after a start without the time of day
    add(wan_action::changed);
    EXPECT_EQ("1970-01-01T00:00:0", call("last").reply.at("last").parts.back().at("when").text.substr(0, 18));

    wall = 1795324614000 + 3600000; // an hour later the clock shows this
    const std::string when = call("last").reply.at("last").parts.back().at("when").text;

    EXPECT_EQ("2026-11-22T", when.substr(0, 11)) << when;
    tm parts = {};
    ASSERT_TRUE(strptime(when.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts));
    const time_t told = timegm(&parts);
    EXPECT_LE(told, 1795324614 + 3600);
    EXPECT_GT(told, 1795324614 + 3600 - 60) << "it was just now";
}

TEST_F(state_object_test, the_loop_is_woken_and_sends_all_in_order)
{
    EXPECT_FALSE(is_readable(watched->fd));
    for (const wan_action action : {wan_action::created, wan_action::pending, wan_action::deleted})
        add(action);
    EXPECT_TRUE(is_readable(watched->fd));
    EXPECT_EQ(text_lines{}, sent);

    watched->cb(watched, ULOOP_READ);

    EXPECT_EQ((text_lines{"created", "pending", "deleted"}), sent);
    EXPECT_FALSE(is_readable(watched->fd)) << "it would be called again and again";
}

TEST_F(state_object_test, what_was_answered_before_is_in_the_list)
{
    add(wan_action::created);

    EXPECT_EQ("created", call("last").reply.at("last").parts.back().at("action").text);

    EXPECT_EQ(text_lines{"created"}, sent);
    watched->cb(watched, ULOOP_READ);
    EXPECT_EQ(text_lines{"created"}, sent) << "once";
}

TEST_F(state_object_test, an_event_that_the_bus_refuses_is_logged_and_kept_in_the_list)
{
    event_status = UBUS_STATUS_PERMISSION_DENIED;
    add(wan_action::created);

    watched->cb(watched, ULOOP_READ);

    EXPECT_EQ(text_lines{"Failed to send an event: Permission denied"}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ("created", call("last").reply.at("last").parts.back().at("action").text);
}

} // namespace
