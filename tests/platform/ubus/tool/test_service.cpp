// A bus service for the tests of the command-line tool, on the client library. Its exit status is what the
// event loop returned. A line on standard input makes it answer "alive" on standard output.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include <libubus.h>

namespace {

enum { code_value, code_fields };
constexpr blobmsg_policy code_policy[code_fields] = {{.name = "code", .type = BLOBMSG_TYPE_INT32}};

constexpr blobmsg_policy types_policy[] = {
    {.name = "flag", .type = BLOBMSG_TYPE_INT8},     {.name = "number", .type = BLOBMSG_TYPE_INT32},
    {.name = "text", .type = BLOBMSG_TYPE_STRING},   {.name = "list", .type = BLOBMSG_TYPE_ARRAY},
    {.name = "table", .type = BLOBMSG_TYPE_TABLE},   {.name = "short", .type = BLOBMSG_TYPE_INT16},
    {.name = "double", .type = BLOBMSG_TYPE_DOUBLE},
};

constexpr int slow_ms = 2000;
constexpr size_t big_size = 2000000;

blob_buf reply = {};

struct {
    ubus_context *bus;
    ubus_request_data request;
    uloop_timeout timer;
} slow_call = {};

void send_ok(ubus_context *bus, ubus_request_data *request)
{
    blob_buf_init(&reply, 0);
    blobmsg_add_u32(&reply, "status", 0);
    blobmsg_add_string(&reply, "info", "x y");
    ubus_send_reply(bus, request, reply.head);
}

int handle_ok(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    send_ok(bus, request);
    return UBUS_STATUS_OK;
}

int handle_noreply(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return UBUS_STATUS_OK;
}

int handle_twice(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    send_ok(bus, request);
    send_ok(bus, request);
    return UBUS_STATUS_OK;
}

int handle_code(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                blob_attr *content)
{
    blob_attr *found[code_fields];
    (void)blobmsg_parse(code_policy, code_fields, found, blob_data(content),
                        static_cast<unsigned>(blob_len(content)));
    send_ok(bus, request);
    return found[code_value] ? static_cast<int>(blobmsg_get_u32(found[code_value]))
                             : UBUS_STATUS_INVALID_ARGUMENT;
}

int handle_echo(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                blob_attr *content)
{
    return ubus_send_reply(bus, request, content);
}

void finish_slow_call(uloop_timeout *)
{
    send_ok(slow_call.bus, &slow_call.request);
    ubus_complete_deferred_request(slow_call.bus, &slow_call.request, UBUS_STATUS_OK);
}

int handle_slow(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    slow_call.bus = bus;
    ubus_defer_request(bus, request, &slow_call.request);
    slow_call.timer.cb = finish_slow_call;
    uloop_timeout_set(&slow_call.timer, slow_ms);
    return UBUS_STATUS_OK;
}

int handle_types(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return UBUS_STATUS_OK;
}

// Says that it was reached, then holds the loop until standard input brings a line.
int handle_block(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    puts("blocked");
    fflush(stdout);
    char line[16];
    while (read(STDIN_FILENO, line, sizeof(line)) < 0)
        continue;
    send_ok(bus, request);
    return UBUS_STATUS_OK;
}

int handle_big(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    char *const text = static_cast<char *>(malloc(big_size));
    memset(text, 'x', big_size);
    text[big_size - 1] = 0;
    blob_buf_init(&reply, 0);
    blobmsg_add_string(&reply, "text", text);
    free(text);
    ubus_send_reply(bus, request, reply.head);
    return UBUS_STATUS_OK;
}

const ubus_method test_methods[] = {
    UBUS_METHOD_NOARG("ok", handle_ok),       UBUS_METHOD_NOARG("noreply", handle_noreply),
    UBUS_METHOD_NOARG("twice", handle_twice), UBUS_METHOD("code", handle_code, code_policy),
    UBUS_METHOD_NOARG("echo", handle_echo),   UBUS_METHOD_NOARG("slow", handle_slow),
};
ubus_object_type test_type = UBUS_OBJECT_TYPE("t", test_methods);

const ubus_method odd_methods[] = {
    UBUS_METHOD("types", handle_types, types_policy),
    UBUS_METHOD_NOARG("block", handle_block),
    UBUS_METHOD_NOARG("big", handle_big),
};
ubus_object_type odd_type = UBUS_OBJECT_TYPE("t.odd", odd_methods);

void say_alive(uloop_fd *input, unsigned)
{
    char line[16];
    if (read(input->fd, line, sizeof(line)) <= 0) {
        uloop_fd_delete(input);
        return;
    }
    puts("alive");
    fflush(stdout);
}

bool offer(ubus_context *bus, ubus_object *object, const char *path, ubus_object_type *type)
{
    object->name = path;
    object->type = type;
    object->methods = type->methods;
    object->n_methods = type->n_methods;
    return ubus_add_object(bus, object) == UBUS_STATUS_OK;
}

} // namespace

int main(int argc, char **argv)
{
    ubus_context *const bus = argc == 2 ? ubus_connect(argv[1]) : nullptr;
    if (!bus)
        return EXIT_FAILURE;
    ubus_add_uloop(bus);
    static ubus_object test_object = {};
    static ubus_object odd_object = {};
    if (!offer(bus, &odd_object, "t.odd", &odd_type) || !offer(bus, &test_object, "t", &test_type))
        return EXIT_FAILURE;
    uloop_fd input = {.cb = say_alive, .fd = STDIN_FILENO};
    uloop_fd_add(&input, ULOOP_READ);

    const int result = uloop_run();
    ubus_free(bus);
    uloop_done();
    return result;
}
