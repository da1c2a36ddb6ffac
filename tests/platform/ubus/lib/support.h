// Programs on the bus as the tests of the client library write them, and a bus that is the test itself.
#pragma once

#include "platform/ubox/support.h"
#include "platform/ubus/daemon_fixture.h"

#include <libubus.h>

#include <functional>
#include <optional>
#include <thread>
#include <utility>

// A connection that frees itself.
class connection {
public:
    explicit connection(const std::string &socket_path);
    // Takes over what ubus_connect() returned.
    explicit connection(ubus_context *connected) : ctx_(connected) {}
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;
    ~connection() { ubus_free(ctx_); }

    operator ubus_context *() const { return ctx_; }
    ubus_context *operator->() const { return ctx_; }
    // Serves the connection without a loop until the condition holds. False at the deadline.
    bool serve_until(const std::function<bool()> &condition) const;

private:
    ubus_context *ctx_;
};

// A call while its handler runs.
struct received_call {
    ubus_context *ctx;
    ubus_request_data *req;
    std::string method;
    blob_attr *msg;

    std::string arguments() const { return taken(blobmsg_format_json(msg, true)); }
    int reply(const char *json) const { return ubus_send_reply(ctx, req, blob_message(json).head()); }
};

using method_body = std::function<int(received_call &)>;

// An object whose methods are lambdas. It must outlive the connection that it is added to.
class test_object : public ubus_object {
public:
    test_object(const char *object_path, std::vector<std::pair<const char *, method_body>> bodies);
    test_object(const test_object &) = delete;
    test_object &operator=(const test_object &) = delete;

    ubus_object_type own_type = {};

private:
    static int dispatch(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                        blob_attr *msg);

    std::vector<std::pair<const char *, method_body>> bodies_;
    std::vector<ubus_method> rows_;
};

// Serves a connection from a thread of its own, from construction to destruction.
class served {
public:
    explicit served(ubus_context *ctx);
    served(const served &) = delete;
    served &operator=(const served &) = delete;
    ~served();

private:
    int stop_[2];
    std::thread thread_;
};

struct call_result {
    int status;
    std::vector<std::string> replies;
};

// A synchronous call; NULL: no message at all.
call_result call_method(ubus_context *ctx, uint32_t object, const char *method,
                        const char *arguments = nullptr, int timeout = 10000);
// The id of an object that must exist.
uint32_t find_object(ubus_context *ctx, const char *path);

// A bus that is the test itself: it says what the test wants, when the test wants it.
class fake_bus {
public:
    fake_bus();
    fake_bus(const fake_bus &) = delete;
    fake_bus &operator=(const fake_bus &) = delete;
    ~fake_bus();

    // Connects a client and greets it with these bytes, after `pause` milliseconds. NULL if the client does
    // not accept the greeting.
    ubus_context *connect_client(const bytes &greeting = message(msg_hello, 0, 0x1001), int pause = 0);
    void say(const bytes &data) const;
    // The next message of the client in words; "nothing" at the deadline and at the end of the stream.
    std::string heard() const;
    // Whether the client has sent anything that was not yet heard.
    bool has_heard() const;
    // The client sees a hang-up.
    void hang_up();
    // The client sees the end of the stream and can still send.
    void finish_writing() const;

    const std::string &path() const { return path_; }

private:
    std::string directory_;
    std::string path_;
    int listener_ = -1;
    int end_ = -1;
};

// The loop for one test: ended, and the test failed, when nothing else ends it.
int run_loop_with_deadline();
