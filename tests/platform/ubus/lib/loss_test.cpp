// What happens when the bus goes away, and how a program comes back to it.
#include "platform/ubus/lib/support.h"

#include <atomic>

namespace {

// Tells of a lost connection; one at a time.
struct loss_counter {
    static inline std::atomic<int> losses;

    explicit loss_counter(ubus_context *ctx)
    {
        losses = 0;
        ctx->connection_lost = [](ubus_context *) { losses++; };
    }
};

bytes call_of(uint32_t object, const char *method)
{
    return message(msg_invoke, 1, object,
                   number_field(field_object, object) + text_field(field_method, method) +
                       attribute(field_data, {}));
}

// Single passes of the loop, as many as it takes. False at the deadline.
bool run_passes_until(const std::function<bool()> &condition)
{
    return wait_until([&] {
        uloop_run_timeout(0);
        return condition();
    });
}

class libubus_loss_test : public running_ubusd_test {
protected:
    libubus_loss_test() : ctx(socket_path) {}

    connection ctx;
};

TEST_F(libubus_loss_test, a_waiting_call_fails_when_the_bus_dies)
{
    loss_counter counter(ctx);
    raw_client owner = connect();
    const uint32_t id = owner.add_object("slow");
    std::thread killer([&] {
        (void)owner.receive();
        daemon.stop(SIGKILL);
    });

    EXPECT_EQ(call_method(ctx, id, "get", nullptr, 0).status, UBUS_STATUS_CONNECTION_FAILED);
    killer.join();

    EXPECT_EQ(counter.losses, 1);
    EXPECT_EQ(call_method(ctx, id, "get", nullptr, 0).status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_lookup(ctx, nullptr, nullptr, nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_event(ctx, "x", nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    ubus_event_handler ev = {};
    EXPECT_EQ(ubus_register_event_handler(ctx, &ev, "x"), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(counter.losses, 1);
}

TEST_F(libubus_loss_test, a_waiting_call_outside_of_handlers_ends_the_loop)
{
    raw_client owner = connect();
    const uint32_t id = owner.add_object("slow");
    std::thread killer([&] {
        (void)owner.receive();
        daemon.stop(SIGTERM);
    });
    ubus_add_uloop(ctx);
    struct caller : uloop_timeout {
        ubus_context *ctx;
        uint32_t id;
        int status;
    } call = {};
    call.ctx = ctx;
    call.id = id;
    call.cb = [](uloop_timeout *t) {
        caller *const self = static_cast<caller *>(t);
        self->status = call_method(self->ctx, self->id, "get", nullptr, 0).status;
        EXPECT_TRUE(uloop_cancelling());
    };
    uloop_timeout_set(&call, 0);

    EXPECT_EQ(run_loop_with_deadline(), 0);
    killer.join();

    EXPECT_EQ(call.status, UBUS_STATUS_CONNECTION_FAILED);
    uloop_fd_delete(&ctx->sock);
}

// Watches from a timer: once the loop has let go of the socket, it must still run a while later.
struct idle_watch : uloop_timeout {
    uloop_fd *sock = nullptr;
    int passes_after = 0;

    idle_watch() : uloop_timeout{}
    {
        cb = [](uloop_timeout *t) {
            idle_watch *const self = static_cast<idle_watch *>(t);
            EXPECT_FALSE(uloop_cancelling());
            if (!self->sock->registered && ++self->passes_after == 5)
                return uloop_end();
            uloop_timeout_set(t, 1);
        };
    }
};

TEST_F(libubus_loss_test, an_idle_loop_runs_on_without_a_bus)
{
    for (const int signal_number : {SIGTERM, SIGKILL}) {
        SCOPED_TRACE(signal_number);
        if (!daemon.running())
            start();
        const connection idle(socket_path);
        ubus_add_uloop(idle);
        idle_watch watch;
        watch.sock = &idle->sock;
        uloop_timeout_set(&watch, 1);

        daemon.stop(signal_number);
        EXPECT_EQ(run_loop_with_deadline(), 0);

        EXPECT_EQ(watch.passes_after, 5);
        EXPECT_TRUE(idle->loss_reported);
    }
}

TEST_F(libubus_loss_test, an_idle_program_with_its_own_handler_is_told_once)
{
    loss_counter counter(ctx);
    ubus_add_uloop(ctx);
    idle_watch watch;
    watch.sock = &ctx->sock;
    uloop_timeout_set(&watch, 1);

    daemon.stop(SIGTERM);
    EXPECT_EQ(run_loop_with_deadline(), 0);

    EXPECT_EQ(counter.losses, 1);
}

TEST_F(libubus_loss_test, a_reply_that_cannot_be_sent_ends_the_loop)
{
    int sent = 0;
    test_object object("t", {{"get", [&](received_call &call) {
                                  daemon.stop(SIGKILL);
                                  sent = call.reply("{}");
                                  EXPECT_EQ(call_method(call.ctx, 7, "x").status,
                                            UBUS_STATUS_INVALID_ARGUMENT);
                                  EXPECT_FALSE(uloop_cancelling()) << "only after the handler";
                                  return 0;
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    raw_client caller = connect();
    ubus_add_uloop(ctx);

    caller.send(call_of(object.id, "get"));
    EXPECT_EQ(run_loop_with_deadline(), 0);

    EXPECT_EQ(sent, UBUS_STATUS_NO_DATA);
    uloop_fd_delete(&ctx->sock);
}

TEST_F(libubus_loss_test, asynchronous_calls_are_completed_before_the_loss_is_told)
{
    raw_client owner = connect();
    const uint32_t id = owner.add_object("slow");
    static std::string order;
    order.clear();
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx, id, "get", nullptr, &req), 0);
    req.complete_cb = [](ubus_request *, int status) { order += std::to_string(status) + " "; };
    ubus_complete_request_async(ctx, &req);
    ctx->connection_lost = [](ubus_context *) { order += "lost"; };

    daemon.stop(SIGKILL);
    EXPECT_TRUE(ctx.serve_until([] { return order.find("lost") != std::string::npos; }));

    EXPECT_EQ(order, "7 lost");
}

TEST_F(libubus_loss_test, what_the_bus_said_before_it_went_is_still_heard)
{
    fake_bus bus;
    ubus_context *const client = bus.connect_client();
    ASSERT_NE(client, nullptr);
    const connection owner(client);
    loss_counter counter(owner);
    std::string heard;
    test_object object("t", {{nullptr, [&](received_call &call) {
                                  heard += call.method + " ";
                                  return 0;
                              }}});
    bus.say(message(msg_data, 1, 0, number_field(field_object, 0x2000)) + status_message(1, 0, 0));
    ASSERT_EQ(ubus_add_object(owner, &object), 0);
    ubus_add_uloop(owner);

    bus.say(call_of(0x2000, "one") + call_of(0x2000, "two") + call_of(0x2000, "three"));
    bus.hang_up();
    EXPECT_TRUE(run_passes_until([&] { return !owner->sock.registered; }));

    EXPECT_EQ(heard, "one two three ");
    EXPECT_EQ(counter.losses, 1);
}

TEST_F(libubus_loss_test, a_half_closed_connection_is_told_once_and_dropped_from_the_loop)
{
    fake_bus bus;
    const connection client(bus.connect_client());
    ASSERT_NE(client, nullptr);
    loss_counter counter(client);
    ubus_add_uloop(client);

    bus.finish_writing();
    EXPECT_TRUE(run_passes_until([&] { return !client->sock.registered; }));

    EXPECT_EQ(counter.losses, 1);
}

TEST_F(libubus_loss_test, the_program_may_free_the_connection_when_told_of_its_loss)
{
    static bool freed;
    freed = false;
    ubus_context *const mortal = ubus_connect(socket_path.c_str());
    ASSERT_NE(mortal, nullptr);
    mortal->connection_lost = [](ubus_context *lost) {
        ubus_free(lost);
        freed = true;
        uloop_end();
    };
    ubus_add_uloop(mortal);

    daemon.stop(SIGKILL);
    EXPECT_EQ(run_loop_with_deadline(), 0);

    EXPECT_TRUE(freed);
}

TEST_F(libubus_loss_test, freeing_a_connection_forgets_its_open_calls)
{
    raw_client owner = connect();
    const uint32_t id = owner.add_object("slow");
    ubus_context *const mortal = ubus_connect(socket_path.c_str());
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(mortal, id, "get", nullptr, &req), 0);
    req.complete_cb = [](ubus_request *, int) { ADD_FAILURE() << "completed"; };
    ubus_complete_request_async(mortal, &req);

    ubus_free(mortal);

    EXPECT_FALSE(req.pending);
    ubus_abort_request(nullptr, &req);
}

TEST_F(libubus_loss_test, freeing_a_connection_forgets_the_calls_it_has_not_served)
{
    int calls = 0;
    test_object object("t", {{"get", [&](received_call &) { return calls++; }}});
    ubus_context *const mortal = ubus_connect(socket_path.c_str());
    ASSERT_NE(mortal, nullptr);
    ASSERT_EQ(ubus_add_object(mortal, &object), 0);
    raw_client caller = connect();
    caller.send(call_of(object.id, "get") + call_of(object.id, "get"));
    ASSERT_EQ(caller.call(message(msg_ping, 99, 0)), 0);
    // The calls have arrived before the answer to this lookup, and wait for the loop.
    EXPECT_EQ(find_object(mortal, "t"), object.id);

    ubus_free(mortal);
    uloop_run_timeout(0);

    EXPECT_EQ(calls, 0);
}

TEST_F(libubus_loss_test, freeing_a_connection_sends_nothing)
{
    fake_bus bus;
    ubus_context *const mortal = bus.connect_client();
    ASSERT_NE(mortal, nullptr);
    test_object object("t", {});
    bus.say(message(msg_data, 1, 0, number_field(field_object, 0x2000)) + status_message(1, 0, 0));
    ASSERT_EQ(ubus_add_object(mortal, &object), 0);
    ASSERT_NE(bus.heard(), "nothing");

    ubus_free(mortal);

    EXPECT_EQ(bus.heard(), "nothing");
}

TEST_F(libubus_loss_test, reconnecting_adds_the_objects_again)
{
    test_object one("one", {{"get", [](received_call &call) { return call.reply(R"({"n":1})"); }}});
    test_object two("two", {});
    two.type = one.type;
    ASSERT_EQ(ubus_add_object(ctx, &one), 0);
    ASSERT_EQ(ubus_add_object(ctx, &two), 0);
    daemon.stop(SIGKILL);
    EXPECT_EQ(ubus_reconnect(ctx, socket_path.c_str()), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(ctx->local_id, 0u);

    start();
    ASSERT_EQ(ubus_reconnect(ctx, socket_path.c_str()), 0);

    const connection other(socket_path);
    EXPECT_EQ(find_object(other, "one"), one.id);
    EXPECT_EQ(find_object(other, "two"), two.id);
    served server(ctx);
    EXPECT_EQ(call_method(other, one.id, "get").replies, std::vector<std::string>{R"({"n":1})"});
}

TEST_F(libubus_loss_test, reconnecting_fails_the_calls_of_the_old_connection)
{
    raw_client owner = connect();
    const uint32_t id = owner.add_object("slow");
    static int result;
    result = -1;
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx, id, "get", nullptr, &req), 0);
    req.complete_cb = [](ubus_request *, int status) { result = status; };
    ubus_complete_request_async(ctx, &req);

    EXPECT_EQ(ubus_reconnect(ctx, socket_path.c_str()), 0);

    EXPECT_EQ(result, UBUS_STATUS_TIMEOUT);
    EXPECT_FALSE(req.pending);
}

TEST_F(libubus_loss_test, an_object_that_cannot_be_added_again_is_tried_the_next_time)
{
    test_object object("t", {});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    daemon.stop(SIGKILL);
    start();
    {
        const connection thief(socket_path);
        test_object same_name("t", {});
        ASSERT_EQ(ubus_add_object(thief, &same_name), 0);
        EXPECT_EQ(ubus_reconnect(ctx, socket_path.c_str()), UBUS_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(object.id, 0u);
    }

    EXPECT_TRUE(wait_until([&] { return ubus_reconnect(ctx, socket_path.c_str()) == 0; }));

    EXPECT_EQ(find_object(ctx, "t"), object.id);
}

TEST_F(libubus_loss_test, reconnecting_may_be_done_when_told_of_the_loss)
{
    static std::string path;
    static int results;
    path = socket_path;
    results = 0;
    test_object object("t", {});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    ctx->connection_lost = [](ubus_context *lost) {
        results += ubus_reconnect(lost, path.c_str()) == 0 ? 1 : 100;
    };

    daemon.stop(SIGKILL);
    start();
    EXPECT_TRUE(ctx.serve_until([] { return results != 0; }));

    EXPECT_EQ(results, 1);
    EXPECT_EQ(find_object(ctx, "t"), object.id);
}

TEST_F(libubus_loss_test, a_reply_of_two_megabytes_costs_only_its_sender_the_connection)
{
    const connection service(socket_path);
    const connection bystander(socket_path);
    loss_counter counter(service);
    test_object object("t", {{"large", [](received_call &call) {
                                  blob_message reply;
                                  const std::string text(2 << 20, 'x');
                                  blobmsg_add_string(reply.buf(), "s", text.c_str());
                                  (void)ubus_send_reply(call.ctx, call.req, reply.head());
                                  return 0;
                              }}});
    ASSERT_EQ(ubus_add_object(service, &object), 0);
    {
        served server(service);
        EXPECT_EQ(call_method(ctx, object.id, "large", nullptr, 300).status, UBUS_STATUS_TIMEOUT);
        uint32_t id = 0;
        EXPECT_TRUE(wait_until([&] { return ubus_lookup_id(bystander, "t", &id) == UBUS_STATUS_NOT_FOUND; }));
        EXPECT_TRUE(wait_until([] { return loss_counter::losses == 1; }));
    }

    EXPECT_EQ(ubus_lookup(ctx, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(ubus_lookup(bystander, nullptr, nullptr, nullptr), 0);
}

TEST_F(libubus_loss_test, a_reply_beyond_what_a_message_can_hold_is_not_sent)
{
    test_object object("t", {{"huge", [](received_call &call) {
                                  // Fills the greatest buffer; the fields around it no longer fit.
                                  blob_message reply;
                                  const std::string text(0xffff00 - 4 - 4 - 8 - 1, 'x');
                                  EXPECT_EQ(blobmsg_add_string(reply.buf(), "s", text.c_str()), 0);
                                  return ubus_send_reply(call.ctx, call.req, reply.head());
                              }}});
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    const connection other(socket_path);
    served server(ctx);

    EXPECT_EQ(call_method(other, object.id, "huge").status, UBUS_STATUS_NO_MEMORY);
}

} // namespace
