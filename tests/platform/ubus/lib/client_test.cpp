// The client's own side: connecting, its objects, lookups, calls and events, against the bus daemon.
#include "platform/ubus/lib/support.h"

#include <climits>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/un.h>

namespace {

class libubus_client_test : public running_ubusd_test {
protected:
    libubus_client_test() : ctx(socket_path) {}

    connection ctx;
};

class libubus_connect_test : public ubusd_test {};

test_object empty_object(const char *path)
{
    return test_object(path, {});
}

// Paths found by a lookup, each with a blank behind it; "!" and the status if it failed.
std::string found_paths(ubus_context *ctx, const char *pattern)
{
    std::string paths;
    const auto note = [](ubus_context *, ubus_object_data *found, void *priv) {
        EXPECT_GE(found->id, static_cast<uint32_t>(UBUS_FIRST_CLIENT_ID));
        EXPECT_GE(found->type_id, static_cast<uint32_t>(UBUS_FIRST_CLIENT_ID));
        EXPECT_NE(found->signature, nullptr);
        *static_cast<std::string *>(priv) += std::string(found->path) + " ";
    };
    const int status = ubus_lookup(ctx, pattern, note, &paths);
    return status == 0 ? paths : "!" + std::to_string(status);
}

TEST(ubus_strerror_test, every_status_has_its_text)
{
    const struct {
        int status;
        const char *text;
    } cases[] = {
        {0, "Success"},
        {1, "Invalid command"},
        {2, "Invalid argument"},
        {3, "Method not found"},
        {4, "Not found"},
        {5, "No response"},
        {6, "Permission denied"},
        {7, "Request timed out"},
        {8, "Operation not supported"},
        {9, "Unknown error"},
        {10, "Connection failed"},
        {11, "Out of memory"},
        {12, "Parsing message data failed"},
        {13, "System error"},
        {14, "Unknown error: 14"},
        {-1, "Unknown error: -1"},
        {INT_MIN, "Unknown error: -2147483648"},
    };
    for (const auto &c : cases)
        EXPECT_STREQ(ubus_strerror(c.status), c.text);
}

TEST_F(libubus_connect_test, fails_where_nobody_listens)
{
    ASSERT_EQ(uloop_init(), 0);
    const int lowest_free = fcntl(0, F_DUPFD_CLOEXEC, 0);
    close(lowest_free);

    EXPECT_EQ(ubus_connect((directory + "/nobody").c_str()), nullptr);
    EXPECT_EQ(ubus_connect(nullptr), nullptr);
    EXPECT_EQ(ubus_connect(std::string(sizeof(sockaddr_un::sun_path), 'x').c_str()), nullptr);
    ubus_free(nullptr);

    EXPECT_EQ(fcntl(lowest_free, F_GETFD), -1) << "a socket was left open";
}

TEST_F(libubus_connect_test, fails_where_descriptors_have_run_out)
{
    start();
    rlimit usual;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    for (const bool loop_is_ready : {false, true}) {
        SCOPED_TRACE(loop_is_ready);
        uloop_done();
        if (loop_is_ready) {
            ASSERT_EQ(uloop_init(), 0);
        }
        const int lowest_free = fcntl(0, F_DUPFD_CLOEXEC, 0);
        close(lowest_free);
        rlimit tight = usual;
        tight.rlim_cur = static_cast<rlim_t>(lowest_free);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);

        ubus_context *const ctx = ubus_connect(socket_path.c_str());

        setrlimit(RLIMIT_NOFILE, &usual);
        EXPECT_EQ(ctx, nullptr);
    }
}

TEST_F(libubus_connect_test, without_a_path_connects_to_the_default_socket)
{
    socket_path = "/var/run/ubus/ubus.sock";
    start();

    const connection ctx(ubus_connect(nullptr));

    ASSERT_NE(ctx, nullptr);
    EXPECT_NE(ctx->local_id, 0u);
}

TEST_F(libubus_client_test, a_connection_is_non_blocking_closed_on_exec_and_not_in_the_loop)
{
    EXPECT_NE(ctx->local_id, 0u);
    EXPECT_NE(fcntl(ctx->sock.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(ctx->sock.fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_FALSE(ctx->sock.registered);

    ubus_add_uloop(ctx);

    EXPECT_TRUE(ctx->sock.registered);
}

TEST_F(libubus_client_test, a_structure_of_the_callers_serves_as_well)
{
    ubus_context own;
    EXPECT_EQ(ubus_connect_ctx(&own, (directory + "/nobody").c_str()), -1);

    ASSERT_EQ(ubus_connect_ctx(&own, socket_path.c_str()), 0);

    EXPECT_EQ(ubus_lookup(&own, nullptr, nullptr, nullptr), 0);
    ubus_shutdown(&own);
}

TEST_F(libubus_client_test, a_taken_name_is_refused_and_gives_no_id)
{
    const connection other(socket_path);
    test_object first = empty_object("t");
    test_object second = empty_object("t");
    ASSERT_EQ(ubus_add_object(other, &first), 0);

    EXPECT_EQ(ubus_add_object(ctx, &second), UBUS_STATUS_INVALID_ARGUMENT);

    EXPECT_EQ(second.id, 0u);
    EXPECT_EQ(find_object(ctx, "t"), first.id);
}

TEST_F(libubus_client_test, objects_of_one_type_share_its_id_until_the_last_is_removed)
{
    test_object first = empty_object("one");
    test_object second = empty_object("two");
    second.type = first.type;
    ASSERT_EQ(ubus_add_object(ctx, &first), 0);
    const uint32_t type_id = first.type->id;
    ASSERT_NE(type_id, 0u);

    ASSERT_EQ(ubus_add_object(ctx, &second), 0);
    EXPECT_EQ(first.type->id, type_id);
    EXPECT_NE(first.id, second.id);
    EXPECT_EQ(found_paths(ctx, nullptr), "one two ");

    EXPECT_EQ(ubus_remove_object(ctx, &first), 0);
    EXPECT_EQ(first.id, 0u);
    EXPECT_EQ(first.type->id, type_id);
    EXPECT_EQ(ubus_remove_object(ctx, &second), 0);
    EXPECT_EQ(first.type->id, 0u);
    EXPECT_EQ(ubus_remove_object(ctx, &second), UBUS_STATUS_NOT_FOUND);
}

TEST_F(libubus_client_test, an_object_can_be_removed_and_added_again)
{
    test_object object = empty_object("t");
    for (int round = 0; round < 2; round++) {
        ASSERT_EQ(ubus_add_object(ctx, &object), 0);
        EXPECT_EQ(ubus_add_object(ctx, &object), UBUS_STATUS_INVALID_ARGUMENT) << "added twice";
        EXPECT_EQ(find_object(ctx, "t"), object.id);
        ASSERT_EQ(ubus_remove_object(ctx, &object), 0);
    }
}

TEST_F(libubus_client_test, an_object_without_name_or_type_is_anonymous)
{
    test_object without_name = empty_object("t");
    without_name.name = nullptr;
    test_object without_type = empty_object("u");
    without_type.type = nullptr;

    EXPECT_EQ(ubus_add_object(ctx, &without_name), 0);
    EXPECT_EQ(ubus_add_object(ctx, &without_type), 0);

    EXPECT_NE(without_name.id, 0u);
    EXPECT_NE(without_type.id, 0u);
    EXPECT_EQ(found_paths(ctx, nullptr), "");
}

TEST_F(libubus_client_test, what_does_not_fit_a_message_is_refused_unsent)
{
    const auto handler = [](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
        return 0;
    };
    const std::string long_name(65536, 'n');
    const std::string long_text(1 << 24, 'x');
    const blobmsg_policy long_argument[] = {{long_name.c_str(), BLOBMSG_TYPE_INT32}};
    const ubus_method rows[] = {UBUS_METHOD_NOARG(long_name.c_str(), handler),
                                UBUS_METHOD("get", handler, long_argument)};
    for (const ubus_method &row : rows) {
        ubus_object_type type = {.name = "t", .id = 0, .methods = &row, .n_methods = 1};
        ubus_object object = {};
        object.name = "t";
        object.type = &type;
        EXPECT_EQ(ubus_add_object(ctx, &object), UBUS_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(object.id, 0u);
    }
    test_object named_too_long = empty_object(long_text.c_str());
    ubus_event_handler ev = {};

    EXPECT_EQ(ubus_add_object(ctx, &named_too_long), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_lookup(ctx, long_text.c_str(), nullptr, nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(call_method(ctx, UBUS_OBJECT_EVENT, long_text.c_str()).status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_event(ctx, long_text.c_str(), nullptr), UBUS_STATUS_NO_MEMORY);
    EXPECT_EQ(ubus_register_event_handler(ctx, &ev, long_text.c_str()), UBUS_STATUS_NO_MEMORY);

    EXPECT_EQ(ctx->request_seq, 1) << "the object of the event handler was the one thing sent";
    EXPECT_EQ(found_paths(ctx, nullptr), "");
}

TEST_F(libubus_client_test, the_signature_shows_the_policy_rows_that_the_mask_selects)
{
    constexpr blobmsg_policy arguments[] = {
        {"a", BLOBMSG_TYPE_INT32}, {"b", BLOBMSG_TYPE_STRING}, {"c", BLOBMSG_TYPE_INT8}};
    const auto handler = [](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
        return 0;
    };
    const ubus_method methods[] = {
        UBUS_METHOD("all", handler, arguments),
        UBUS_METHOD_NOARG("none", handler),
        UBUS_METHOD_MASK("some", handler, arguments, 1 << 0 | 1 << 2),
        UBUS_METHOD_TAG("tagged", handler, arguments, 4),
    };
    ubus_object_type type = UBUS_OBJECT_TYPE("type name", methods);
    ubus_object object = {};
    object.name = "t";
    object.type = &type;
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    std::string shown;

    ubus_lookup(
        ctx, "t",
        [](ubus_context *, ubus_object_data *found, void *priv) {
            *static_cast<std::string *>(priv) = taken(blobmsg_format_json(found->signature, true));
        },
        &shown);

    EXPECT_EQ(shown,
              R"({"all":{"a":5,"b":3,"c":7},"none":{},"some":{"a":5,"c":7},"tagged":{"a":5,"b":3,"c":7}})");
}

TEST_F(libubus_client_test, lookup_takes_a_path_a_prefix_or_all)
{
    test_object alpha = empty_object("alpha");
    test_object alpine = empty_object("alpine");
    test_object beta = empty_object("beta");
    EXPECT_EQ(found_paths(ctx, nullptr), "");
    EXPECT_EQ(found_paths(ctx, "*"), "!4");
    for (test_object *const object : {&beta, &alpine, &alpha})
        ASSERT_EQ(ubus_add_object(ctx, object), 0);
    const struct {
        const char *pattern;
        const char *paths;
    } cases[] = {
        {nullptr, "alpha alpine beta "},
        {"*", "alpha alpine beta "},
        {"al*", "alpha alpine "},
        {"beta", "beta "},
        {"bet", "!4"},
        {"g*", "!4"},
        {"", "!2"},
        {"al*a", "!4"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.pattern ? c.pattern : "NULL");
        EXPECT_EQ(found_paths(ctx, c.pattern), c.paths);
    }
}

TEST_F(libubus_client_test, lookup_of_an_id_leaves_it_alone_when_the_object_has_no_type)
{
    raw_client owner = connect();
    ASSERT_EQ(owner.call(message(msg_add_object, 1, 0, text_field(field_path, "hidden"))), 0);
    uint32_t id = 77;

    EXPECT_EQ(ubus_lookup_id(ctx, "hidden", &id), 0);
    EXPECT_EQ(id, 77u);
    EXPECT_EQ(ubus_lookup_id(ctx, "nosuch", &id), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(id, 77u);
}

// A service in a thread beside the test, with the methods that the tests of calls need.
class libubus_call_test : public libubus_client_test {
protected:
    libubus_call_test() { EXPECT_EQ(ubus_add_object(service, &object), 0); }

    void serve() { server.emplace(static_cast<ubus_context *>(service)); }

    static int number_in(const received_call &call, const char *name)
    {
        const blobmsg_policy policy[] = {{name, BLOBMSG_TYPE_INT32}};
        blob_attr *tb[1];
        blobmsg_parse(policy, 1, tb, blob_data(call.msg), static_cast<unsigned>(blob_len(call.msg)));
        return tb[0] ? static_cast<int>(blobmsg_get_u32(tb[0])) : 0;
    }

    connection service{socket_path};
    test_object object{
        "t",
        {{"ok", [](received_call &call) { return call.reply(R"({"status":0,"info":"x y"})"); }},
         {"noreply", [](received_call &) { return 0; }},
         {"twice",
          [](received_call &call) {
              call.reply(R"({"n":1})");
              return call.reply(R"({"n":2})");
          }},
         {"code",
          [](received_call &call) {
              call.reply(R"({"status":-1})");
              return number_in(call, "code");
          }},
         {"echo", [](received_call &call) { return call.reply(call.arguments().c_str()); }},
         {"empty", [](received_call &call) { return ubus_send_reply(call.ctx, call.req, nullptr); }}}};
    std::optional<served> server;
};

TEST_F(libubus_call_test, replies_arrive_before_the_status)
{
    serve();
    const struct {
        const char *method;
        const char *arguments;
        int status;
        std::vector<std::string> replies;
    } cases[] = {
        {"ok", nullptr, 0, {R"({"status":0,"info":"x y"})"}},
        {"noreply", nullptr, 0, {}},
        {"twice", nullptr, 0, {R"({"n":1})", R"({"n":2})"}},
        {"empty", nullptr, 0, {"{}"}},
        {"echo", R"({"a":[1,{"b":"c"}]})", 0, {R"({"a":[1,{"b":"c"}]})"}},
        {"echo", nullptr, 0, {"{}"}},
        {"nosuch", nullptr, UBUS_STATUS_METHOD_NOT_FOUND, {}},
        {"OK", nullptr, UBUS_STATUS_METHOD_NOT_FOUND, {}},
        {"code", R"({"code":2})", 2, {R"({"status":-1})"}},
        {"code", R"({"code":9})", 9, {R"({"status":-1})"}},
        {"code", R"({"code":-1})", -1, {R"({"status":-1})"}},
        {"code", R"({"code":2147483647})", INT_MAX, {R"({"status":-1})"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.method << " " << (c.arguments ? c.arguments : "NULL"));

        const call_result result = call_method(ctx, object.id, c.method, c.arguments);

        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.replies, c.replies);
    }
}

TEST_F(libubus_call_test, data_callback_and_arguments_may_be_left_out)
{
    serve();

    EXPECT_EQ(ubus_invoke(ctx, object.id, "ok", nullptr, nullptr, nullptr, 0), 0);
}

TEST_F(libubus_call_test, an_unknown_object_is_not_found)
{
    EXPECT_EQ(call_method(ctx, 0x7fffffff, "ok").status, UBUS_STATUS_NOT_FOUND);
}

TEST_F(libubus_call_test, a_call_that_nobody_serves_times_out_and_its_late_answer_is_ignored)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(call_method(ctx, object.id, "ok", nullptr, 100).status, UBUS_STATUS_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));

    serve();
    const call_result next = call_method(ctx, object.id, "echo", R"({"next":true})");

    EXPECT_EQ(next.status, 0);
    EXPECT_EQ(next.replies, std::vector<std::string>{R"({"next":true})"});
}

// What this thread has computed up to now.
std::chrono::nanoseconds computing_time()
{
    timespec used;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

TEST_F(libubus_call_test, waiting_for_an_answer_leaves_the_processor_to_others)
{
    const auto before = computing_time();

    EXPECT_EQ(call_method(ctx, object.id, "ok", nullptr, 300).status, UBUS_STATUS_TIMEOUT);

    EXPECT_LT(computing_time() - before, std::chrono::milliseconds(100));
}

TEST_F(libubus_call_test, requests_up_to_one_mebibyte_are_sent_and_larger_ones_refused_unsent)
{
    serve();
    // Head, object id and method "noreply" take 4 + 8 + 12 bytes, the data attribute 4; a string s takes 4 +
    // 4 and its text with a NUL.
    constexpr size_t overhead = 4 + 8 + 12 + 4 + 8 + 1;
    const struct {
        size_t text;
        int status;
    } cases[] = {
        {UBUS_MSG_LIMIT - overhead, 0},
        {UBUS_MSG_LIMIT - overhead + 1, UBUS_STATUS_INVALID_ARGUMENT},
        {UBUS_MSG_LIMIT * 8, UBUS_STATUS_INVALID_ARGUMENT},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        blob_message arguments;
        blobmsg_add_string(arguments.buf(), "s", std::string(c.text, 'x').c_str());

        EXPECT_EQ(ubus_invoke(ctx, object.id, "noreply", arguments.head(), nullptr, nullptr, 10000),
                  c.status);

        EXPECT_EQ(call_method(ctx, object.id, "ok").status, 0) << "the connection must stay usable";
    }
}

TEST_F(libubus_call_test, a_passed_descriptor_is_closed)
{
    serve();
    for (const uint32_t target : {object.id, 0x7fffffffu}) {
        SCOPED_TRACE(target);
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);

        const int status = ubus_invoke_fd(ctx, target, "noreply", nullptr, nullptr, nullptr, 10000, fd);

        EXPECT_EQ(status, target == object.id ? 0 : UBUS_STATUS_NOT_FOUND);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
}

TEST_F(libubus_call_test, a_passed_descriptor_reaches_the_owner_of_the_object)
{
    raw_client owner = connect();
    const uint32_t target = owner.add_object("raw");
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);

    // Nobody answers; what counts is that the call was sent.
    EXPECT_EQ(ubus_invoke_fd(ctx, target, "get", nullptr, nullptr, nullptr, 1, pipe_ends[1]),
              UBUS_STATUS_TIMEOUT);

    int received = -1;
    receive_with_fd(owner.socket(), 4096, received);
    ASSERT_GE(received, 0);
    ASSERT_EQ(write(received, "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(pipe_ends[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    close(received);
    close(pipe_ends[0]);
}

// An asynchronous call and what its callbacks saw.
struct async_call {
    ubus_request req = {};
    std::string seen;

    void prepare(ubus_context *ctx, uint32_t object, const char *method)
    {
        ASSERT_EQ(ubus_invoke_async(ctx, object, method, nullptr, &req), 0);
        req.priv = this;
        req.data_cb = [](ubus_request *r, int, blob_attr *msg) {
            static_cast<async_call *>(r->priv)->seen += taken(blobmsg_format_json(msg, true)) + " ";
        };
        req.complete_cb = [](ubus_request *r, int status) {
            EXPECT_EQ(r->status_code, status);
            static_cast<async_call *>(r->priv)->seen += "=" + std::to_string(status);
        };
    }
    bool completed() const { return seen.find('=') != std::string::npos; }
};

TEST_F(libubus_call_test, asynchronous_calls_are_completed_while_the_connection_is_served)
{
    serve();
    async_call twice, missing;
    twice.prepare(ctx, object.id, "twice");
    missing.prepare(ctx, object.id, "nosuch");
    ubus_complete_request_async(ctx, &twice.req);
    ubus_complete_request_async(ctx, &missing.req);
    EXPECT_EQ(twice.req.ctx, static_cast<ubus_context *>(ctx));

    EXPECT_TRUE(ctx.serve_until([&] { return twice.completed() && missing.completed(); }));

    EXPECT_EQ(twice.seen, R"({"n":1} {"n":2} =0)");
    EXPECT_EQ(missing.seen, "=3");
}

TEST_F(libubus_call_test, an_asynchronous_call_is_completed_from_the_loop)
{
    serve();
    async_call call;
    call.prepare(ctx, object.id, "ok");
    call.req.complete_cb = [](ubus_request *r, int status) {
        static_cast<async_call *>(r->priv)->seen += "=" + std::to_string(status);
        uloop_end();
    };
    ubus_complete_request_async(ctx, &call.req);
    ubus_add_uloop(ctx);

    EXPECT_EQ(run_loop_with_deadline(), 0);

    EXPECT_EQ(call.seen, R"({"status":0,"info":"x y"} =0)");
    uloop_fd_delete(&ctx->sock);
}

TEST_F(libubus_call_test, a_call_begun_asynchronously_can_be_waited_for)
{
    serve();
    async_call call;
    call.prepare(ctx, object.id, "ok");

    EXPECT_EQ(ubus_complete_request(ctx, &call.req, 10000), 0);

    EXPECT_EQ(call.seen, R"({"status":0,"info":"x y"} =0)");
    EXPECT_EQ(ubus_complete_request(ctx, &call.req, 10000), 0) << "it is complete already";
}

TEST_F(libubus_call_test, a_call_left_to_the_loop_can_still_be_waited_for)
{
    serve();
    async_call call;
    call.prepare(ctx, object.id, "ok");
    ubus_complete_request_async(ctx, &call.req);

    EXPECT_EQ(ubus_complete_request(ctx, &call.req, 10000), 0);

    EXPECT_EQ(call.seen, R"({"status":0,"info":"x y"} =0)");
    EXPECT_FALSE(call.req.pending);
}

TEST_F(libubus_call_test, a_raw_callback_gets_whole_answers_in_place_of_their_data)
{
    serve();
    async_call call;
    call.prepare(ctx, object.id, "twice");
    call.req.raw_data_cb = [](ubus_request *r, int type, blob_attr *msg) {
        EXPECT_EQ(type, UBUS_MSG_DATA);
        EXPECT_EQ(blob_id(msg), 0u);
        const blob_attr *const first = static_cast<blob_attr *>(blob_data(msg));
        EXPECT_EQ(blob_id(first), static_cast<unsigned>(UBUS_ATTR_OBJID));
        static_cast<async_call *>(r->priv)->seen += "raw ";
    };

    EXPECT_EQ(ubus_complete_request(ctx, &call.req, 10000), 0);

    EXPECT_EQ(call.seen, "raw raw =0");
}

TEST_F(libubus_call_test, other_calls_are_completed_while_one_is_waited_for)
{
    serve();
    async_call async;
    async.prepare(ctx, object.id, "ok");
    ubus_complete_request_async(ctx, &async.req);

    EXPECT_EQ(call_method(ctx, object.id, "noreply").status, 0);

    EXPECT_TRUE(async.completed());
}

TEST_F(libubus_call_test, an_aborted_call_gets_no_callbacks)
{
    async_call aborted;
    aborted.prepare(ctx, object.id, "ok");
    ubus_complete_request_async(ctx, &aborted.req);

    ubus_abort_request(ctx, &aborted.req);
    serve();

    EXPECT_EQ(call_method(ctx, object.id, "noreply").status, 0);
    EXPECT_EQ(aborted.seen, "");
    ubus_abort_request(ctx, &aborted.req);
}

TEST_F(libubus_call_test, a_call_may_be_aborted_by_its_own_data)
{
    serve();
    async_call call;
    call.prepare(ctx, object.id, "twice");
    call.req.data_cb = [](ubus_request *r, int, blob_attr *) {
        static_cast<async_call *>(r->priv)->seen += "data";
        ubus_abort_request(r->ctx, r);
    };
    ubus_complete_request_async(ctx, &call.req);

    EXPECT_EQ(call_method(ctx, object.id, "noreply").status, 0);

    EXPECT_EQ(call.seen, "data");
}

// A listener and what it heard: "type data" with a blank behind each.
struct listener : ubus_event_handler {
    std::string heard;

    listener() : ubus_event_handler{}
    {
        cb = [](ubus_context *, ubus_event_handler *ev, const char *type, blob_attr *msg) {
            static_cast<listener *>(ev)->heard +=
                std::string(type) + taken(blobmsg_format_json(msg, true)) + " ";
        };
    }
};

TEST_F(libubus_client_test, events_reach_the_patterns_that_match_them)
{
    const connection sender(socket_path);
    listener some, all;
    EXPECT_EQ(ubus_register_event_handler(ctx, &some, "foo.*"), 0);
    const uint32_t id = some.obj.id;
    EXPECT_EQ(ubus_register_event_handler(ctx, &some, "bar"), 0);
    EXPECT_EQ(some.obj.id, id);
    EXPECT_EQ(ubus_register_event_handler(ctx, &all, "*"), 0);

    EXPECT_EQ(ubus_send_event(sender, "foo.x", blob_message(R"({"a":1})").head()), 0);
    EXPECT_EQ(ubus_send_event(sender, "bars", blob_message().head()), 0);
    EXPECT_EQ(ubus_send_event(sender, "bar", nullptr), 0);
    EXPECT_EQ(ubus_send_event(sender, "ubus.x", nullptr), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(ubus_send_event(sender, "last", nullptr), 0);

    EXPECT_TRUE(ctx.serve_until([&] { return all.heard.find("last") != std::string::npos; }));
    EXPECT_EQ(some.heard, R"(foo.x{"a":1} bar{} )");
    EXPECT_EQ(all.heard, R"(foo.x{"a":1} bars{} bar{} last{} )");
}

TEST_F(libubus_client_test, an_unregistered_listener_hears_nothing_and_can_listen_again)
{
    const connection sender(socket_path);
    listener gone, stays;
    ASSERT_EQ(ubus_register_event_handler(ctx, &gone, "*"), 0);
    ASSERT_EQ(ubus_register_event_handler(ctx, &stays, "*"), 0);

    EXPECT_EQ(ubus_unregister_event_handler(ctx, &gone), 0);
    ubus_send_event(sender, "one", nullptr);
    EXPECT_TRUE(ctx.serve_until([&] { return !stays.heard.empty(); }));
    EXPECT_EQ(gone.heard, "");

    EXPECT_EQ(ubus_register_event_handler(ctx, &gone, "t*"), 0);
    ubus_send_event(sender, "two", nullptr);
    EXPECT_TRUE(ctx.serve_until([&] { return !gone.heard.empty(); }));
    EXPECT_EQ(gone.heard, "two{} ");
}

TEST_F(libubus_client_test, objects_that_come_and_go_are_announced)
{
    const connection other(socket_path);
    listener objects;
    test_object object = empty_object("t");
    ASSERT_EQ(ubus_register_event_handler(ctx, &objects, "ubus.object.*"), 0);

    ubus_add_object(other, &object);
    const std::string id = std::to_string(static_cast<int>(object.id));
    ubus_remove_object(other, &object);

    EXPECT_TRUE(ctx.serve_until([&] { return objects.heard.find("remove") != std::string::npos; }));
    const std::string data = R"({"id":)" + id + R"(,"path":"t"} )";
    EXPECT_EQ(objects.heard, "ubus.object.add" + data + "ubus.object.remove" + data);
}

TEST_F(libubus_client_test, the_limits_of_patterns_are_the_buss)
{
    listener ev;

    EXPECT_EQ(ubus_register_event_handler(ctx, &ev, ""), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(ubus_register_event_handler(ctx, &ev, "x"), 0);
}

} // namespace
