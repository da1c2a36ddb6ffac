// The serving side: what a handler may do while it runs, and how its answers reach the caller.
#include "platform/ubus/lib/support.h"

#include <fcntl.h>

namespace {

class libubus_service_test : public running_ubusd_test {
protected:
    libubus_service_test() : ctx(socket_path), caller(connect()) {}

    bytes invoke(uint16_t seq, uint32_t object, const char *method)
    {
        return message(msg_invoke, seq, object,
                       number_field(field_object, object) + text_field(field_method, method) +
                           attribute(field_data, {}));
    }
    // When this returns, the bus has passed on everything that the caller sent before.
    void settle_bus() { EXPECT_EQ(caller.call(message(msg_ping, 99, 0)), 0); }

    connection ctx;
    raw_client caller;
};

TEST_F(libubus_service_test, a_handler_knows_the_caller_and_the_object)
{
    std::string known;
    test_object object("t", {{"who", [&](received_call &call) {
                                  known = std::string(call.req->acl.user) + " " + call.req->acl.group + " " +
                                          call.req->acl.object;
                                  EXPECT_EQ(blob_id(call.msg), static_cast<unsigned>(UBUS_ATTR_DATA));
                                  EXPECT_FALSE(blob_is_extended(call.msg));
                                  return 0;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);

    caller.send(invoke(1, object.id, "who"));
    EXPECT_TRUE(ctx.serve_until([&] { return !known.empty(); }));

    EXPECT_EQ(known, "root root t");
}

TEST_F(libubus_service_test, a_method_row_without_a_name_takes_every_method_that_no_earlier_row_takes)
{
    std::string taken_by;
    test_object object("t", {{"one",
                              [&](received_call &) {
                                  taken_by += "row ";
                                  return 0;
                              }},
                             {nullptr, [&](received_call &call) {
                                  taken_by += "any:" + call.method + " ";
                                  return 0;
                              }}});
    // The bus gives no type to an object with such a row, but the calls arrive.
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);

    caller.send(invoke(1, object.id, "one") + invoke(2, object.id, "two"));
    EXPECT_TRUE(ctx.serve_until([&] { return taken_by.find("two") != std::string::npos; }));

    EXPECT_EQ(taken_by, "row any:two ");
}

TEST_F(libubus_service_test, data_is_sent_at_once_and_the_status_after_the_handler)
{
    std::string first_answer;
    test_object object("t", {{"get", [&](received_call &call) {
                                  EXPECT_EQ(call.reply(R"({"up":true})"), 0);
                                  first_answer = caller.receive();
                                  return 5;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    caller.id();

    caller.send(invoke(1, object.id, "get"));
    EXPECT_TRUE(ctx.serve_until([&] { return !first_answer.empty(); }));

    EXPECT_EQ(first_answer.substr(0, 8), "00020001");
    EXPECT_EQ(caller.receive(),
              words(message(msg_status, 1, object.id,
                            number_field(field_status, 5) + number_field(field_object, object.id))));
}

TEST_F(libubus_service_test, the_reply_is_copied)
{
    int calls = 0;
    test_object object("t", {{"get", [&](received_call &call) {
                                  calls++;
                                  blob_message reply(R"({"a":1})");
                                  const int sent = ubus_send_reply(call.ctx, call.req, reply.head());
                                  memset(reply.buf()->buf, 0xff, static_cast<size_t>(reply.buf()->buflen));
                                  return sent;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    caller.id();

    caller.send(invoke(1, object.id, "get"));
    EXPECT_TRUE(ctx.serve_until([&] { return calls == 1; }));

    EXPECT_EQ(caller.receive(), words(message(msg_data, 1, object.id,
                                              number_field(field_object, object.id) +
                                                  attribute(field_data, named_number("a", 1)))));
}

// Two objects: "back" is the test's own, so that it decides when a call to it is answered; "front" calls it.
class libubus_nested_test : public libubus_service_test {
protected:
    libubus_nested_test() : back(connect()) { back_id = back.add_object("back"); }

    void start()
    {
        ASSERT_EQ(ubus_add_object(ctx, &front), 0);
        server.emplace(static_cast<ubus_context *>(ctx));
    }
    // Answers the call that `back` has received, with {"n":7} and this status.
    void answer_back(const bytes &call, uint32_t status)
    {
        const uint32_t peer = static_cast<uint32_t>(call[4]) << 24 | static_cast<uint32_t>(call[5]) << 16 |
                              static_cast<uint32_t>(call[6]) << 8 | call[7];
        const uint16_t seq = static_cast<uint16_t>(call[2] << 8 | call[3]);
        const bytes id = number_field(field_object, back_id);
        back.send(message(msg_data, seq, peer, id + attribute(field_data, named_number("n", 7))) +
                  message(msg_status, seq, peer, number_field(field_status, status) + id));
    }

    raw_client back;
    uint32_t back_id = 0;
    // Written by the serving thread; read when the server is gone.
    std::string record;
    call_result inner = {};
    test_object front{"front",
                      {{"ask",
                        [this](received_call &call) {
                            record += "ask ";
                            inner = call_method(call.ctx, back_id, "get");
                            record += "asked ";
                            return 0;
                        }},
                       {"self",
                        [this](received_call &call) {
                            record += "self ";
                            inner = call_method(call.ctx, front.id, "note", nullptr, 100);
                            record += "done ";
                            return 0;
                        }},
                       {"note", [this](received_call &) {
                            record += "note ";
                            return 0;
                        }}}};
    std::optional<served> server;
};

TEST_F(libubus_nested_test, a_handler_may_call_another_connections_object)
{
    start();

    caller.send(invoke(1, front.id, "ask"));
    caller.id();
    answer_back(back.receive_bytes(), 9);
    EXPECT_NE(caller.receive(), "closed");
    server.reset();

    EXPECT_EQ(inner.status, 9);
    EXPECT_EQ(inner.replies, std::vector<std::string>{R"({"n":7})"});
    EXPECT_EQ(record, "ask asked ");
}

TEST_F(libubus_nested_test, a_waiting_call_serves_neither_timers_nor_other_descriptors)
{
    static bool disturbed;
    disturbed = false;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    uloop_fd readable = {};
    readable.fd = ends[0];
    readable.cb = [](uloop_fd *, unsigned) { disturbed = true; };
    uloop_timeout due = {};
    due.cb = [](uloop_timeout *) { disturbed = true; };
    ubus_add_uloop(ctx);
    ASSERT_EQ(uloop_fd_add(&readable, ULOOP_READ), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    uloop_timeout_set(&due, 0);

    EXPECT_EQ(call_method(ctx, back_id, "get", nullptr, 50).status, UBUS_STATUS_TIMEOUT);

    EXPECT_FALSE(disturbed);
    EXPECT_TRUE(due.pending);
    uloop_timeout_cancel(&due);
    uloop_fd_delete(&readable);
    uloop_fd_delete(&ctx->sock);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(libubus_nested_test, calls_that_arrive_during_a_handlers_own_call_wait_for_the_handlers_end)
{
    start();

    caller.send(invoke(1, front.id, "ask"));
    const bytes call = back.receive_bytes();
    caller.send(invoke(2, front.id, "note") + invoke(3, front.id, "note"));
    settle_bus();
    answer_back(call, 0);
    for (int answers = 0; answers < 3; answers++)
        EXPECT_NE(caller.receive(), "closed");
    server.reset();

    EXPECT_EQ(record, "ask asked note note ");
}

TEST_F(libubus_nested_test, a_call_to_an_object_of_the_own_connection_times_out_and_is_served_afterwards)
{
    start();

    caller.id();
    caller.send(invoke(1, front.id, "self"));
    EXPECT_NE(caller.receive(), "closed");
    // Served after the queued call, so its answer shows that that one is through.
    caller.send(invoke(2, front.id, "note"));
    EXPECT_NE(caller.receive(), "closed");
    server.reset();

    EXPECT_EQ(inner.status, UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(record, "self done note note ");
}

TEST_F(libubus_nested_test, calls_that_arrive_during_a_call_outside_of_handlers_are_served_from_the_loop)
{
    ASSERT_EQ(ubus_add_object(ctx, &front), 0);
    ubus_add_uloop(ctx);
    caller.send(invoke(1, front.id, "note"));
    settle_bus();
    // The call has arrived before the answer to this lookup.
    EXPECT_EQ(find_object(ctx, "front"), front.id);
    EXPECT_EQ(record, "");

    uloop_run_timeout(0);

    EXPECT_EQ(record, "note ");
    uloop_fd_delete(&ctx->sock);
}

TEST_F(libubus_service_test, serving_the_connection_within_a_handler_starts_no_other_handler)
{
    std::string record;
    test_object object("t", {{"outer",
                              [&](received_call &call) {
                                  record += "outer ";
                                  settle_bus();
                                  ubus_handle_event(call.ctx);
                                  record += "end ";
                                  return 0;
                              }},
                             {"inner", [&](received_call &) {
                                  record += "inner ";
                                  return 0;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);

    caller.send(invoke(1, object.id, "outer") + invoke(2, object.id, "inner"));
    EXPECT_TRUE(ctx.serve_until([&] { return record.find("inner") != std::string::npos; }));

    EXPECT_EQ(record, "outer end inner ");
}

// A call that is answered by a timer, after its handler has returned.
struct late_answer : uloop_timeout {
    ubus_context *ctx = nullptr;
    ubus_request_data req = {};

    late_answer() : uloop_timeout{}
    {
        cb = [](uloop_timeout *t) {
            late_answer *const self = static_cast<late_answer *>(t);
            EXPECT_EQ(ubus_send_reply(self->ctx, &self->req, blob_message(R"({"late":true})").head()), 0);
            ubus_complete_deferred_request(self->ctx, &self->req, 6);
            uloop_end();
        };
    }
};

TEST_F(libubus_service_test, a_deferred_call_is_answered_later_and_the_handlers_result_dropped)
{
    late_answer late;
    test_object object("t", {{"get", [&](received_call &call) {
                                  late.ctx = call.ctx;
                                  ubus_defer_request(call.ctx, call.req, &late.req);
                                  EXPECT_EQ(late.req.acl.user, nullptr);
                                  uloop_timeout_set(&late, 1);
                                  return 4;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    ubus_add_uloop(ctx);
    caller.id();

    caller.send(invoke(1, object.id, "get"));
    EXPECT_EQ(run_loop_with_deadline(), 0);

    const bytes id = number_field(field_object, object.id);
    const bytes late_data = named(7, "late", {1});
    EXPECT_EQ(caller.receive(),
              words(message(msg_data, 1, object.id, id + attribute(field_data, late_data))));
    EXPECT_EQ(caller.receive(), words(message(msg_status, 1, object.id, number_field(field_status, 6) + id)));
    uloop_fd_delete(&ctx->sock);
}

TEST_F(libubus_service_test, a_handler_may_remove_its_own_object)
{
    bool removed = false;
    test_object object("t", {{"leave", [&](received_call &call) {
                                  removed = ubus_remove_object(call.ctx, &object) == 0;
                                  return 0;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);

    caller.send(invoke(1, object.id, "leave"));
    EXPECT_TRUE(ctx.serve_until([&] { return removed; }));

    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx, "t", &id), UBUS_STATUS_NOT_FOUND);
}

TEST_F(libubus_service_test, a_handler_that_ends_the_loop_is_still_answered)
{
    test_object object("t", {{"stop", [](received_call &) {
                                  uloop_end();
                                  return 3;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    ubus_add_uloop(ctx);
    caller.id();

    caller.send(invoke(1, object.id, "stop"));
    EXPECT_EQ(run_loop_with_deadline(), 0);

    EXPECT_EQ(caller.receive(),
              words(message(msg_status, 1, object.id,
                            number_field(field_status, 3) + number_field(field_object, object.id))));
    uloop_fd_delete(&ctx->sock);
}

} // namespace
