// The bytes that the client sends, and what it makes of the bytes it gets, right and wrong, from a bus that
// is the test itself.
#include "platform/ubus/lib/support.h"

#include <csignal>
#include <unistd.h>

namespace {

constexpr uint32_t object_id = 0x11223344;
constexpr uint32_t caller = 0x5566;

bytes ids(uint32_t object, uint32_t type)
{
    return number_field(field_object, object) + number_field(field_type, type);
}

class libubus_wire_test : public testing::Test {
protected:
    libubus_wire_test() : ctx(bus.connect_client()) {}

    // An object with the method "get", added with id 0x11223344 as request 1.
    void add_object()
    {
        bus.say(message(msg_data, 1, 0, ids(object_id, 0x99)) + status_message(1, 0, 0));
        ASSERT_EQ(ubus_add_object(ctx, &object), 0);
        ASSERT_NE(bus.heard(), "nothing");
    }

    fake_bus bus;
    connection ctx;
    int calls = 0;
    test_object object{"t", {{"get", [this](received_call &) {
                                  calls++;
                                  return 0;
                              }}}};
};

TEST_F(libubus_wire_test, a_greeting_gives_the_client_its_id)
{
    EXPECT_EQ(ctx->local_id, 0x1001u);
}

TEST_F(libubus_wire_test, a_wrong_greeting_is_refused)
{
    const struct {
        const char *what;
        bytes greeting;
    } cases[] = {
        {"another type", message(msg_data, 0, 0x1001)},
        {"no id", message(msg_hello, 0, 0)},
        {"another version", bytes{1} + from_hex("000000 00001001 00000004")},
        {"length below its word", from_hex("00000000 00001001 00000003")},
        {"too short", from_hex("00000000 0000")},
        {"nothing", {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        fake_bus other;
        EXPECT_EQ(other.connect_client(c.greeting), nullptr);
    }
}

TEST_F(libubus_wire_test, a_greeting_with_a_body_is_accepted)
{
    fake_bus other;

    const connection client(other.connect_client(message(msg_hello, 0, 0x2002, number_field(1, 1))));

    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->local_id, 0x2002u);
}

TEST_F(libubus_wire_test, requests_have_the_documented_bytes)
{
    constexpr blobmsg_policy wan_id[] = {{"wanId", BLOBMSG_TYPE_INT32}};
    const auto handler = [](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
        return 0;
    };
    const ubus_method methods[] = {UBUS_METHOD("get", handler, wan_id), UBUS_METHOD_NOARG("all", handler)};
    ubus_object_type type = UBUS_OBJECT_TYPE("any", methods);
    ubus_object first = {}, second = {}, anonymous = {};
    first.name = "test";
    second.name = "test2";
    first.type = second.type = &type;

    bus.say(message(msg_data, 1, 0, ids(object_id, 0xaabb)) + status_message(1, 0, 0));
    EXPECT_EQ(ubus_add_object(ctx, &first), 0);
    EXPECT_EQ(bus.heard(), "00060001 00000000 0000003c 02000009 74657374 00000000 0600002c 8200001c 00036765 "
                           "74000000 85000010 00057761 6e496400 00000005 8200000c 0003616c 6c000000");
    EXPECT_EQ(first.id, object_id);
    EXPECT_EQ(type.id, 0xaabbu);

    bus.say(message(msg_data, 2, 0, number_field(field_object, 0x2000)) + status_message(2, 0, 0));
    EXPECT_EQ(ubus_add_object(ctx, &second), 0);
    EXPECT_EQ(bus.heard(), "00060002 00000000 00000018 0200000a 74657374 32000000 05000008 0000aabb");

    bus.say(message(msg_data, 3, 0, number_field(field_object, 0x3000)) + status_message(3, 0, 0));
    EXPECT_EQ(ubus_add_object(ctx, &anonymous), 0);
    EXPECT_EQ(bus.heard(), "00060003 00000000 00000004");

    bus.say(message(msg_data, 4, 0, ids(object_id, 0xaabb)) + status_message(4, 0, 0));
    EXPECT_EQ(ubus_remove_object(ctx, &first), 0);
    EXPECT_EQ(bus.heard(), "00070004 00000000 0000000c 03000008 11223344");
    EXPECT_EQ(first.id, 0u);
    EXPECT_EQ(type.id, 0u);

    uint32_t found = 0;
    bus.say(
        message(msg_data, 5, 0, text_field(field_path, "test") + ids(7, 8) + attribute(field_signature, {})) +
        status_message(5, 0, 0));
    EXPECT_EQ(ubus_lookup_id(ctx, "test", &found), 0);
    EXPECT_EQ(bus.heard(), "00040005 00000000 00000010 02000009 74657374 00000000");
    EXPECT_EQ(found, 7u);

    bus.say(status_message(6, 0, 0));
    EXPECT_EQ(ubus_lookup(ctx, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(bus.heard(), "00040006 00000000 00000004");

    bus.say(status_message(7, object_id, 0));
    EXPECT_EQ(call_method(ctx, object_id, "get", R"({"wanId":1})").status, 0);
    EXPECT_EQ(bus.heard(), "00050007 11223344 00000028 03000008 11223344 04000008 67657400 07000014 85000010 "
                           "00057761 6e496400 00000001");

    bus.say(status_message(8, object_id, 0));
    EXPECT_EQ(call_method(ctx, object_id, "get").status, 0);
    EXPECT_EQ(bus.heard(), "00050008 11223344 00000018 03000008 11223344 04000008 67657400 07000004");
}

TEST_F(libubus_wire_test, an_event_has_the_documented_bytes)
{
    for (uint16_t seq = 1; seq <= 3; seq++) {
        bus.say(status_message(seq, event_object, 0));
        EXPECT_EQ(ubus_send_event(ctx, "foo.bar", blob_message(R"({"x":1})").head()), 0);
    }

    EXPECT_NE(bus.heard(), bus.heard()) << "the sequence numbers differ";
    EXPECT_EQ(bus.heard(),
              "00050003 00000001 00000048 03000008 00000001 04000009 73656e64 00000000 07000030 83000014 "
              "00026964 00000000 666f6f2e 62617200 82000018 00046461 74610000 8500000c 00017800 "
              "00000001");
}

TEST_F(libubus_wire_test, replies_and_status_have_the_documented_bytes)
{
    test_object replying("t", {{"get", [](received_call &call) { return call.reply(R"({"up":true})"); }}});
    bus.say(message(msg_data, 1, 0, ids(object_id, 0x99)) + status_message(1, 0, 0));
    ASSERT_EQ(ubus_add_object(ctx, &replying), 0);
    (void)bus.heard();

    bus.say(message(msg_invoke, 0x21, caller,
                    number_field(field_object, object_id) + text_field(field_method, "get") +
                        attribute(field_data, {})));
    ubus_handle_event(ctx);

    EXPECT_EQ(bus.heard(),
              "00020021 00005566 00000020 03000008 11223344 07000014 8700000d 00027570 00000000 01000000");
    EXPECT_EQ(bus.heard(), "00010021 00005566 00000014 01000008 00000000 03000008 11223344");
}

TEST_F(libubus_wire_test, sequence_numbers_wrap_at_16_bits)
{
    ctx->request_seq = 0xfffe;
    for (const uint16_t seq : {uint16_t(0xffff), uint16_t(0)}) {
        bus.say(status_message(seq, 7, 0));
        EXPECT_EQ(call_method(ctx, 7, "m").status, 0);
    }
}

TEST_F(libubus_wire_test, an_answer_must_match_in_sequence_number_and_peer)
{
    bus.say(status_message(1, 8, 3) + status_message(2, 7, 4) + status_message(1, 7, 5) +
            status_message(1, 7, 6));

    EXPECT_EQ(call_method(ctx, 7, "m").status, 5);

    ubus_handle_event(ctx);
    EXPECT_FALSE(ctx->broken);
}

TEST_F(libubus_wire_test, odd_answers)
{
    const bytes value = named_number("a", 1);
    const struct {
        const char *what;
        bytes answer;
        int status;
        std::vector<std::string> replies;
    } cases[] = {
        {"status without its field", message(msg_status, 1, 7), UBUS_STATUS_INVALID_ARGUMENT, {}},
        {"status of two bytes", message(msg_status, 1, 7, attribute(field_status, {0, 0})), 2, {}},
        {"data without its field", message(msg_data, 1, 7) + status_message(1, 7, 0), 0, {}},
        {"data cut off",
         message(msg_data, 1, 7, from_hex("07000050 85000010")) + status_message(1, 7, 0),
         0,
         {}},
        {"data of rubbish",
         message(msg_data, 1, 7, attribute(field_data, from_hex("85000004 ffffffff"))) +
             status_message(1, 7, 0),
         0,
         {"{}"}},
        {"fields that nobody knows",
         message(msg_data, 1, 7, number_field(99, 1) + attribute(field_data, value)) +
             status_message(1, 7, 0),
         0,
         {R"({"a":1})"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ctx->request_seq = 0;
        bus.say(c.answer);

        const call_result result = call_method(ctx, 7, "m");

        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.replies, c.replies);
    }
}

TEST_F(libubus_wire_test, an_added_object_without_an_id_is_an_error)
{
    bus.say(status_message(1, 0, 0));

    EXPECT_EQ(ubus_add_object(ctx, &object), UBUS_STATUS_NO_DATA);
}

TEST_F(libubus_wire_test, removing_clears_only_the_ids_that_the_bus_names)
{
    add_object();
    bus.say(message(msg_data, 2, 0) + status_message(2, 0, 0));

    EXPECT_EQ(ubus_remove_object(ctx, &object), 0);

    EXPECT_EQ(object.id, object_id);
    EXPECT_EQ(object.own_type.id, 0x99u);
}

TEST_F(libubus_wire_test, a_greeting_is_waited_for_through_signals)
{
    struct sigaction ours = {}, before;
    ours.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &ours, &before), 0);
    fake_bus other;
    const pthread_t waiting = pthread_self();
    std::thread disturber([waiting] {
        for (int i = 0; i < 20; i++) {
            pthread_kill(waiting, SIGUSR1);
            usleep(1000);
        }
    });

    const connection client(other.connect_client(message(msg_hello, 0, 0x2002), 50));
    disturber.join();

    EXPECT_NE(static_cast<ubus_context *>(client), nullptr);
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(libubus_wire_test, an_object_found_without_path_id_or_type_is_not_reported)
{
    const bytes path = text_field(field_path, "t");
    const bytes id = number_field(field_object, 7);
    const bytes type = number_field(field_type, 8);
    bus.say(message(msg_data, 1, 0, id + type) + message(msg_data, 1, 0, path + type) +
            message(msg_data, 1, 0, path + id) + message(msg_data, 1, 0, path + id + type) +
            status_message(1, 0, 0));
    int found = 0;

    EXPECT_EQ(ubus_lookup(
                  ctx, nullptr,
                  [](ubus_context *, ubus_object_data *data, void *priv) {
                      ++*static_cast<int *>(priv);
                      EXPECT_EQ(data->signature, nullptr);
                  },
                  &found),
              0);

    EXPECT_EQ(found, 1);
}

TEST_F(libubus_wire_test, calls_are_judged_before_a_handler_runs)
{
    add_object();
    const bytes id = number_field(field_object, object_id);
    const bytes method = text_field(field_method, "get");
    const bytes data = attribute(field_data, {});
    const struct {
        const char *what;
        bytes fields;
        int status;
        int calls;
    } cases[] = {
        {"complete", id + method + data, 0, 1},
        {"unknown object", number_field(field_object, 1) + method + data, UBUS_STATUS_NOT_FOUND, 0},
        {"no method", id + data, UBUS_STATUS_INVALID_ARGUMENT, 0},
        {"method without its end", id + attribute(field_method, {'g', 'e', 't'}) + data,
         UBUS_STATUS_INVALID_ARGUMENT, 0},
        {"unknown method", id + text_field(field_method, "ge") + data, UBUS_STATUS_METHOD_NOT_FOUND, 0},
        {"no data", id + method, UBUS_STATUS_INVALID_ARGUMENT, 0},
        {"unknown method and no data", id + text_field(field_method, "x"), UBUS_STATUS_METHOD_NOT_FOUND, 0},
        {"reply wanted", flag_field(field_no_reply, false) + id + method + data, 0, 1},
    };
    uint16_t seq = 1;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        calls = 0;

        bus.say(message(msg_invoke, ++seq, caller, c.fields));
        ubus_handle_event(ctx);

        EXPECT_EQ(calls, c.calls);
        const uint32_t answered_id = c.status == UBUS_STATUS_NOT_FOUND ? 1 : object_id;
        EXPECT_EQ(bus.heard(), words(message(msg_status, seq, caller,
                                             number_field(field_status, static_cast<uint32_t>(c.status)) +
                                                 number_field(field_object, answered_id))));
    }
}

TEST_F(libubus_wire_test, what_is_no_call_gets_no_answer_and_does_no_harm)
{
    add_object();
    const bytes id = number_field(field_object, object_id);
    const bytes method = text_field(field_method, "get");
    const bytes data = attribute(field_data, {});
    const struct {
        const char *what;
        bytes sent;
        int calls;
    } cases[] = {
        {"no reply wanted",
         message(msg_invoke, 9, caller, flag_field(field_no_reply, true) + id + method + data), 1},
        {"no object", message(msg_invoke, 9, caller, method + data), 0},
        {"object of two bytes",
         message(msg_invoke, 9, caller, attribute(field_object, {1, 2}) + method + data), 0},
        {"fields cut off", message(msg_invoke, 9, caller, from_hex("03000050 11223344")), 0},
        {"field shorter than its word", message(msg_invoke, 9, caller, from_hex("03000001 11223344")), 0},
        {"field of length 0", message(msg_invoke, 9, caller, from_hex("03000000")), 0},
        {"odd length", from_hex("00050009 00005566 00000009 0300000811"), 0},
        {"greeting", message(msg_hello, 9, caller), 0},
        {"ping", message(msg_ping, 9, caller), 0},
        {"lookup", message(msg_lookup, 9, caller), 0},
        {"notification", message(msg_notify, 9, 0, id + flag_field(9, true)), 0},
        {"unknown type", message(255, 9, caller, id + method + data), 0},
        {"status of no request", status_message(9, caller, 0), 0},
        {"data of no request", message(msg_data, 9, caller, data), 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        calls = 0;

        bus.say(c.sent);
        ubus_handle_event(ctx);

        EXPECT_EQ(calls, c.calls);
        EXPECT_FALSE(bus.has_heard());
        EXPECT_FALSE(ctx->broken);
    }
}

TEST_F(libubus_wire_test, what_is_no_message_ends_the_connection)
{
    const struct {
        const char *what;
        bytes sent;
    } cases[] = {
        {"version 1", bytes{1} + from_hex("050009 00005566 00000004")},
        {"length 0", from_hex("00050009 00005566 00000000")},
        {"length 3", from_hex("00050009 00005566 00000003")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const connection other(bus.connect_client());
        ASSERT_NE(other, nullptr);
        int losses = 0;
        static int *counter;
        counter = &losses;
        other->connection_lost = [](ubus_context *) { ++*counter; };

        bus.say(c.sent);
        ubus_handle_event(other);

        EXPECT_EQ(losses, 1);
    }
}

TEST_F(libubus_wire_test, messages_may_come_in_pieces_of_any_size)
{
    add_object();
    const bytes call = message(msg_invoke, 9, caller,
                               number_field(field_object, object_id) + text_field(field_method, "get") +
                                   attribute(field_data, bytes(100, 0)));

    for (const uint8_t byte : call) {
        EXPECT_EQ(calls, 0);
        bus.say({byte});
        ubus_handle_event(ctx);
    }

    EXPECT_EQ(calls, 1);
    EXPECT_NE(bus.heard(), "nothing");
}

TEST_F(libubus_wire_test, several_messages_may_come_in_one_piece)
{
    add_object();
    const bytes call = message(msg_invoke, 9, caller,
                               number_field(field_object, object_id) + text_field(field_method, "get") +
                                   attribute(field_data, {}));

    bus.say(call + call + call);
    EXPECT_TRUE(ctx.serve_until([&] { return calls == 3; }));

    for (int i = 0; i < 3; i++)
        EXPECT_NE(bus.heard(), "nothing");
}

TEST_F(libubus_wire_test, a_length_that_is_no_multiple_of_four_has_no_padding_behind_it)
{
    add_object();
    // The last field of the first call lacks its padding, so it counts as cut off; the message behind it is
    // found.
    const bytes odd = from_hex("00050009 00005566 00000013 03000008 11223344 04000007 676574");
    const bytes call = message(msg_invoke, 10, caller,
                               number_field(field_object, object_id) + text_field(field_method, "get") +
                                   attribute(field_data, {}));

    bus.say(odd + call);
    EXPECT_TRUE(ctx.serve_until([&] { return calls == 1; }));

    EXPECT_EQ(bus.heard(), "00010009 00005566 00000014 01000008 00000002 03000008 11223344");
    EXPECT_EQ(bus.heard(), "0001000a 00005566 00000014 01000008 00000000 03000008 11223344");
}

TEST_F(libubus_wire_test, a_half_message_does_not_hold_up_the_program)
{
    add_object();
    const bytes call = message(msg_invoke, 9, caller, number_field(field_object, object_id));
    for (const size_t length : {size_t(1), size_t(11), size_t(12), size_t(15)}) {
        SCOPED_TRACE(length);
        const connection other(bus.connect_client());
        ASSERT_NE(other, nullptr);
        bus.say(bytes(call.begin(), call.begin() + static_cast<long>(length)));

        ubus_handle_event(other);

        EXPECT_FALSE(other->broken);
    }
}

TEST_F(libubus_wire_test, a_random_stream_does_no_harm)
{
    uint32_t state = 12345;
    const auto next = [&state] {
        state = state * 1664525 + 1013904223;
        return static_cast<uint8_t>(state >> 24);
    };
    for (int round = 0; round < 300; round++) {
        SCOPED_TRACE(round);
        const connection other(bus.connect_client());
        ASSERT_NE(other, nullptr);
        test_object any(nullptr, {{nullptr, [](received_call &call) { return call.reply("{}"); }}});
        bus.say(message(msg_data, 1, 0, number_field(field_object, object_id)) + status_message(1, 0, 0));
        ASSERT_EQ(ubus_add_object(other, &any), 0);
        // A sound head, so that the fields are looked at, and fields of noise with a few sound beginnings.
        bytes fields = round % 2 ? number_field(field_object, object_id) : bytes{};
        const size_t noise = next();
        for (size_t i = 0; i < noise; i++)
            fields.push_back(i % 4 == 1 || i % 4 == 2 ? 0 : next());
        fields.resize(fields.size() & ~size_t{3});

        bus.say(message(static_cast<uint8_t>(next() % 12), 1, object_id, fields));
        ubus_handle_event(other);

        EXPECT_FALSE(other->broken);
    }
}

} // namespace
