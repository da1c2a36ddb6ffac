#include "platform/ubus/lib/support.h"

#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

// The daemon is a child of the test, which collects it by itself; the loop must not.
[[maybe_unused]] const bool sigchld_is_taken = (uloop_handle_sigchld = false);

bool has_input(int fd, int timeout)
{
    pollfd waiting = {fd, POLLIN, 0};
    return poll(&waiting, 1, timeout) == 1;
}

// Header and the attribute's word.
constexpr size_t prefix_size = 12;

// Fills data from this position on. False at the deadline and at the end of the stream.
bool read_whole(int fd, bytes &data, size_t position)
{
    while (position < data.size()) {
        if (!has_input(fd, static_cast<int>(default_deadline.count())))
            return false;
        const ssize_t count = read(fd, &data[position], data.size() - position);
        if (count <= 0)
            return false;
        position += static_cast<size_t>(count);
    }
    return true;
}

} // namespace

connection::connection(const std::string &socket_path) : ctx_(ubus_connect(socket_path.c_str()))
{
    if (!ctx_)
        throw std::runtime_error("cannot connect to " + socket_path);
}

bool connection::serve_until(const std::function<bool()> &condition) const
{
    return wait_until([&] {
        while (!condition() && has_input(ctx_->sock.fd, 0))
            ubus_handle_event(ctx_);
        return condition();
    });
}

test_object::test_object(const char *object_path, std::vector<std::pair<const char *, method_body>> bodies)
    : ubus_object{}, bodies_(std::move(bodies))
{
    for (const auto &[method, body] : bodies_)
        rows_.push_back({.name = method, .handler = dispatch});
    own_type = {.name = object_path, .methods = rows_.data(), .n_methods = static_cast<int>(rows_.size())};
    name = object_path;
    type = &own_type;
    methods = own_type.methods;
    n_methods = own_type.n_methods;
}

int test_object::dispatch(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                          blob_attr *msg)
{
    received_call call = {ctx, req, method, msg};
    for (const auto &[name, body] : static_cast<test_object *>(obj)->bodies_) {
        if (!name || call.method == name)
            return body(call);
    }
    ADD_FAILURE() << "called for " << method;
    return UBUS_STATUS_UNKNOWN_ERROR;
}

served::served(ubus_context *ctx)
{
    if (pipe(stop_) != 0)
        throw std::runtime_error("cannot make a pipe");
    thread_ = std::thread([this, ctx] {
        pollfd waiting[] = {{ctx->sock.fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        while (poll(waiting, ARRAY_SIZE(waiting), -1) >= 0 && !waiting[1].revents && !ctx->loss_reported)
            ubus_handle_event(ctx);
    });
}

served::~served()
{
    close(stop_[1]);
    thread_.join();
    close(stop_[0]);
}

call_result call_method(ubus_context *ctx, uint32_t object, const char *method, const char *arguments,
                        int timeout)
{
    call_result result = {};
    const auto collect = [](ubus_request *req, int type, blob_attr *msg) {
        EXPECT_EQ(type, static_cast<int>(UBUS_MSG_DATA));
        EXPECT_EQ(blob_id(msg), static_cast<unsigned>(UBUS_ATTR_DATA));
        static_cast<call_result *>(req->priv)->replies.push_back(taken(blobmsg_format_json(msg, true)));
    };
    if (arguments) {
        blob_message sent(arguments);
        result.status = ubus_invoke(ctx, object, method, sent.head(), collect, &result, timeout);
    } else {
        result.status = ubus_invoke(ctx, object, method, nullptr, collect, &result, timeout);
    }
    return result;
}

uint32_t find_object(ubus_context *ctx, const char *path)
{
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx, path, &id), 0) << path;
    return id;
}

fake_bus::fake_bus()
{
    char directory[] = "/tmp/fake-bus-XXXXXX";
    if (!mkdtemp(directory))
        throw std::runtime_error("cannot make a directory");
    directory_ = directory;
    path_ = directory_ + "/socket";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener_, 5) != 0)
        throw std::runtime_error("cannot listen on " + path_);
}

fake_bus::~fake_bus()
{
    hang_up();
    close(listener_);
    std::filesystem::remove_all(directory_);
}

ubus_context *fake_bus::connect_client(const bytes &greeting, int pause)
{
    hang_up();
    std::thread bus([&] {
        end_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        say(greeting);
        // Nothing follows a greeting that is not whole.
        if (greeting.size() < prefix_size)
            finish_writing();
    });
    ubus_context *const ctx = ubus_connect(path_.c_str());
    bus.join();
    return ctx;
}

void fake_bus::say(const bytes &data) const
{
    if (send(end_, data.data(), data.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(data.size()))
        ADD_FAILURE() << "the client did not take " << words(data);
}

std::string fake_bus::heard() const
{
    bytes data(prefix_size);
    if (!read_whole(end_, data, 0))
        return "nothing";
    const size_t length = static_cast<size_t>(data[9]) << 16 | static_cast<size_t>(data[10]) << 8 | data[11];
    data.resize(prefix_size - 4 + length);
    return read_whole(end_, data, prefix_size) ? words(data) : "nothing";
}

bool fake_bus::has_heard() const
{
    return has_input(end_, 0);
}

void fake_bus::hang_up()
{
    if (end_ >= 0)
        close(end_);
    end_ = -1;
}

void fake_bus::finish_writing() const
{
    shutdown(end_, SHUT_WR);
}

int run_loop_with_deadline()
{
    uloop_timeout deadline = {};
    deadline.cb = [](uloop_timeout *) {
        ADD_FAILURE() << "the loop was not ended";
        uloop_end();
    };
    uloop_timeout_set(&deadline, static_cast<int>(default_deadline.count()));
    const int result = uloop_run();
    uloop_timeout_cancel(&deadline);
    return result;
}
