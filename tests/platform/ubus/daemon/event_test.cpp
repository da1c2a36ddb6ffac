// Events: patterns, delivery, and clients that do not read.
#include "platform/ubus/daemon_fixture.h"

#include <chrono>
#include <sys/socket.h>

namespace {

using ubusd_event_test = running_ubusd_test;

bytes call_event_object(std::string_view method, const bytes &fields)
{
    return message(msg_invoke, 3, event_object,
                   number_field(field_object, event_object) + text_field(field_method, method) + fields);
}

bytes with_arguments(std::string_view method, const bytes &members)
{
    return call_event_object(method, attribute(field_data, members));
}

TEST_F(ubusd_event_test, event_is_delivered_as_a_call_from_nobody)
{
    raw_client listener = connect();
    const uint32_t object = listener.add_anonymous();
    ASSERT_EQ(0, listener.listen(object, "foo.*"));
    raw_client sender = connect();

    sender.send(from_hex("00050003 00000001 00000048 03000008 00000001 04000009 73656e64 00000000"
                         "07000030 83000014 00026964 00000000 666f6f2e 62617200"
                         "82000018 00046461 74610000 8500000c 00017800 00000001"));

    EXPECT_EQ("00010003 00000001 0000000c 01000008 00000000", sender.receive());
    std::string event = listener.receive();
    event.replace(4, 4, "0000");
    EXPECT_EQ("00050000 00000000 00000028 03000008 " + word(object) +
                  " 0400000c 666f6f2e 62617200 07000010 8500000c 00017800 00000001",
              event);
}

TEST_F(ubusd_event_test, pattern_matches_whole_names_or_beginnings)
{
    const struct {
        const char *pattern;
        const char *event;
        bool delivered;
    } cases[] = {
        {"foo.*", "foo.x", true},  {"f*", "foo.x", true},     {"*", "foo.x", true},
        {"foo", "foo.x", false},   {"bar", "foo.x", false},   {"foo.x", "foo.x", true},
        {"foo.x*", "foo.x", true}, {"Foo.x", "foo.x", false}, {"foo.xy", "foo.x", false},
        {"*x", "foo.x", false},    {"fo*x", "foo.x", false},  {"fo*x", "fo*x", true},
    };
    raw_client sender = connect();
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.pattern) + " / " + row.event);
        raw_client listener = connect();
        ASSERT_EQ(0, listener.listen(listener.add_anonymous(), row.pattern));

        EXPECT_EQ(0, sender.send_event(row.event));

        EXPECT_EQ(row.delivered ? 1u : 0u, listener.pending().size());
    }
}

TEST_F(ubusd_event_test, registering_is_judged_before_it_is_done)
{
    raw_client client = connect();
    const uint32_t object = client.add_anonymous();
    raw_client other = connect();
    const uint32_t foreign = other.add_anonymous();
    const bytes pattern = named_text("pattern", "x");
    const struct {
        const char *what;
        bytes request;
        int status;
    } cases[] = {
        {"no arguments field", call_event_object("register", {}), 2},
        {"no arguments", with_arguments("register", {}), 2},
        {"no pattern", with_arguments("register", named_number("object", object)), 2},
        {"no object", with_arguments("register", pattern), 2},
        {"object as text", with_arguments("register", named_text("object", "1") + pattern), 2},
        {"pattern as number",
         with_arguments("register", named_number("object", object) + named_number("pattern", 1)), 2},
        {"pattern without NUL",
         with_arguments("register", named_number("object", object) + named(3, "pattern", {'x'})), 2},
        {"bus object", with_arguments("register", named_number("object", event_object) + pattern), 6},
        {"last id below those of clients", with_arguments("register", named_number("object", 1023) + pattern),
         6},
        {"foreign object", with_arguments("register", named_number("object", foreign) + pattern), 6},
        {"unknown object", with_arguments("register", named_number("object", 0xfffffffe) + pattern), 4},
        {"empty pattern",
         with_arguments("register", named_number("object", object) + named_text("pattern", "")), 6},
        {"good", with_arguments("register", named_number("object", object) + pattern), 0},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.status, client.call(row.request));
    }
}

TEST_F(ubusd_event_test, sending_is_judged_before_it_is_done)
{
    raw_client listener = connect();
    ASSERT_EQ(0, listener.listen(listener.add_anonymous(), "*"));
    raw_client sender = connect();
    const bytes data = named_table("data");
    const struct {
        const char *what;
        bytes request;
        int status;
        size_t delivered;
    } cases[] = {
        {"no arguments field", call_event_object("send", {}), 2, 0},
        {"no arguments", with_arguments("send", {}), 2, 0},
        {"no data", with_arguments("send", named_text("id", "x")), 2, 0},
        {"no id", with_arguments("send", data), 2, 0},
        {"data as array", with_arguments("send", named_text("id", "x") + named(1, "data", {})), 2, 0},
        {"name of the bus", with_arguments("send", named_text("id", "ubus.x") + data), 6, 0},
        {"nearly a name of the bus", with_arguments("send", named_text("id", "ubus") + data), 0, 1},
        {"unknown method", with_arguments("Send", named_text("id", "x") + data), 1, 0},
        {"good", with_arguments("send", named_text("id", "x") + data), 0, 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.status, sender.call(row.request));
        EXPECT_EQ(row.delivered, listener.pending().size());
    }
}

TEST_F(ubusd_event_test, sending_succeeds_when_nobody_listens)
{
    EXPECT_EQ(0, connect().send_event("foo"));
}

TEST_F(ubusd_event_test, sender_does_not_hear_itself)
{
    raw_client sender = connect();
    ASSERT_EQ(0, sender.listen(sender.add_anonymous(), "*"));

    EXPECT_EQ(0, sender.send_event("foo"));

    EXPECT_TRUE(sender.pending().empty());
}

TEST_F(ubusd_event_test, object_with_several_matching_patterns_gets_an_event_once)
{
    raw_client listener = connect();
    const uint32_t object = listener.add_anonymous();
    for (const char *pattern : {"q*", "qq*", "qqq"})
        ASSERT_EQ(0, listener.listen(object, pattern));
    raw_client sender = connect();

    EXPECT_EQ(0, sender.send_event("qqq"));
    EXPECT_EQ(1u, listener.pending().size());
    EXPECT_EQ(0, sender.send_event("qq"));
    EXPECT_EQ(1u, listener.pending().size());
}

TEST_F(ubusd_event_test, every_listening_object_of_a_client_gets_an_event)
{
    raw_client listener = connect();
    const uint32_t first = listener.add_anonymous();
    const uint32_t second = listener.add_anonymous();
    ASSERT_EQ(0, listener.listen(first, "x"));
    ASSERT_EQ(0, listener.listen(second, "x"));

    EXPECT_EQ(0, connect().send_event("x"));

    EXPECT_EQ(first, number_in(listener.receive_bytes(), field_object));
    EXPECT_EQ(second, number_in(listener.receive_bytes(), field_object));
}

TEST_F(ubusd_event_test, removed_object_hears_nothing_any_more)
{
    raw_client listener = connect();
    const uint32_t object = listener.add_anonymous();
    ASSERT_EQ(0, listener.listen(object, "x"));
    ASSERT_EQ(0, listener.call(message(msg_remove_object, 1, 0, number_field(field_object, object))));

    EXPECT_EQ(0, connect().send_event("x"));

    EXPECT_TRUE(listener.pending().empty());
}

TEST_F(ubusd_event_test, listener_that_does_not_read_holds_up_nobody_and_recovers)
{
    raw_client listener = connect();
    const uint32_t object = listener.add_anonymous();
    ASSERT_EQ(0, listener.listen(object, "big"));
    ASSERT_EQ(0, listener.listen(object, "after"));
    raw_client sender = connect();
    sender.hello();
    const bytes filler = named_text("filler", std::string(10000, 'f'));
    constexpr uint32_t count = 400;

    const auto begin = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < count; i++)
        ASSERT_EQ(0, sender.send_event("big", named_number("number", i) + filler));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));

    // A gap-free beginning, as long as what the daemon queues and what the kernel holds; the rest is lost.
    constexpr uint32_t read_first = 50;
    std::vector<std::string> arrived;
    for (uint32_t i = 0; i < read_first; i++)
        arrived.push_back(listener.receive());
    for (std::string &event : listener.pending())
        arrived.push_back(std::move(event));
    for (uint32_t i = 0; i < arrived.size(); i++)
        ASSERT_NE(std::string::npos, arrived[i].find(" 6d626572 00000000 " + word(i) + " "))
            << i; // "number" = i
    const size_t arrived_size = arrived.size() * from_hex(arrived[0]).size();
    EXPECT_GT(arrived_size, 1048576u);
    EXPECT_LT(arrived_size, 2u * 1048576);

    EXPECT_EQ(0, sender.send_event("after"));
    EXPECT_EQ(1u, listener.pending().size());
}

TEST_F(ubusd_event_test, listener_that_reads_a_little_and_stops_holds_up_nobody)
{
    raw_client listener = connect();
    ASSERT_EQ(0, listener.listen(listener.add_anonymous(), "big"));
    raw_client sender = connect();
    for (int i = 0; i < 100; i++)
        ASSERT_EQ(0, sender.send_event("big", named_text("filler", std::string(10000, 'f'))));

    // Each piece that is read lets the daemon send some of what it has queued, and not the rest.
    for (int i = 0; i < 50; i++) {
        ASSERT_FALSE(listener.receive_bytes().empty());
        ASSERT_EQ(0, sender.call(message(msg_ping, 1, 0)));
    }

    EXPECT_EQ(50u, listener.pending().size());
}

TEST_F(ubusd_event_test, what_a_slow_listener_has_read_makes_room_again)
{
    raw_client listener = connect();
    ASSERT_EQ(0, listener.listen(listener.add_anonymous(), "big"));
    raw_client sender = connect();
    // Each round is more than the kernel takes and fits the queue; all rounds together would not.
    constexpr size_t events = 80;
    for (int round = 0; round < 5; round++) {
        SCOPED_TRACE(round);
        for (size_t i = 0; i < events; i++)
            ASSERT_EQ(0, sender.send_event("big", named_text("filler", std::string(10000, 'f'))));

        for (size_t i = 0; i < events; i++)
            ASSERT_FALSE(listener.receive_bytes().empty());
    }
    EXPECT_TRUE(listener.pending().empty());
}

TEST_F(ubusd_event_test, answers_to_a_client_that_does_not_read_are_bounded)
{
    raw_client silent = connect();
    const bytes ping = message(msg_ping, 1, 0, attribute(7, bytes(60000)));
    for (int i = 0; i < 200; i++)
        silent.send(ping);

    // Reading some makes room for what comes after.
    size_t echoes = 0;
    while (echoes < 10)
        echoes += silent.receive_bytes().at(1) == msg_data ? 1 : 0;
    for (const std::string &answer : silent.pending())
        echoes += answer.starts_with("0002") ? 1 : 0;
    EXPECT_GT(echoes, 15u);
    EXPECT_LT(echoes, 60u);
}

} // namespace
